#include "crypt/CryptStore.h"

namespace tessaly {

CryptStore::CryptStore() : store(platform::CertOpenMemoryStore()) {
    if (!store) lastError = platform::GetLastError();
}

CryptStore::CryptStore(const std::u16string& name) : store(platform::CertOpenSystemStoreW(name)) {
    if (!store) lastError = platform::GetLastError();
}

std::size_t CryptStore::GetCertificateCount() const {
    return store ? platform::CertEnumCertificatesInStore(store).size() : 0;
}

}  // namespace tessaly
