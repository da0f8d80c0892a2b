#include "tests/support/Profile.h"

#include <cstdlib>
#include <fstream>
#include <sstream>
#include <stdexcept>

namespace tests {

namespace {
void SetOrUnset(const std::string& name, const std::optional<std::string>& value) {
    value ? setenv(name.c_str(), value->c_str(), 1) : unsetenv(name.c_str());
}
}  // namespace

Profile::Profile() {
    std::string pattern = (std::filesystem::temp_directory_path() / "norvik-test-XXXXXX").string();
    if (mkdtemp(pattern.data()) == nullptr) throw std::runtime_error("no folder for the test's profile");
    folder_ = pattern;
    const std::map<std::string, std::string> folders = {{"HOME", "home"},
                                                        {"XDG_DATA_HOME", "data"},
                                                        {"XDG_CONFIG_HOME", "config"},
                                                        {"XDG_CACHE_HOME", "cache"},
                                                        {"XDG_STATE_HOME", "state"},
                                                        {"XDG_RUNTIME_DIR", "runtime"},
                                                        {"TMPDIR", "tmp"},
                                                        {"NORVIK_MACHINE_DIR", "machine"}};
    for (const auto& [variable, name] : folders) {
        std::filesystem::create_directory(folder_ / name);
        std::filesystem::permissions(folder_ / name, std::filesystem::perms::owner_all);
        Set(variable, (folder_ / name).string());
    }
    // Addresses in certificates must not lead a test out of this machine: all but loopback goes to a proxy that is
    // none.
    for (const char* proxy : {"http_proxy", "https_proxy", "HTTPS_PROXY", "ALL_PROXY", "NO_PROXY"})
        Set(proxy, std::nullopt);
    Set("all_proxy", "http://127.0.0.1:9");
    Set("no_proxy", "127.0.0.1,localhost");
}

Profile::~Profile() {
    for (const auto& [name, value] : previous_)
        SetOrUnset(name, value);
    std::error_code ignored;
    std::filesystem::remove_all(folder_, ignored);
}

void Profile::Set(const std::string& name, const std::optional<std::string>& value) {
    const char* now = std::getenv(name.c_str());
    previous_.try_emplace(name, now == nullptr ? std::nullopt : std::optional<std::string>(now));
    SetOrUnset(name, value);
}

std::filesystem::path Profile::Write(const std::filesystem::path& name, std::string_view content) const {
    const auto path = folder_ / name;
    std::filesystem::create_directories(path.parent_path());
    std::ofstream file(path, std::ios::binary);
    if (!file.write(content.data(), static_cast<std::streamsize>(content.size())).flush())
        throw std::runtime_error("cannot write " + path.string());
    return path;
}

std::string ReadFile(const std::filesystem::path& path) {
    std::ifstream file(path, std::ios::binary);
    if (!file) throw std::runtime_error("cannot read " + path.string());
    std::ostringstream content;
    content << file.rdbuf();
    return content.str();
}

}  // namespace tests
