#pragma once
// The one way from an operation to a person: messages and questions as plain data. Who answers is chosen once for a
// process: the windows for applications, the terminal for the command, a script in tests.

#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "crypt/CryptCertificate.h"
#include "crypt/CryptStore.h"
#include "platform/Keys.h"
#include "src/settings/TsaList.h"
#include "src/verification/SignatureEntry.h"

namespace ui {

struct Message {
    enum class Icon { none, information, warning, error };
    std::u16string text;
    std::u16string title{};  // empty: the application's name
    Icon icon = Icon::none;
};

struct TextQuestion {
    std::u16string title, prompt;
    std::u16string start{};  // what stands in the field at first
    bool hidden = false;     // a password: not shown as it is typed
};

// With which certificate, in which form and with whose timestamp a file is to be signed.
struct SignQuestion {
    std::vector<tessaly::CryptCertificate> certificates;  // in the order in which they are offered; one may stand twice
    std::vector<settings::TsaRecord> authorities;         // the last one marked as selected is offered first
    bool detached = false;
    bool showDetachedBox = true;  // whether the person may change the form
};
struct SignDecision {
    platform::CertificateContext certificate;
    std::optional<settings::TsaRecord> authority;  // empty: no timestamp
    bool detached = false;
};

// One certificate of a store: those valid now are offered, in the reverse of the store's order. What the person picks
// is checked for revocation before it counts as chosen.
struct CertificateQuestion {
    std::u16string title;
    tessaly::CryptStore certificates;
};

// A file that is there, anywhere.
struct FileQuestion {
    std::u16string title;
};

// The signatures of a file, and what the person wants to do with it next.
struct ResultsQuestion {
    const verification::SignatureEntries& entries;
    std::filesystem::path signFile, dataFile;  // the second: what a detached signature was judged with; else empty
    std::u16string encryptionText{};           // the algorithm of a file that was encrypted; else empty
};
enum class ResultsAction { none, addSignature, encrypt };

// The report on the signatures of a file, as it is printed.
struct ReportOrder {
    enum class Paper { a4, letter };
    const verification::SignatureEntries& entries;
    std::u16string fileName;  // as the report calls the file
    Paper paper = Paper::a4;
};

// A long operation as the person sees it, from the making of the object to its end.
class Progress {
  public:
    virtual ~Progress() = default;
    // Bytes; a total of 0: not known.
    virtual void Update(std::uint64_t done, std::uint64_t total) = 0;
};

// There is no way to ask: no display, or a thread that cannot show windows. The text says why.
class Unavailable : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

// Answers come on the thread that asks. An empty answer means "cancelled". Where a window is needed and cannot be shown
// the questions throw Unavailable; messages then go to the log, and a PIN counts as cancelled.
class UserInterface : public platform::PinPrompt {
  public:
    // Returns when the person has seen it.
    virtual void ShowMessage(const Message& message) = 0;
    // UTF-8, possibly empty.
    virtual std::optional<platform::Secret> AskText(const TextQuestion& question) = 0;
    virtual std::optional<SignDecision> AskSign(SignQuestion question) = 0;
    // Null: cancelled, nothing to choose from, or refused after the check, with a message.
    virtual platform::CertificateContext AskCertificate(CertificateQuestion question) = 0;
    virtual std::optional<std::filesystem::path> AskOpenFile(const FileQuestion& question) = 0;
    virtual ResultsAction ShowResults(const ResultsQuestion& question) = 0;
    // A PDF document of one page, with header and footer of the settings. Nobody is asked, and no display is needed.
    // Throws Unavailable where nothing can draw, std::runtime_error if it cannot be made.
    virtual platform::Bytes DrawReport(const ReportOrder& order) = 0;
    virtual void ShowAbout() = 0;
    // Null if there is nothing to look at.
    virtual std::unique_ptr<Progress> ShowProgress(const std::u16string& file) = 0;
};

// For a process without display and without an interface of its choice: a message goes to the log, a question that only
// a window can answer is unavailable, any other one cancelled.
class SilentInterface : public UserInterface {
  public:
    void ShowMessage(const Message& message) override;
    std::optional<platform::Secret> AskText(const TextQuestion& question) override;
    std::optional<platform::Secret> AskPin(const platform::PinRequest& request) override;
    std::optional<SignDecision> AskSign(SignQuestion question) override;
    platform::CertificateContext AskCertificate(CertificateQuestion question) override;
    std::optional<std::filesystem::path> AskOpenFile(const FileQuestion& question) override;
    ResultsAction ShowResults(const ResultsQuestion& question) override;
    platform::Bytes DrawReport(const ReportOrder& order) override;
    void ShowAbout() override;
    std::unique_ptr<Progress> ShowProgress(const std::u16string& file) override;
};

}  // namespace ui
