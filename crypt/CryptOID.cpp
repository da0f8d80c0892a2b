#include "crypt/CryptOID.h"

namespace tessaly {

bool CryptOID::Find(std::string_view oid) {
    const auto* found = platform::CryptFindOIDInfo(platform::CRYPT_OID_INFO_OID_KEY, oid, 0);
    if (found == nullptr) {
        lastError = platform::GetLastError();
        return false;
    }
    entry_ = found;
    return true;
}

}  // namespace tessaly
