#include "tests/callers/Screen.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <stdexcept>
#include <thread>

namespace tests {
namespace {

constexpr std::chrono::seconds kPatience{20};
constexpr std::chrono::milliseconds kStep{50};

// `output` becomes descriptor 3 of the program, unless it is negative.
pid_t Spawn(std::vector<std::string> command, int output) {
    std::vector<char*> arguments;
    for (auto& argument : command)
        arguments.push_back(argument.data());
    arguments.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    for (const int descriptor : {STDOUT_FILENO, STDERR_FILENO})
        posix_spawn_file_actions_addopen(&actions, descriptor, "/dev/null", O_WRONLY, 0);
    if (output >= 0) posix_spawn_file_actions_adddup2(&actions, output, 3);
    pid_t pid = -1;
    const int failure = posix_spawnp(&pid, arguments[0], &actions, nullptr, arguments.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    if (failure != 0) throw std::runtime_error("cannot start " + command[0]);
    return pid;
}

void End(pid_t pid) {
    if (pid <= 0) return;
    kill(pid, SIGTERM);
    waitpid(pid, nullptr, 0);
}

}  // namespace

Screen::Screen() {
    std::array<int, 2> ends{};
    if (pipe2(ends.data(), O_CLOEXEC) != 0) throw std::runtime_error("no pipe");
    server_ = Spawn({"Xvfb", "-displayfd", "3", "-screen", "0", "1280x1024x24", "-nolisten", "tcp"}, ends[1]);
    close(ends[1]);
    char digit = 0;
    while (read(ends[0], &digit, 1) == 1 && digit != '\n')
        display_ += digit;
    close(ends[0]);
    if (display_.empty()) {
        End(server_);
        throw std::runtime_error("Xvfb does not start");
    }
    display_.insert(0, ":");
    manager_ = Spawn({"env", "DISPLAY=" + display_, "openbox"}, -1);
    for (auto waited = kStep; waited < kPatience; waited += kStep) {
        if (Run({"xprop", "-root", "_NET_SUPPORTING_WM_CHECK"}).output.find("window id") != std::string::npos) return;
        std::this_thread::sleep_for(kStep);
    }
}

Screen::~Screen() {
    End(manager_);
    End(server_);
}

ProcessResult Screen::Run(const std::vector<std::string>& command) const {
    return RunProgram(command, {.environment = {{"DISPLAY", display_}, {"LC_ALL", "C.UTF-8"}}, .timeout = kPatience});
}

std::future<ProcessResult> Screen::Start(std::vector<std::string> command) const {
    const ProcessOptions options{.environment = {{"DISPLAY", display_},
                                                 {"WAYLAND_DISPLAY", std::nullopt},
                                                 {"QT_QPA_PLATFORM", std::nullopt},
                                                 {"SESSION_MANAGER", std::nullopt}}};
    return std::async(std::launch::async,
                      [command = std::move(command), options] { return RunProgram(command, options); });
}

std::string Screen::WaitForWindow(const std::string& title) const {
    for (auto waited = kStep; waited < kPatience; waited += kStep) {
        const auto found = Run({"xdotool", "search", "--onlyvisible", "--name", title}).output;
        const auto window = found.substr(0, found.find('\n'));
        if (!window.empty() && Run({"xdotool", "getwindowfocus"}).output == window + "\n") return window;
        std::this_thread::sleep_for(kStep);
    }
    return {};
}

void Screen::Type(const std::string& text) const {
    Run({"xdotool", "type", "--delay", "5", text});
}

void Screen::Press(const std::string& key, int times) const {
    Run({"xdotool", "key", "--delay", "10", "--repeat", std::to_string(times), "--repeat-delay", "10", key});
}

std::string Screen::Property(const std::string& window, const std::string& name) const {
    return Run({"xprop", "-id", window, name}).output;
}

}  // namespace tests
