#include "tests/support/ChainWorld.h"

namespace tests {

using namespace platform;

CertificateContext ContextOf(const Certificate& certificate) {
    return CertCreateCertificateContext(certificate.Der());
}

ChainWorld::ChainWorld(const Certificate& root, std::initializer_list<Certificate> intermediates) {
    Trust(root);
    for (const Certificate& intermediate : intermediates)
        Know(intermediate);
}

ChainContext ChainWorld::Chain(const Leaf& leaf, std::int64_t at, std::uint32_t flags,
                               std::vector<std::string> usages) const {
    const ChainEngine engine{.roots = {roots}, .intermediates = {others}, .crls = {crls}, .distrusted = distrusted};
    return CertGetCertificateChain(leaf.certificate, {.time = FileTimeFromUnix(at),
                                                      .additionalStore = {},
                                                      .flags = flags,
                                                      .engine = &engine,
                                                      .requestedUsage = std::move(usages),
                                                      .network = network})
        .value_or(ChainContext{});
}

CertificateSpec AuthoritySpec(const std::string& name, unsigned keyIndex) {
    return {.subject = {{"CN", name}}, .key = TestKey(KeyType::p256, keyIndex), .ca = true};
}

CertificateSpec PersonSpec(const std::string& name, unsigned keyIndex) {
    return {.subject = {{"CN", name}}, .key = TestKey(KeyType::p256, keyIndex)};
}

}  // namespace tests
