#include "tests/support/Process.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <sstream>
#include <stdexcept>

namespace tests {
namespace {

using Clock = std::chrono::steady_clock;

class Pipe {
  public:
    Pipe() {
        if (pipe2(ends_.data(), O_CLOEXEC) != 0) throw std::runtime_error("no pipe");
    }
    ~Pipe() {
        Close(0);
        Close(1);
    }
    Pipe(const Pipe&) = delete;
    Pipe& operator=(const Pipe&) = delete;

    [[nodiscard]] int Read() const { return ends_[0]; }
    [[nodiscard]] int Write() const { return ends_[1]; }
    void Close(std::size_t end) {
        if (ends_[end] >= 0) close(ends_[end]);
        ends_[end] = -1;
    }

  private:
    std::array<int, 2> ends_{-1, -1};
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

// Between fork and exec only what is safe in a process with threads; everything else is prepared before.
[[noreturn]] void BecomeProgram(char* const* arguments, char* const* environment, const char* folder, Pipe& input,
                                Pipe& output, Pipe& errors, int failure) {
    setpgid(0, 0);
    dup2(input.Read(), STDIN_FILENO);
    dup2(output.Write(), STDOUT_FILENO);
    dup2(errors.Write(), STDERR_FILENO);
    signal(SIGPIPE, SIG_DFL);
    if (*folder == '\0' || chdir(folder) == 0) execvpe(arguments[0], arguments, environment);
    const int reason = errno;
    static_cast<void>(!write(failure, &reason, sizeof reason));
    _exit(127);
}

void WriteSome(Pipe& pipe, std::string_view& rest) {
    const ssize_t written = write(pipe.Write(), rest.data(), rest.size());
    if (written > 0) rest.remove_prefix(static_cast<std::size_t>(written));
    // A program that does not read its input to the end is no fault of the test's.
    if (rest.empty() || (written < 0 && errno != EAGAIN && errno != EINTR)) pipe.Close(1);
}

void ReadSome(Pipe& pipe, std::string& text) {
    std::array<char, 65536> buffer{};
    const ssize_t got = read(pipe.Read(), buffer.data(), buffer.size());
    if (got > 0) {
        text.append(buffer.data(), static_cast<std::size_t>(got));
    } else if (got == 0 || (errno != EAGAIN && errno != EINTR)) {
        pipe.Close(0);
    }
}

// Feeds and drains until both outputs are closed; false when the time is over.
bool Talk(Pipe& input, Pipe& output, Pipe& errors, std::string_view rest, ProcessResult& result,
          Clock::time_point deadline) {
    if (rest.empty()) input.Close(1);
    while (output.Read() >= 0 || errors.Read() >= 0) {
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()).count();
        if (left <= 0) return false;
        std::array<pollfd, 3> waits{
            {{input.Write(), POLLOUT, 0}, {output.Read(), POLLIN, 0}, {errors.Read(), POLLIN, 0}}};
        if (poll(waits.data(), waits.size(), static_cast<int>(left)) < 0 && errno != EINTR) return false;
        if (waits[0].revents != 0) WriteSome(input, rest);
        if (waits[1].revents != 0) ReadSome(output, result.output);
        if (waits[2].revents != 0) ReadSome(errors, result.errors);
    }
    return true;
}

std::chrono::microseconds Duration(const timeval& time) {
    return std::chrono::seconds(time.tv_sec) + std::chrono::microseconds(time.tv_usec);
}

// A program may close its outputs and live on, so the deadline holds for its end too.
void Collect(pid_t child, ProcessResult& result, Clock::time_point deadline) {
    int status = 0;
    rusage usage{};
    useconds_t pause = 200;
    while (wait4(child, &status, result.timedOut ? 0 : WNOHANG, &usage) == 0) {
        if (Clock::now() < deadline) {
            usleep(pause);
            pause = std::min<useconds_t>(pause * 2, 5000);
            continue;
        }
        result.timedOut = true;
        kill(-child, SIGKILL);
    }
    if (WIFEXITED(status)) result.status = WEXITSTATUS(status);
    if (WIFSIGNALED(status)) result.signal = WTERMSIG(status);
    if (result.timedOut) result.status = -1;
    result.cpu = Duration(usage.ru_utime) + Duration(usage.ru_stime);
    result.peakKiB = usage.ru_maxrss;
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
    Pipe input, output, errors, failure;
    const std::vector<std::string> environment = Environment(options);
    const std::vector<char*> arguments = Pointers(command), variables = Pointers(environment);
    const std::string folder = options.folder.string();
    const auto start = Clock::now();
    const pid_t child = fork();
    if (child < 0) throw std::runtime_error("cannot fork");
    if (child == 0)
        BecomeProgram(arguments.data(), variables.data(), folder.c_str(), input, output, errors, failure.Write());
    setpgid(child, child);
    input.Close(0);
    output.Close(1);
    errors.Close(1);
    failure.Close(1);
    int reason = 0;
    const bool failed = read(failure.Read(), &reason, sizeof reason) == sizeof reason;
    fcntl(input.Write(), F_SETFL, O_NONBLOCK);
    struct sigaction ignore = {}, before = {};
    ignore.sa_handler = SIG_IGN;
    sigaction(SIGPIPE, &ignore, &before);
    ProcessResult result;
    const auto deadline = start + options.timeout;
    if (!failed && !Talk(input, output, errors, options.input, result, deadline)) {
        result.timedOut = true;
        kill(-child, SIGKILL);
    }
    Collect(child, result, deadline);
    sigaction(SIGPIPE, &before, nullptr);
    result.wall = std::chrono::duration_cast<std::chrono::microseconds>(Clock::now() - start);
    if (failed) throw std::runtime_error("cannot start " + command.front() + ": " + std::strerror(reason));
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
