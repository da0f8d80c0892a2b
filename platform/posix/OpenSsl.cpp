#include "platform/posix/OpenSsl.h"

#include <openssl/err.h>

namespace platform::posix {

std::string DrainErrorQueue() {
    unsigned long newest = 0;
    while (const unsigned long error = ERR_get_error())
        newest = error;
    if (newest == 0) return {};
    char text[256];
    ERR_error_string_n(newest, text, sizeof text);
    return text;
}

}  // namespace platform::posix
