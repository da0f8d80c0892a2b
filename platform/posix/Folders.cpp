#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <string>

#include "platform/Error.h"
#include "platform/System.h"
#include "platform/posix/Native.h"

namespace platform {
namespace {

// An absolute path from the environment, null if unset or relative (the XDG rules say to ignore those). A process with
// special rights trusts no path that its caller chose.
const char* AbsoluteFromEnvironment(const char* variable) {
    const char* value = secure_getenv(variable);
    return value != nullptr && *value == '/' ? value : nullptr;
}

std::filesystem::path FolderFromEnvironment(const char* variable) {
    const char* value = AbsoluteFromEnvironment(variable);
    return value != nullptr ? value : std::filesystem::path();
}

std::string UserFolder(const char* variable, const char* belowHome) {
    if (const char* folder = AbsoluteFromEnvironment(variable)) return std::string(folder) + "/norvik";
    const char* home = AbsoluteFromEnvironment("HOME");
    if (home == nullptr) return {};
    return std::string(home).append(1, '/').append(belowHome) + "/norvik";
}

std::string MachineFolderName() {
    const char* chosen = AbsoluteFromEnvironment("NORVIK_MACHINE_DIR");
    return chosen != nullptr ? chosen : "/etc/norvik";
}

std::filesystem::path Refused(ErrorCode code) {
    SetLastError(code);
    return {};
}

constexpr mode_t kWritableByOthers = S_IWGRP | S_IWOTH;

// The folder of this user below one that all users share. What an attacker may have put there first (a link, a folder
// of his own, one that he may write to) is refused.
std::filesystem::path PrivateFolderBelow(const std::filesystem::path& shared) {
    auto folder = shared / ("norvik-" + std::to_string(geteuid()));
    if (mkdir(folder.c_str(), 0700) != 0 && errno != EEXIST) return Refused(ErrorFromErrno(errno));
    const int descriptor = open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    if (descriptor < 0) return Refused(ERROR_ACCESS_DENIED);
    struct stat status {};
    bool ours =
        fstat(descriptor, &status) == 0 && status.st_uid == geteuid() && (status.st_mode & kWritableByOthers) == 0;
    if (ours && (status.st_mode & 07777) != 0700) ours = fchmod(descriptor, 0700) == 0;
    close(descriptor);
    return ours ? folder : Refused(ERROR_ACCESS_DENIED);
}

// The folder itself if it is this user's alone; the private one below it if all users share it, as they share /tmp:
// sticky, so that nobody can put another folder in the place of ours, and owned by somebody who may be trusted with
// that.
std::filesystem::path TempFolderAt(const std::filesystem::path& folder, const struct stat& status) {
    const bool ours = status.st_uid == geteuid();
    const bool forAll = (status.st_mode & S_IWOTH) != 0;
    const bool sticky = (status.st_mode & S_ISVTX) != 0;
    if (forAll && sticky && (ours || status.st_uid == 0)) return PrivateFolderBelow(folder);
    return ours && !forAll ? folder : Refused(ERROR_ACCESS_DENIED);
}

}  // namespace

std::filesystem::path GetTempPathW() {
    struct stat status {};
    const auto chosen = FolderFromEnvironment("TMPDIR");
    if (!chosen.empty() && stat(chosen.c_str(), &status) == 0 && S_ISDIR(status.st_mode))
        return TempFolderAt(chosen, status);

    auto runtime = FolderFromEnvironment("XDG_RUNTIME_DIR");
    if (!runtime.empty() && stat(runtime.c_str(), &status) == 0 && S_ISDIR(status.st_mode)) {
        if (status.st_uid == geteuid() && (status.st_mode & kWritableByOthers) == 0) return runtime;
        // After a change of user the variable often still names the other user's folder: no reason to stop.
        posix::LogHost("XDG_RUNTIME_DIR belongs to another user and is not used for temporary files");
    }
    return PrivateFolderBelow("/tmp");
}

std::string posix::StoresFolder(StoreLocation location) {
    std::string folder =
        location == StoreLocation::currentUser ? UserFolder("XDG_DATA_HOME", ".local/share") : MachineFolderName();
    return folder.empty() ? folder : folder + "/stores";
}

std::filesystem::path DataFolder() {
    return UserFolder("XDG_DATA_HOME", ".local/share");
}

std::filesystem::path ConfigFolder() {
    return UserFolder("XDG_CONFIG_HOME", ".config");
}

std::filesystem::path CacheFolder() {
    return UserFolder("XDG_CACHE_HOME", ".cache");
}

std::filesystem::path MachineFolder() {
    return MachineFolderName();
}

}  // namespace platform
