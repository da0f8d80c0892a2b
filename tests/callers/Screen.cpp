#include "tests/callers/Screen.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <filesystem>
#include <stdexcept>
#include <thread>

#include "tests/support/Profile.h"

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
        const auto found = Run({"xdotool", "getwindowfocus"}).output;
        auto window = found.substr(0, found.find('\n'));
        if (Property(window, "_NET_WM_NAME").ends_with("= \"" + title + "\"\n")) return window;
        std::this_thread::sleep_for(kStep);
    }
    return {};
}

// Flat areas take next to no room in the file; a window with texts takes many times as much.
bool Screen::Photograph(const std::string& name) const {
    constexpr std::size_t kEmptyScreen = 6000;
    const std::filesystem::path folder(NORVIK_BINARY_DIR "/pictures");
    std::filesystem::create_directories(folder);
    const auto file = (folder / (name + ".png")).string();
    std::string before;
    for (auto waited = kStep; waited < kPatience; waited += kStep) {
        if (Run({"maim", "--hidecursor", file}).status != 0) return false;
        auto now = ReadFile(file);
        if (now == before && now.size() > kEmptyScreen) return true;
        before = std::move(now);
        std::this_thread::sleep_for(kStep);
    }
    return false;
}

void Screen::Type(const std::string& text) const {
    Run({"xdotool", "type", "--delay", "5", text});
}

void Screen::Press(const std::string& key, int times) const {
    Run({"xdotool", "key", "--delay", "10", "--repeat", std::to_string(times), "--repeat-delay", "10", key});
}

void Screen::Click(const std::string& window, double across, double down, int times) const {
    const auto geometry = Run({"xdotool", "getwindowgeometry", "--shell", window}).output;
    const auto share = [&](const std::string& key, double part) {
        const auto at = geometry.find(key + "=");
        const int size = at == std::string::npos ? 0 : std::stoi(geometry.substr(at + key.size() + 1));
        return std::to_string(static_cast<int>(size * part));
    };
    Run({"xdotool", "mousemove", "--window", window, share("WIDTH", across), share("HEIGHT", down), "click", "--repeat",
         std::to_string(times), "--delay", "20", "1"});
}

pid_t Screen::ProcessOf(const std::string& window) const {
    const auto pid = Run({"xdotool", "getwindowpid", window}).output;
    return pid.empty() ? -1 : std::stoi(pid);
}

std::string Screen::Property(const std::string& window, const std::string& name) const {
    return Run({"xprop", "-id", window, name}).output;
}

}  // namespace tests
