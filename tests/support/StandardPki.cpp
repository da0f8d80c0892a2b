#include <atomic>

#include "tests/support/Pki.h"

namespace tests {

void InstallCertificate(const Profile& profile, const std::string& store, const Certificate& certificate,
                        bool withKey) {
    const auto base = profile.Stores() / store / certificate.Thumbprint();
    profile.Write(base.string() + ".cer", platform::AsText(certificate.Der()));
    if (!withKey) return;
    const auto key = profile.Write(base.string() + ".key", certificate.KeyPem());
    std::filesystem::permissions(key, std::filesystem::perms::owner_read | std::filesystem::perms::owner_write);
}

void InstallCrl(const Profile& profile, const std::string& store, ByteView crl) {
    static std::atomic<int> count = 0;
    profile.Write(profile.Stores() / store / (std::to_string(++count) + ".crl"), platform::AsText(crl));
}

namespace {
Name Ours(const char* name) {
    return {{"C", "BG", V_ASN1_PRINTABLESTRING}, {"O", "Norvik Test"}, {"CN", name}};
}
}  // namespace

StandardPki::StandardPki(KeyType keyType, Key (*makeKey)(KeyType, unsigned))
    : root(Issue({.subject = Ours("Norvik Test Root"),
                  .notAfter = std::time(nullptr) + 20 * 365 * kDay,
                  .key = makeKey(KeyType::rsa2048, 0),
                  .ca = true})),
      ca(Issue({.subject = Ours("Norvik Test CA"),
                .notAfter = std::time(nullptr) + 10 * 365 * kDay,
                .key = makeKey(KeyType::rsa2048, 1),
                .ca = true,
                .pathLength = 0},
               root)),
      signer(Issue({.subject = {{"C", "BG", V_ASN1_PRINTABLESTRING},
                                {"O", "Норвик ЕООД"},
                                {"serialNumber", "PNOBG-0000000000", V_ASN1_PRINTABLESTRING},
                                {"CN", "Иван Петров"}},
                    .key = makeKey(keyType, keyType == KeyType::rsa2048 ? 2 : 0),
                    .extendedKeyUsage = "clientAuth,emailProtection",
                    .subjectAltName = "email:ivan.petrov@example.bg"},
                   ca)),
      tsa(Issue({.subject = Ours("Norvik Test TSA"),
                 .key = makeKey(KeyType::rsa2048, 3),
                 .extendedKeyUsage = "critical,timeStamping"},
                ca)) {}

void StandardPki::Install(const Profile& profile) const {
    InstallCertificate(profile, "ROOT", root);
    InstallCertificate(profile, "CA", ca);
    InstallCertificate(profile, "MY", signer, true);
}

void StandardPki::InstallCrls(const Profile& profile, const std::vector<RevokedEntry>& revoked) const {
    InstallCrl(profile, "CA", MakeCrl(root));
    InstallCrl(profile, "CA", MakeCrl(ca, {.revoked = revoked}));
}

}  // namespace tests
