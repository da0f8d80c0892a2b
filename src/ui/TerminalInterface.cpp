#include "src/ui/TerminalInterface.h"

#include <fcntl.h>
#include <termios.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <charconv>
#include <csignal>
#include <cstdio>
#include <filesystem>

#include "platform/Leftovers.h"
#include "platform/Text.h"
#include "src/certificates/Choice.h"
#include "src/results/SignerBlock.h"
#include "src/ui/PinText.h"
#include "src/ui/WindowInterface.h"
#include "units/Helpers.h"

namespace ui {
namespace {

using platform::Secret;

constexpr int kCtrlC = 0x03, kCtrlD = 0x04, kBackspace = 0x08, kDelete = 0x7f, kCtrlU = 0x15;

// What a signal that ends the process has to put back; the terminal would stay without echo.
struct SilencedTerminal {
    int descriptor = -1;
    termios before{};
};
SilencedTerminal silenced;

void RestoreAndDie(int signal) {
    tcsetattr(silenced.descriptor, TCSANOW, &silenced.before);
    platform::RemoveLeftovers();
    std::signal(signal, SIG_DFL);
    raise(signal);
}

// The terminal of this process until the object ends: silent and delivering every key as it is pressed, or, if what is
// typed may be seen, a line at a time with the terminal's own editing.
class Terminal {
  public:
    explicit Terminal(bool hidden) : descriptor_(open("/dev/tty", O_RDWR | O_NOCTTY | O_CLOEXEC)) {
        if (descriptor_ < 0 || tcgetattr(descriptor_, &silenced.before) != 0) return;
        silenced.descriptor = descriptor_;
        for (std::size_t i = 0; i < kEnding.size(); ++i)
            before_[i] = std::signal(kEnding[i], RestoreAndDie);
        termios meanwhile = silenced.before;
        // Ctrl-C and its like are read as keys.
        meanwhile.c_lflag &= ~static_cast<tcflag_t>(hidden ? ECHO | ICANON | ISIG : ISIG);
        if (!hidden) meanwhile.c_cc[VEOL] = kCtrlC;  // ends the line at once, as Enter does
        ready_ = tcsetattr(descriptor_, TCSAFLUSH, &meanwhile) == 0;
    }
    ~Terminal() {
        if (ready_) tcsetattr(descriptor_, TCSAFLUSH, &silenced.before);
        for (std::size_t i = 0; silenced.descriptor >= 0 && i < kEnding.size(); ++i)
            std::signal(kEnding[i], before_[i]);
        silenced.descriptor = -1;
        if (descriptor_ >= 0) close(descriptor_);
    }
    Terminal(const Terminal&) = delete;
    Terminal& operator=(const Terminal&) = delete;

    [[nodiscard]] bool Ready() const { return ready_; }
    void Show(std::string_view text) const {
        while (!text.empty()) {
            const ssize_t written = write(descriptor_, text.data(), text.size());
            if (written <= 0) return;
            text.remove_prefix(static_cast<std::size_t>(written));
        }
    }
    [[nodiscard]] int Key() const {
        unsigned char key = 0;
        ssize_t got = 0;
        do {
            got = read(descriptor_, &key, 1);
        } while (got < 0 && errno == EINTR);
        return got == 1 ? key : -1;
    }

