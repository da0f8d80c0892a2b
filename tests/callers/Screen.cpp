#include "tests/callers/Screen.h"

#include <array>
#include <csignal>
#include <filesystem>
#include <stdexcept>
#include <thread>
#include <utility>

#include "tests/support/Profile.h"

namespace tests {
namespace {

constexpr std::chrono::seconds kPatience{20};
constexpr std::chrono::milliseconds kStep{50};

// Asks again and again until the answer is yes. False after some seconds.
template <typename Question>
bool Wait(const Question& question) {
    for (auto waited = kStep; waited < kPatience; waited += kStep) {
        if (question()) return true;
        std::this_thread::sleep_for(kStep);
    }
    return false;
}

}  // namespace

Screen::Companion::Companion(const std::string& command)
    : pipe_(popen(("echo $$; exec " + command + " 2>/dev/null").c_str(), "re")) {
    pipe_.get_deleter().process = std::stoi(Line());
}

std::string Screen::Companion::Line() const {
    std::array<char, 64> line{};
    if (std::fgets(line.data(), line.size(), pipe_.get()) == nullptr) throw std::runtime_error("no screen");
    return std::string(line.data()).substr(0, std::string(line.data()).find('\n'));
}

void Screen::Companion::End::operator()(std::FILE* pipe) const {
    if (process > 0) kill(process, SIGTERM);
    pclose(pipe);
}

Screen::Screen()
    : server_("Xvfb -displayfd 1 -noreset -screen 0 1280x1024x24 -nolisten tcp"),
      display_(":" + server_.Line()),
      manager_("env DISPLAY=" + display_ + " openbox") {
    const auto managed = [&] {
        return Property("root", "_NET_SUPPORTING_WM_CHECK").find("window id") != std::string::npos;
    };
    if (!Wait(managed)) throw std::runtime_error("no window manager");
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
    std::string window;
    const auto focused = [&] {
        const auto found = Run({"xdotool", "getwindowfocus"}).output;
        window = found.substr(0, found.find('\n'));
        return Property(window, "_NET_WM_NAME").ends_with("= \"" + title + "\"\n");
    };
    return Wait(focused) ? window : "";
}

// Flat areas take next to no room in the file; a window with texts takes many times as much.
bool Screen::Photograph(const std::string& name) const {
    constexpr std::size_t kEmptyScreen = 6000;
    const std::filesystem::path folder(NORVIK_BINARY_DIR "/pictures");
    std::filesystem::create_directories(folder);
    const auto file = (folder / (name + ".png")).string();
    std::string before;
    return Wait([&] {
        if (Run({"maim", "--hidecursor", file}).status != 0) return false;
        const auto earlier = std::exchange(before, ReadFile(file));
        return earlier == before && earlier.size() > kEmptyScreen;
    });
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
    if (window == "root") return Run({"xprop", "-root", name}).output;
    return Run({"xprop", "-id", window, name}).output;
}

}  // namespace tests
