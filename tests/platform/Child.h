#pragma once
// Work in a process of its own, which may give up rights and resources or be killed; its exit status is the answer.

#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <functional>

namespace tests {

inline pid_t Fork(const std::function<int()>& work) {
    const pid_t child = fork();
    if (child == 0) _exit(work());
    return child;
}
inline int ExitStatus(pid_t child) {
    int status = 0;
    waitpid(child, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}
inline int InChild(const std::function<int()>& work) {
    return ExitStatus(Fork(work));
}
// Gives up root's rights.
inline bool BecomeNobody() {
    return geteuid() != 0 || (setgid(12345) == 0 && setuid(12345) == 0);
}

// The permissions of the file itself, not of what a link leads to.
inline mode_t ModeOf(const std::filesystem::path& path) {
    struct stat status {};
    return lstat(path.c_str(), &status) == 0 ? status.st_mode & 07777 : 0;
}

}  // namespace tests
