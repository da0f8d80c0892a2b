// norvik-bench-measure OUTPUT ADDRESS-SPACE-MIB PROGRAM ARGUMENTS...: runs one program with its output in a file and
// prints "status wall-us cpu-us peak-KiB". A small process of its own, because the kernel counts the starter's memory
// as the started program's peak: a script interpreter would hide every figure below its own size.

#include <fcntl.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>

namespace {

long long Microseconds(const timeval& time) {
    return time.tv_sec * 1'000'000LL + time.tv_usec;
}

}  // namespace

int main(int count, char** values) {
    if (count < 4) return 2;
    const rlim_t limit = std::strtoull(values[2], nullptr, 10) << 20;
    if (limit != 0) {
        const rlimit space{limit, limit};
        if (setrlimit(RLIMIT_AS, &space) != 0) return 2;
    }
    posix_spawn_file_actions_t files;
    posix_spawn_file_actions_init(&files);
    posix_spawn_file_actions_addopen(&files, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_addopen(&files, STDOUT_FILENO, values[1], O_WRONLY | O_CREAT | O_TRUNC, 0600);
    posix_spawn_file_actions_adddup2(&files, STDOUT_FILENO, STDERR_FILENO);
    const auto start = std::chrono::steady_clock::now();
    pid_t child = 0;
    if (posix_spawnp(&child, values[3], &files, nullptr, values + 3, environ) != 0) return 2;
    int status = 0;
    rusage usage{};
    if (wait4(child, &status, 0, &usage) != child) return 2;
    const auto wall =
        std::chrono::duration_cast<std::chrono::microseconds>(std::chrono::steady_clock::now() - start).count();
    posix_spawn_file_actions_destroy(&files);
    std::printf("%d %lld %lld %ld\n", WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status),
                static_cast<long long>(wall), Microseconds(usage.ru_utime) + Microseconds(usage.ru_stime),
                usage.ru_maxrss);
    return 0;
}
