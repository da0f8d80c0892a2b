#include <unistd.h>

#include <cstdlib>
#include <stdexcept>

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
    const auto folder = profile.Stores() / store;
    std::filesystem::create_directories(folder);
    std::string pattern = (folder / "XXXXXX.crl").string();
    const int file = mkstemps(pattern.data(), 4);
    if (file < 0) throw std::runtime_error("no file for the CRL");
    close(file);
    profile.Write(pattern, platform::AsText(crl));
}

StandardPki::StandardPki(KeyType keyType, Key (*makeKey)(KeyType, unsigned))
    : root(Issue({.subject = {{"C", "BG", V_ASN1_PRINTABLESTRING}, {"O", "Norvik Test"}, {"CN", "Norvik Test Root"}},
                  .notAfter = std::time(nullptr) + 20 * 365 * kDay,
                  .key = makeKey(KeyType::rsa2048, 0),
                  .ca = true})),
      ca(Issue({.subject = {{"C", "BG", V_ASN1_PRINTABLESTRING}, {"O", "Norvik Test"}, {"CN", "Norvik Test CA"}},
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
      tsa(Issue({.subject = {{"C", "BG", V_ASN1_PRINTABLESTRING}, {"O", "Norvik Test"}, {"CN", "Norvik Test TSA"}},
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

std::string StandardPki::ChainPem() const {
    return ca.Pem() + root.Pem();
}

}  // namespace tests
