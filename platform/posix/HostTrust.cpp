#include <array>
#include <string>
#include <unordered_map>

#include "platform/Files.h"
#include "platform/Hash.h"
#include "platform/posix/CertificateFile.h"
#include "platform/posix/Native.h"

namespace platform::posix {
namespace {

// Where distributions keep the bundle of their trust anchors; p11-kit's trust module reads or makes the same lists.
constexpr auto kBundles = std::to_array<const char*>(
    {"/etc/ssl/certs/ca-certificates.crt", "/etc/pki/ca-trust/extracted/pem/tls-ca-bundle.pem",
     "/etc/pki/tls/certs/ca-bundle.crt", "/etc/ssl/ca-bundle.pem", "/etc/ssl/cert.pem"});

std::vector<CertificateContext> ReadAnchors() {
    for (const char* bundle : kBundles) {
        const auto bytes = ReadWholeFile(bundle, std::uint64_t{64} << 20);
        if (!bytes) continue;
        auto file = ReadCertificateFile(*bytes);
        if (file.damaged > 0)
            LogHost("Skipped " + std::to_string(file.damaged) + " trust anchors of the host that did not decode.");
        if (!file.certificates.empty()) return std::move(file.certificates);
    }
    LogHost("The host has no list of trust anchors.");
    return {};
}

}  // namespace

const std::vector<CertificateContext>& HostTrustAnchors() {
    static const std::vector<CertificateContext> anchors = ReadAnchors();
    return anchors;
}

CertificateContext FindHostTrustAnchor(ByteView sha1) {
    static const auto bySha1 = [] {
        std::unordered_map<std::string, CertificateContext> index;
        for (const auto& anchor : HostTrustAnchors())
            index.emplace(AsText(Digest(HashAlgorithm::sha1, anchor.Encoded())), anchor);
        return index;
    }();
    const auto found = bySha1.find(std::string(AsText(sha1)));
    return found == bySha1.end() ? CertificateContext() : found->second;
}

}  // namespace platform::posix
