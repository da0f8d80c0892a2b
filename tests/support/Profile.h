#pragma once
// A user of its own for a test: fresh XDG folders, TMPDIR and machine folder that vanish with the object. The
// environment of the process points there meanwhile.

#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <string_view>

namespace tests {

class Profile {
  public:
    Profile();
    ~Profile();
    Profile(const Profile&) = delete;
    Profile& operator=(const Profile&) = delete;

    // The folder that holds all of it, for scratch files.
    [[nodiscard]] const std::filesystem::path& Folder() const { return folder_; }
    [[nodiscard]] std::filesystem::path Stores() const { return folder_ / "data/norvik/stores"; }
    [[nodiscard]] std::filesystem::path Machine() const { return folder_ / "machine"; }

    // Sets an environment variable until the profile ends (empty optional: unsets it).
    void Set(const std::string& name, const std::optional<std::string>& value);

    // A file below Folder() with this content; answers its path.
    std::filesystem::path Write(const std::filesystem::path& name, std::string_view content) const;

  private:
    std::filesystem::path folder_;
    std::map<std::string, std::optional<std::string>> previous_;
};

std::string ReadFile(const std::filesystem::path& path);

}  // namespace tests
