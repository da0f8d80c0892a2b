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

Terminal::Terminal(const std::string& line)
    : Terminal([&] { return execl("/bin/sh", "sh", "-c", line.c_str(), nullptr); }) {}

Terminal::Terminal(const std::function<int()>& program) {
    std::fflush(nullptr);  // or the child would write again what waits to be written
    child_ = forkpty(&terminal_, nullptr, nullptr, nullptr);
    if (child_ < 0) throw std::runtime_error("no terminal");
    if (child_ > 0) return;
    const int status = program();
    std::fflush(nullptr);
    _exit(status);
}

Terminal::~Terminal() {
    if (child_ > 0) {
        kill(child_, SIGKILL);
        waitpid(child_, nullptr, 0);
    }
    close(terminal_);
}

bool Terminal::ReadMore() {
    pollfd wait{terminal_, POLLIN, 0};
    if (poll(&wait, 1, 20'000) <= 0) return false;
    std::array<char, 4096> buffer{};
    const ssize_t got = read(terminal_, buffer.data(), buffer.size());
    if (got <= 0) return false;
    seen_.append(buffer.data(), static_cast<std::size_t>(got));
    return true;
}

bool Terminal::Expect(const std::string& text) {
    auto at = seen_.find(text, expected_);
    for (; at == std::string::npos; at = seen_.find(text, expected_)) {
        if (ReadMore()) continue;
        ADD_FAILURE() << "not seen: " << text << " in " << seen_.substr(expected_);
        return false;
    }
    expected_ = at + text.size();
    return true;
}

void Terminal::Type(const std::string& keys) const {
    if (write(terminal_, keys.data(), keys.size()) != static_cast<ssize_t>(keys.size()))
        throw std::runtime_error("cannot type");
}

void Terminal::Answer(const std::vector<std::pair<std::string, std::string>>& answers) {
    for (const auto& [question, keys] : answers) {
        if (!Expect(question)) return;
        Type(keys);
    }
}

bool Terminal::ShowsKeys() const {
    termios state{};
    if (tcgetattr(terminal_, &state) != 0) throw std::runtime_error("no state of the terminal");
    return (state.c_lflag & ECHO) != 0;
}

int Terminal::Wait() {
    while (ReadMore()) {
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
    const std::string built = NORVIK_BINARY_DIR;
    const auto command = profile_.Write(
        "bin/norvik", "#!/bin/sh\nexec env LD_PRELOAD=" + built + "/lib/norvik-test-tokens.so NORVIK_TEST_PKCS11=" +
                          (profile_.Folder() / "pkcs11").string() + " " + built + "/bin/norvik \"$@\"\n");
    fs::permissions(command, fs::perms::owner_all);
    profile_.Set("PATH", command.parent_path().string() + ":" + std::getenv("PATH"));
    // A preloaded library comes before the sanitizer's, which would complain.
    const char* options = std::getenv("ASAN_OPTIONS");
    profile_.Set("ASAN_OPTIONS", std::string(options == nullptr ? "" : options) + ":verify_asan_link_order=0");
    fs::create_directory(profile_.Folder() / "documents");
    fs::current_path(profile_.Folder() / "documents");
}

ProcessResult CommandTest::Shell(const std::string& line, const std::string& input) {
    // In a session of its own, so that the terminal of whoever runs the tests is never asked.
    return RunProgram({"setsid", "--wait", "sh", "-c", line}, {.input = input});
}

void CommandTest::Walk(const std::vector<Step>& steps, const std::string& first) {
    for (const auto& [line, status, told, input] : steps) {
        SCOPED_TRACE(first + line);
        const auto result = Shell(first + line, input);
        EXPECT_EQ(result.status, status) << result.Summary();
        for (const auto& text : told) {
            if (text.starts_with('=')) {
                EXPECT_EQ(result.output, text.substr(1));
            } else if (text.starts_with('!')) {
                EXPECT_THAT(result.output + result.errors, Not(HasSubstr(text.substr(1))));
            } else {
                EXPECT_THAT(result.output + result.errors, HasSubstr(text));
            }
        }
    }
}

std::vector<std::string> CommandTest::FilesIn(const fs::path& folder) {
    std::vector<std::string> names;
    if (!fs::exists(folder)) return names;
    for (const auto& entry : fs::directory_iterator(folder))
        names.push_back(entry.path().filename());
    std::ranges::sort(names);
    return names;
}

std::string CommandTest::AcceptedContent(const std::string& message, const std::string& detachedData) const {
    const auto root = profile_.Write("root.pem", pki_.root.Pem());
    std::vector<std::string> verify = {"openssl", "cms",   "-verify", "-binary", "-inform",  "DER",
                                       "-in",     message, "-CAfile", root,      "-purpose", "any"};
    if (!detachedData.empty()) verify.insert(verify.end(), {"-content", detachedData});
    const auto verdict = RunProgram(verify);
    return verdict.status == 0 ? verdict.output : "refused: " + verdict.errors;
}

void CommandTest::SignADocument() const {
    pki_.Install(profile_);
    pki_.InstallCrls(profile_);
    Document("a.txt", "the content that counts");
    Walk({{"sign a.txt", 0}, {"sign --detached a.txt", 0}});
}

void CommandTest::Change(const std::string& from, const std::string& to) const {
    auto bytes = ReadFile(from);
    bytes.at(bytes.find("the content")) ^= 1;
    Document(to, bytes);
}

}  // namespace tests
