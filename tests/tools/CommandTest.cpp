#include "tests/tools/CommandTest.h"

#include <poll.h>
#include <pty.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <stdexcept>

#include "tests/support/SoftToken.h"

namespace tests {

namespace fs = std::filesystem;

Terminal::Terminal(const std::vector<std::string>& command) {
    std::vector<char*> arguments;
    for (const auto& argument : command)
        arguments.push_back(const_cast<char*>(argument.c_str()));
    arguments.push_back(nullptr);
    Fork();
    if (child_ > 0) return;
    execvp(arguments[0], arguments.data());
    _exit(127);
}

Terminal::Terminal(const std::function<int()>& program) {
    Fork();
    if (child_ > 0) return;
    const int status = program();
    std::fflush(nullptr);
    _exit(status);
}

void Terminal::Fork() {
    std::fflush(nullptr);  // or the child would write again what waits to be written
    child_ = forkpty(&terminal_, nullptr, nullptr, nullptr);
    if (child_ < 0) throw std::runtime_error("no terminal");
}

Terminal::~Terminal() {
    if (child_ > 0) {
        kill(child_, SIGKILL);
        waitpid(child_, nullptr, 0);
    }
    close(terminal_);
}

bool Terminal::ReadMore(int milliseconds) {
    pollfd wait{terminal_, POLLIN, 0};
    if (poll(&wait, 1, milliseconds) <= 0) return false;
    std::array<char, 4096> buffer{};
    const ssize_t got = read(terminal_, buffer.data(), buffer.size());
    if (got <= 0) return false;
    seen_.append(buffer.data(), static_cast<std::size_t>(got));
    return true;
}

bool Terminal::Expect(const std::string& text) {
    constexpr int patience = 20'000;
    for (;;) {
        const auto at = seen_.find(text, expected_);
        if (at != std::string::npos) {
            expected_ = at + text.size();
            return true;
        }
        if (!ReadMore(patience)) return false;
    }
}

void Terminal::Type(const std::string& keys) {
    if (write(terminal_, keys.data(), keys.size()) != static_cast<ssize_t>(keys.size()))
        throw std::runtime_error("cannot type");
}

bool Terminal::ShowsKeys() const {
    termios state{};
    if (tcgetattr(terminal_, &state) != 0) throw std::runtime_error("no state of the terminal");
    return (state.c_lflag & ECHO) != 0;
}

int Terminal::Wait() {
    while (ReadMore(20'000)) {
    }
    int status = 0;
    if (waitpid(child_, &status, WNOHANG) == 0) {
        usleep(500'000);  // the terminal closes a little before the program ends
        if (waitpid(child_, &status, WNOHANG) == 0) throw std::runtime_error("still running: " + seen_);
    }
    child_ = -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
}

CommandTest::CommandTest() {
    UseNoPkcs11Modules(profile_);
    fs::create_directory(Documents());
    // A preloaded library comes before the sanitizer's, which would complain.
    const char* options = std::getenv("ASAN_OPTIONS");
    profile_.Set("ASAN_OPTIONS", std::string(options == nullptr ? "" : options) + ":verify_asan_link_order=0");
}

std::vector<std::string> CommandTest::Line(const std::vector<std::string>& arguments) const {
    const fs::path built = NORVIK_BINARY_DIR;
    std::vector<std::string> line{"env", "LD_PRELOAD=" + (built / "lib/norvik-test-tokens.so").string(),
                                  "NORVIK_TEST_PKCS11=" + (profile_.Folder() / "pkcs11").string(),
                                  (built / "bin/norvik").string()};
    line.insert(line.end(), arguments.begin(), arguments.end());
    return line;
}

ProcessResult CommandTest::RunBelow(std::vector<std::string> program, const std::vector<std::string>& arguments,
                                    const ProcessOptions& options) const {
    // In a session of its own, so that the terminal of whoever runs the tests is never asked.
    program.insert(program.begin(), {"setsid", "--wait"});
    const auto line = Line(arguments);
    program.insert(program.end(), line.begin(), line.end());
    auto complete = options;
    if (complete.folder.empty()) complete.folder = Documents();
    return RunProgram(program, complete);
}

ProcessResult CommandTest::Run(const std::vector<std::string>& arguments, const std::string& input) const {
    ProcessOptions options;
    options.input = input;
    return RunBelow({}, arguments, options);
}

void CommandTest::Walk(const std::vector<Step>& steps, const std::vector<std::string>& first) const {
    for (const auto& [arguments, status, told, input] : steps) {
        auto line = first;
        line.insert(line.end(), arguments.begin(), arguments.end());
        const auto result = Run(line, input);
        EXPECT_EQ(result.status, status) << testing::PrintToString(line) << result.Summary();
        EXPECT_THAT(result.output + result.errors, testing::HasSubstr(told)) << testing::PrintToString(line);
    }
}

std::vector<std::string> CommandTest::FilesIn(const fs::path& folder) const {
    std::vector<std::string> names;
    if (!fs::exists(folder)) return names;
    for (const auto& entry : fs::directory_iterator(folder))
        names.push_back(entry.path().filename());
    std::sort(names.begin(), names.end());
    return names;
}

std::string CommandTest::Log() const {
    const auto log = profile_.Folder() / "tmp/Norvik/Norvik.log";
    return fs::exists(log) ? ReadFile(log) : "";
}

std::string CommandTest::AcceptedContent(const fs::path& message, const fs::path& detachedData) const {
    const auto root = profile_.Write("root.pem", pki_.root.Pem());
    std::vector<std::string> verify = {"openssl", "cms",   "-verify", "-binary", "-inform",  "DER",
                                       "-in",     message, "-CAfile", root,      "-purpose", "any"};
    if (!detachedData.empty()) verify.insert(verify.end(), {"-content", detachedData});
    const auto verdict = RunProgram(verify, {.folder = Documents()});
    return verdict.status == 0 ? verdict.output : "refused: " + verdict.errors;
}

}  // namespace tests
