#include "tests/support/SoftToken.h"

#include <dlfcn.h>

#include <cstdlib>
#include <stdexcept>

#include "platform/Keys.h"
#include "tests/support/Process.h"

namespace tests {
namespace {

// p11-kit leaves the user's own configuration aside for root, as which tests often run; this works for everybody.
void OverrideP11KitFolders(const std::filesystem::path& folder) {
    static void* const library = dlopen("libp11-kit.so.0", RTLD_NOW | RTLD_LOCAL);
    using Override = void (*)(const char*, const char*, const char*, const char*, const char*);
    const auto override =
        library == nullptr ? nullptr : reinterpret_cast<Override>(dlsym(library, "p11_kit_override_system_files"));
    if (override == nullptr) throw std::runtime_error("p11-kit cannot be given a configuration");
    static std::string configuration, modules;  // p11-kit keeps the pointers
    configuration = folder / "pkcs11.conf";
    modules = folder / "modules";
    override(configuration.c_str(), "/nonexistent", "/nonexistent", modules.c_str(), "/nonexistent");
}

void Run(const std::vector<std::string>& command) {
    const auto result = RunProgram(command);
    if (result.status != 0) throw std::runtime_error(command.front() + ": " + result.Summary());
}

}  // namespace

void UseNoPkcs11Modules(Profile& profile) {
    platform::ReleaseTokens();
    const auto folder = profile.Folder() / "pkcs11";
    std::filesystem::remove_all(folder);
    std::filesystem::create_directories(folder / "modules");
    profile.Write("pkcs11/pkcs11.conf", "user-config: none\n");
    OverrideP11KitFolders(folder);
}

void UsePkcs11Module(Profile& profile, const std::string& name, const std::filesystem::path& module) {
    UseNoPkcs11Modules(profile);
    profile.Write("pkcs11/modules/" + name + ".module", "module: " + module.string() + "\n");
}

std::filesystem::path SoftToken::Module() {
    for (const char* path :
         {"/usr/lib/softhsm/libsofthsm2.so", "/usr/lib64/softhsm/libsofthsm2.so", "/usr/lib64/pkcs11/libsofthsm2.so"})
        if (std::filesystem::exists(path)) return path;
    return {};
}

bool SoftToken::Available() {
    return !Module().empty() && HasProgram("softhsm2-util") && HasProgram("pkcs11-tool");
}

SoftToken::SoftToken(Profile& profile, std::string label, std::string pin)
    : profile_(profile), label_(std::move(label)), pin_(std::move(pin)) {
    UsePkcs11Module(profile, "softhsm2", Module());
    std::filesystem::create_directory(Folder());
    const auto configuration = profile.Write("softhsm2.conf", "directories.tokendir = " + Folder().string() +
                                                                  "\nobjectstore.backend = file\nlog.level = ERROR\n");
    profile.Set("SOFTHSM2_CONF", configuration.string());
    Run({"softhsm2-util", "--init-token", "--free", "--label", label_, "--pin", pin_, "--so-pin", "12345678"});
}

SoftToken::~SoftToken() {
    platform::ReleaseTokens();
}

void SoftToken::Put(const Certificate& certificate, const std::string& hexId, bool withKey) {
    const auto file = profile_.Write("put.der", platform::AsText(certificate.Der()));
    const std::string label = "key" + hexId;
    Run({"pkcs11-tool", "--module", Module(), "--token-label", label_, "--pin", pin_, "--id", hexId, "--label", label,
         "--type", "cert", "--write-object", file});
    if (!withKey) return;
    const auto key = profile_.Write("put.pem", certificate.KeyPem());
    Run({"softhsm2-util", "--import", key, "--token", label_, "--pin", pin_, "--id", hexId, "--label", label});
}

}  // namespace tests
