#include "toolkit/CkByteData.h"

#include "platform/Files.h"
#include "platform/Text.h"

namespace toolkit {

bool CkByteData::LoadFile(const char16_t* path) {
    bytes_.emplace();
    if (path == nullptr) return false;
    auto content = platform::ReadWholeFile(platform::ToUtf8(path));
    if (!content) return false;
    *bytes_ = std::move(*content);
    return true;
}

platform::ByteView CkByteData::Content() const {
    return bytes_ ? platform::ByteView(*bytes_) : platform::ByteView();
}

}  // namespace toolkit