  private:
    static constexpr std::array kEnding{SIGINT, SIGTERM, SIGHUP};
    int descriptor_;
    std::array<void (*)(int), 3> before_{};
    bool ready_ = false;
};

constexpr unsigned kVersionText = 272;

void RemoveLastCharacter(platform::Bytes& line) {
    while (!line.empty()) {
        const bool continuation = (line.back() & 0xC0) == 0x80;
        line.pop_back();
        if (!continuation) return;
    }
}

std::optional<Secret> ReadLine(std::string_view prompt, bool hidden) {
    const Terminal terminal(hidden);
    if (!terminal.Ready()) return std::nullopt;
    terminal.Show(prompt);
    platform::Bytes line;
    line.reserve(1024);  // long enough never to move, so that no copy stays behind
    for (;;) {
        const int key = terminal.Key();
        if (key < 0 || key == kCtrlC || (key == kCtrlD && line.empty())) break;
        if (key == '\n' || key == '\r') {
            if (hidden) terminal.Show("\n");
            return Secret(std::move(line));
        }
        if (key == kBackspace || key == kDelete) {
            RemoveLastCharacter(line);
        } else if (key == kCtrlU) {
            line.clear();
        } else if (line.size() < line.capacity()) {
            line.push_back(static_cast<std::uint8_t>(key));
        }
    }
    platform::Wipe(line.data(), line.capacity());
    terminal.Show("\n");
    return std::nullopt;
}

void RequireTerminal() {
    if (!Terminal(false).Ready()) throw Unavailable("Няма терминал, на който да се избере.");
}

// Asks until the answer is a number within the bounds; Enter alone takes the one that stands for it, or gives up where
// there is none. Empty: gave up.
std::optional<std::size_t> AskNumber(const std::string& prompt, std::size_t least, std::size_t most,
                                     std::optional<std::size_t> byEnter = std::nullopt) {
    for (;;) {
        const auto line = ReadLine(prompt, false);
        if (!line) return std::nullopt;
        const std::string answer(line->Text());
        if (answer.empty()) return byEnter;
        std::size_t number = 0;
        const auto [end, error] = std::from_chars(answer.data(), answer.data() + answer.size(), number);
        if (error == std::errc() && end == answer.data() + answer.size() && number >= least && number <= most)
            return number;
    }
}

// 0: none.
std::optional<std::size_t> AskAuthority(const std::vector<settings::TsaRecord>& authorities) {
    std::string text = "Удостоверяване на времето:\n  0. без\n";
    std::size_t marked = 0;
    for (std::size_t i = 0; i < authorities.size(); ++i) {
        text += "  " + std::to_string(i + 1) + ". " + platform::OneLineUtf8(authorities[i].title) + "\n";
        if (authorities[i].selected) marked = i + 1;
    }
    return AskNumber(text + "Номер (Enter: " + std::to_string(marked) + "): ", 0, authorities.size(), marked);
}

// One line on a terminal, gone with the object.
class ProgressLine : public Progress {
  public:
    explicit ProgressLine(std::string name) : name_(std::move(name)) {}
    ~ProgressLine() override {
        if (shown_ >= 0) std::fputs("\r\033[K", stderr);
    }
    ProgressLine(const ProgressLine&) = delete;
    ProgressLine& operator=(const ProgressLine&) = delete;
    void Update(std::uint64_t done, std::uint64_t total) override {
        const int percent =
            total == 0 ? 0 : static_cast<int>(static_cast<double>(done) / static_cast<double>(total) * 100);
        if (percent == shown_) return;
        shown_ = percent;
        std::fprintf(stderr, "\r\033[K%s: %d %%", name_.c_str(), percent);
        std::fflush(stderr);
    }

