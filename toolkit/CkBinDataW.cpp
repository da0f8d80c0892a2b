#include "toolkit/CkBinDataW.h"

namespace toolkit {

bool CkBinDataW::AppendBinary2(const void* bytes, std::size_t length) {
    if (bytes == nullptr && length > 0) return false;
    return data_->Append({static_cast<const std::uint8_t*>(bytes), length});
}

bool CkBinDataW::LoadEncoded(const char16_t* text, const char16_t* encoding) {
    return data_->LoadEncoded(Utf8(text), Utf8(encoding));
}

bool CkBinDataW::LoadFile(const char16_t* path) {
    return data_->LoadFile(Utf8(path));
}

const char16_t* CkBinDataW::GetEncoded(const char16_t* encoding) {
    return Result(data_->GetEncoded(Utf8(encoding)));
}

const char16_t* CkBinDataW::GetString(const char16_t* charset) {
    return Result(data_->GetString(Utf8(charset)));
}

}  // namespace toolkit
