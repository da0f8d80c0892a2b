#include "tests/support/Process.h"

#include <poll.h>
#include <spawn.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <cstring>
#include <sstream>
#include <stdexcept>

#include "tests/support/Profile.h"

namespace tests {
namespace {

// A file in memory: what a program reads, or all that it writes, however much.
class MemoryFile {
  public:
    explicit MemoryFile(std::string_view content = {}) : descriptor_(memfd_create("stream", MFD_CLOEXEC)) {
        while (!content.empty()) {
            const ssize_t written = write(descriptor_, content.data(), content.size());
            if (written <= 0) throw std::runtime_error("no file in memory");
            content.remove_prefix(static_cast<std::size_t>(written));
        }
        lseek(descriptor_, 0, SEEK_SET);
    }
    ~MemoryFile() { close(descriptor_); }
    MemoryFile(const MemoryFile&) = delete;
    MemoryFile& operator=(const MemoryFile&) = delete;

    [[nodiscard]] int Descriptor() const { return descriptor_; }
    [[nodiscard]] std::string Content() const { return ReadFile("/proc/self/fd/" + std::to_string(descriptor_)); }

  private:
    int descriptor_;
};

std::vector<std::string> Environment(const ProcessOptions& options) {
    std::vector<std::string> result;
    for (char** entry = environ; *entry != nullptr; ++entry) {
        const std::string text = *entry;
        if (!options.environment.contains(text.substr(0, text.find('=')))) result.push_back(text);
    }
    for (const auto& [name, value] : options.environment)
        if (value) result.push_back(name + "=" + *value);
    return result;
}

std::vector<char*> Pointers(const std::vector<std::string>& texts) {
    std::vector<char*> pointers;
    for (const std::string& text : texts)
        pointers.push_back(const_cast<char*>(text.c_str()));
    pointers.push_back(nullptr);
    return pointers;
}

// As the leader of a group of its own, so that what it starts can be ended with it.
pid_t Start(const std::vector<std::string>& command, const ProcessOptions& options, const MemoryFile& input,
            const MemoryFile& output, const MemoryFile& errors) {
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, input.Descriptor(), STDIN_FILENO);
    posix_spawn_file_actions_adddup2(&actions, output.Descriptor(), STDOUT_FILENO);
    posix_spawn_file_actions_adddup2(&actions, errors.Descriptor(), STDERR_FILENO);
    if (!options.folder.empty()) posix_spawn_file_actions_addchdir_np(&actions, options.folder.c_str());
    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETPGROUP);
    const auto environment = Environment(options);
    pid_t child = 0;
    const int reason = posix_spawnp(&child, command.front().c_str(), &actions, &attributes, Pointers(command).data(),
                                    Pointers(environment).data());
    posix_spawn_file_actions_destroy(&actions);
    posix_spawnattr_destroy(&attributes);
    if (reason != 0) throw std::runtime_error("cannot start " + command.front() + ": " + std::strerror(reason));
    return child;
}

}  // namespace

std::string ProcessResult::Summary() const {
    std::ostringstream text;
    text << "status " << status;
    if (signal != 0) text << ", signal " << signal;
    if (timedOut) text << ", timed out";
    text << "\n--- output ---\n" << output << "\n--- errors ---\n" << errors;
    return text.str();
}

ProcessResult RunProgram(const std::vector<std::string>& command, const ProcessOptions& options) {
    const MemoryFile input(options.input), output, errors;
    const pid_t child = Start(command, options, input, output, errors);
    pollfd ended{static_cast<int>(syscall(SYS_pidfd_open, child, 0)), POLLIN, 0};
    ProcessResult result;
    result.timedOut = poll(&ended, 1, static_cast<int>(options.timeout.count())) == 0;
    if (result.timedOut) kill(-child, SIGKILL);
    int status = 0;
    waitpid(child, &status, 0);
    close(ended.fd);
    if (WIFEXITED(status)) result.status = WEXITSTATUS(status);
    if (WIFSIGNALED(status)) result.signal = WTERMSIG(status);
    if (result.timedOut) result.status = -1;
    result.output = output.Content();
    result.errors = errors.Content();
    return result;
}

bool HasProgram(const std::string& name) {
    const char* path = std::getenv("PATH");
    std::istringstream folders(path == nullptr ? "" : path);
    for (std::string folder; std::getline(folders, folder, ':');)
        if (access((folder + "/" + name).c_str(), X_OK) == 0) return true;
    return false;
}

}  // namespace tests
