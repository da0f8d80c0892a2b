// PFX files under an empty password and one that seeds use.

#include "platform/Stores.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace platform;
    const ByteView bytes(data, size);
    for (const char* password : {"", "password"}) {
        const auto store = PFXImportCertStore(bytes, Secret(password));
        if (!store && GetLastError() == ERROR_SUCCESS) __builtin_trap();
        if (store && !PFXIsPFXBlob(bytes)) __builtin_trap();
        if (store) CertEnumCertificatesInStore(store);
    }
    return 0;
}