  private:
    std::string name_;
    int shown_ = -1;
};

}  // namespace

std::optional<Secret> ReadHidden(std::string_view prompt) {
    return ReadLine(prompt, true);
}

std::optional<Secret> TerminalInterface::AskText(const TextQuestion& question) {
    const auto title = question.title.empty() ? std::string() : platform::OneLineUtf8(question.title) + "\n";
    return ReadLine(title + platform::OneLineUtf8(question.prompt) + ": ", question.hidden);
}

void TerminalInterface::ShowMessage(const Message& message) {
    const auto text = platform::ToUtf8(message.title.empty() ? message.text : message.title + u": " + message.text);
    std::fprintf(stderr, "%s\n", text.c_str());
}

std::optional<Secret> TerminalInterface::AskPin(const platform::PinRequest& request) {
    const bool reusable = request.kind != platform::PinRequest::Kind::signature;
    if (scriptedPin_) {
        if (request.lastTry) {
            std::fputs("Остава последен опит за ПИН: въведете го на терминал, без --pin-stdin.\n", stderr);
            return std::nullopt;
        }
        return scriptedPin_->Copy();
    }
    const auto known = remembered_.find(request.subject);
    if (reusable && known != remembered_.end()) return known->second.Copy();
    auto pin = ReadHidden(PinQuestion(request) + ": ");
    if (!pin) return std::nullopt;
    if (reusable) remembered_[request.subject] = pin->Copy();
    return pin;
}

std::string NumberedList(const std::vector<tessaly::CryptCertificate>& certificates) {
    std::string text;
    std::size_t number = 0;
    for (auto certificate : certificates) {
        text += "  " + std::to_string(++number) + ". " + platform::OneLineUtf8(certificate.GetSubjectName()) +
                " (издател: " + platform::OneLineUtf8(certificate.GetIssuerName()) + ", до " +
                platform::ToUtf8(certificate.GetValidTo()) + ")\n     " +
                platform::ToUtf8(certificate.GetThumbprint()) + "\n";
    }
    return text;
}

std::optional<SignDecision> TerminalInterface::AskSign(SignQuestion question) {
    RequireTerminal();
    if (question.certificates.empty()) {
        ShowMessage({.text = u"Няма сертификат, от който да се избере."});
        return std::nullopt;
    }
    const auto number = AskNumber("Изберете сертификат:\n" + NumberedList(question.certificates) + "Номер: ", 1,
                                  question.certificates.size());
    if (!number) return std::nullopt;
    SignDecision decision{question.certificates[*number - 1].Context(), std::nullopt, question.detached};
    if (!certificates::AcceptsChoice(decision.certificate)) return std::nullopt;
    if (!question.authorities.empty()) {
        const auto authority = AskAuthority(question.authorities);
        if (!authority) return std::nullopt;
        if (*authority > 0) decision.authority = question.authorities[*authority - 1];
    }
    if (question.showDetachedBox) {
        const auto form =
            AskNumber("Подпис: 0 - с данните (.p7m), 1 - отделен (.p7s). Enter: " + std::to_string(question.detached) +
                          ". Номер: ",
                      0, 1, question.detached ? 1 : 0);
        if (!form) return std::nullopt;
        decision.detached = *form == 1;
    }
    return decision;
}

platform::CertificateContext TerminalInterface::AskCertificate(CertificateQuestion question) {
    RequireTerminal();
    const auto offered = certificates::OfferedCertificates(question.certificates);
    if (offered.empty()) {
        ShowMessage({.text = u"Няма валиден сертификат, от който да се избере."});
        return {};
    }
    const auto number =
        AskNumber(platform::OneLineUtf8(question.title) + "\n" + NumberedList(offered) + "Номер: ", 1, offered.size());
    if (!number) return {};
    const auto& chosen = offered[*number - 1].Context();
    return certificates::AcceptsChoice(chosen) ? chosen : platform::CertificateContext();
}

std::optional<std::filesystem::path> TerminalInterface::AskOpenFile(const FileQuestion& question) {
    RequireTerminal();
    const auto line = ReadLine(platform::OneLineUtf8(question.title) + ": ", false);
    if (!line || line->Text().empty()) return std::nullopt;
    return std::filesystem::path(line->Text());
}

// To be read or piped on, so it goes where a command's answer goes.
ResultsAction TerminalInterface::ShowResults(const ResultsQuestion& question) {
    auto text = platform::OneLineUtf8(platform::ToWide(question.signFile.string())) + ":\n";
    if (!question.encryptionText.empty())
        text += "  " + platform::OneLineUtf8(units::LoadStringW(331) + question.encryptionText) + "\n";
    if (question.entries.empty()) text += "  " + platform::OneLineUtf8(units::LoadStringW(339)) + "\n";
    std::size_t number = 0;
    for (const auto& entry : question.entries)
        text += results::SignerBlock(entry, ++number);
    std::fputs(text.c_str(), stdout);
    return ResultsAction::none;
}

// A terminal cannot draw; the library of the windows can without showing any.
platform::Bytes TerminalInterface::DrawReport(const ReportOrder& order) {
    return WindowInterface().DrawReport(order);
}

void TerminalInterface::ShowAbout() {
    ShowMessage({.text = units::LoadStringW(kVersionText), .title = u"Относно Norvik"});
}

std::unique_ptr<Progress> TerminalInterface::ShowProgress(const std::u16string& file) {
    if (isatty(STDERR_FILENO) == 0) return nullptr;
    return std::make_unique<ProgressLine>(platform::OneLineUtf8(std::filesystem::path(file).filename().u16string()));
}

}  // namespace ui
