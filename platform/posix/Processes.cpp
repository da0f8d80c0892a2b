#include "platform/Processes.h"

#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>

namespace platform {
namespace {

// The child must not begin with signals blocked or ignored that the caller's thread happens to have so.
class CleanStart {
  public:
    explicit CleanStart(const std::filesystem::path& folder) {
        posix_spawn_file_actions_init(&actions_);
        posix_spawn_file_actions_addchdir_np(&actions_, folder.c_str());
        posix_spawn_file_actions_addclosefrom_np(&actions_, STDERR_FILENO + 1);
        posix_spawnattr_init(&attributes_);
        sigset_t none, all;
        sigemptyset(&none);
        sigfillset(&all);
        posix_spawnattr_setsigmask(&attributes_, &none);
        posix_spawnattr_setsigdefault(&attributes_, &all);
        posix_spawnattr_setflags(&attributes_, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
    }
    ~CleanStart() {
        posix_spawn_file_actions_destroy(&actions_);
        posix_spawnattr_destroy(&attributes_);
    }
    CleanStart(const CleanStart&) = delete;
    CleanStart& operator=(const CleanStart&) = delete;

    [[nodiscard]] const posix_spawn_file_actions_t* Actions() const { return &actions_; }
    [[nodiscard]] const posix_spawnattr_t* Attributes() const { return &attributes_; }

  private:
    posix_spawn_file_actions_t actions_{};
    posix_spawnattr_t attributes_{};
};

}  // namespace

ErrorCode RunAndWait(const std::filesystem::path& program, const std::string& name, const std::string& argument,
                     const std::filesystem::path& folder) {
    const CleanStart start(folder);
    auto first = name, second = argument;
    const std::array<char*, 3> arguments{first.data(), second.data(), nullptr};
    pid_t child = -1;
    const int failure =
        posix_spawn(&child, program.c_str(), start.Actions(), start.Attributes(), arguments.data(), environ);
    if (failure != 0) return ErrorFromErrno(failure);
    // An application that collects all its children itself may be faster: then the child has ended as well.
    while (waitpid(child, nullptr, 0) < 0 && errno == EINTR) {
    }
    return ERROR_SUCCESS;
}

}  // namespace platform
