#include "platform/posix/OpenSsl.h"

#include <openssl/crypto.h>
#include <openssl/err.h>

#include "platform/System.h"

namespace platform {

void LeaveCleaningToTheHost() {
    OPENSSL_init_crypto(OPENSSL_INIT_NO_ATEXIT, nullptr);
}

namespace posix {

std::string DrainErrorQueue() {
    unsigned long newest = 0;
    while (const unsigned long error = ERR_get_error())
        newest = error;
    if (newest == 0) return {};
    char text[256];
    ERR_error_string_n(newest, text, sizeof text);
    return text;
}

}  // namespace posix
}  // namespace platform
