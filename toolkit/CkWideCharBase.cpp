#include "toolkit/CkWideCharBase.h"

#include <algorithm>

#include "platform/Text.h"

namespace toolkit {

const char16_t* CkWideCharBase::lastErrorText() {
    return Result(Working().LastErrorText());
}

const char16_t* CkWideCharBase::Result(const std::optional<std::string>& utf8) {
    if (!utf8) return nullptr;
    slot_ = (slot_ + 1) % ring_.size();
    ring_[slot_] = platform::ToWide(*utf8);
    return ring_[slot_].c_str();
}

const char16_t* CkWideCharBase::WholeResult(const std::optional<std::string>& utf8) {
    if (Result(utf8) == nullptr) return nullptr;
    std::u16string& result = ring_[slot_];
    std::replace(result.begin(), result.end(), u'\0', u'\uFFFD');
    return result.c_str();
}

std::string CkWideCharBase::Utf8(const char16_t* text) {
    return text == nullptr ? std::string() : platform::ToUtf8(text);
}

}  // namespace toolkit
