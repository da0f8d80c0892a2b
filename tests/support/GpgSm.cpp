#include "tests/support/GpgSm.h"

#include <stdexcept>

#include "tests/support/Process.h"

namespace tests {

bool GpgSm::Available() {
    return HasProgram("gpgsm");
}

GpgSm::GpgSm(Profile& profile, const Certificate& root, const std::optional<Certificate>& signer,
             const std::vector<Certificate>& between)
    : profile_(profile) {
    const auto home = profile.Folder() / "gnupg";
    std::filesystem::create_directory(home);
    std::filesystem::permissions(home, std::filesystem::perms::owner_all);
    profile.Set("GNUPGHOME", home.string());
    profile.Write("gnupg/trustlist.txt", root.Thumbprint() + " S relax\n");
    profile.Write("gnupg/gpgsm.conf", "disable-crl-checks\ndisable-dirmngr\n");
    std::string authorities = root.Pem();
    for (const auto& certificate : between)
        authorities += certificate.Pem();
    const bool imported = Run({"--import", profile.Write("authorities.pem", authorities)});
    if (imported && !signer) return;
    // One in forty PFX files gpgsm does not decrypt, whoever made it: another salt, another try.
    constexpr int tries = 5;
    for (int i = 0; imported && i < tries; ++i) {
        const auto pfx = MakePfx({.certificates = {*signer}, .password = "x", .cipher = PfxCipher::des3});
        if (Run({"--import", profile.Write("keyring.p12", platform::AsText(pfx))})) return;
    }
    throw std::runtime_error("gpgsm does not import the certificates");
}

GpgSm::~GpgSm() {
    try {
        RunProgram({"gpgconf", "--kill", "all"});
    } catch (const std::exception&) {
        // Then there is no agent either.
    }
}

bool GpgSm::Run(const std::vector<std::string>& options) const {
    std::vector<std::string> command{"gpgsm",    "--batch",         "--yes", "--pinentry-mode",
                                     "loopback", "--passphrase-fd", "0"};
    command.insert(command.end(), options.begin(), options.end());
    return RunProgram(command, {.input = "x\n", .folder = profile_.Folder()}).status == 0;
}

}  // namespace tests
