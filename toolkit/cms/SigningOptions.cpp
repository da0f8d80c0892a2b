#include "toolkit/cms/SigningOptions.h"

namespace toolkit::cms {

std::optional<platform::HashAlgorithm> SigningHash(std::string_view name) {
    const auto hash = platform::HashFromName(name);
    if (!hash) return std::nullopt;
    switch (*hash) {
        case platform::HashAlgorithm::sha1:
        case platform::HashAlgorithm::sha256:
        case platform::HashAlgorithm::sha384:
        case platform::HashAlgorithm::sha512:
            return hash;
        default:
            return std::nullopt;
    }
}

}  // namespace toolkit::cms
