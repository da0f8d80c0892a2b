#include "platform/Secret.h"

#include <cstring>

namespace platform {

void Wipe(void* memory, std::size_t size) {
    explicit_bzero(memory, size);
}

}  // namespace platform
