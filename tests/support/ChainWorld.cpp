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

void ChainWorld::Trust(const Certificate& certificate) const {
    CertAddCertificateContextToStore(roots, ContextOf(certificate), CERT_STORE_ADD_ALWAYS);
}

void ChainWorld::Know(const Certificate& certificate) const {
    CertAddCertificateContextToStore(others, ContextOf(certificate), CERT_STORE_ADD_ALWAYS);
}

void ChainWorld::Distrust(const Certificate& certificate) const {
    CertAddCertificateContextToStore(distrusted, ContextOf(certificate), CERT_STORE_ADD_ALWAYS);
}

void ChainWorld::AddCrl(const Bytes& der) const {
    CertAddCRLContextToStore(crls, CertCreateCRLContext(der));
}

ChainContext ChainWorld::Chain(const Certificate& leaf, std::int64_t at, std::uint32_t flags,
                               std::vector<std::string> usages) const {
    return Chain(ContextOf(leaf), at, flags, std::move(usages));
}

ChainContext ChainWorld::Chain(const CertificateContext& leaf, std::int64_t at, std::uint32_t flags,
                               std::vector<std::string> usages) const {
    const ChainEngine engine{.roots = {roots}, .intermediates = {others}, .crls = {crls}, .distrusted = distrusted};
    return CertGetCertificateChain(leaf, {.time = FileTimeFromUnix(at),
                                          .additionalStore = {},
                                          .flags = flags,
                                          .engine = &engine,
                                          .requestedUsage = std::move(usages),
                                          .network = network})
        .value_or(ChainContext{});
}

ErrorCode ChainWorld::Verdict(const Certificate& leaf, std::int64_t at) const {
    return CertVerifyCertificateChainPolicy(Chain(leaf, at));
}

ErrorCode ChainWorld::VerdictWithCrls(const Certificate& leaf, std::int64_t at) const {
    return CertVerifyCertificateChainPolicy(Chain(leaf, at, CERT_CHAIN_REVOCATION_CHECK_CHAIN));
}

ErrorCode ChainWorld::VerdictWithCrls(const CertificateContext& leaf) const {
    return CertVerifyCertificateChainPolicy(
        Chain(leaf, std::time(nullptr), CERT_CHAIN_REVOCATION_CHECK_CHAIN, std::vector<std::string>()));
}

CertificateSpec AuthoritySpec(const std::string& name, unsigned keyIndex) {
    CertificateSpec spec = PersonSpec(name, keyIndex);
    spec.ca = true;
    return spec;
}

CertificateSpec PersonSpec(const std::string& name, unsigned keyIndex) {
    CertificateSpec spec;
    spec.subject = {{"CN", name}};
    spec.key = TestKey(KeyType::p256, keyIndex);
    return spec;
}

}  // namespace tests
