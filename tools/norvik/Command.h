#pragma once
// What the subcommands of `norvik` share: each file adds one subcommand to the parser and says what it does when
// chosen.

#include <CLI/CLI.hpp>
#include <concepts>
#include <filesystem>
#include <functional>
#include <initializer_list>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>

#include "platform/Certificates.h"
#include "platform/Secret.h"
#include "src/ui/TerminalInterface.h"

namespace cli {

constexpr int kDone = 0;
constexpr int kFailed = 1;
constexpr int kWrongUse = 2;

// Runs the chosen subcommand; answers the exit status. What the operations below have to ask and to say goes to the
// terminal, or to windows where the person wants those.
struct Action {
    Action() = default;
    template <std::invocable<ui::TerminalInterface&> Run>
    Action(Run what, bool windows = false) : run(std::move(what)), inWindows(windows) {}

    std::function<int(ui::TerminalInterface&)> run;
    bool inWindows = false;
};

void AddSign(CLI::App& norvik, Action& chosen);
void AddVerify(CLI::App& norvik, Action& chosen);
void AddExtract(CLI::App& norvik, Action& chosen);
void AddDetach(CLI::App& norvik, Action& chosen);
void AddReport(CLI::App& norvik, Action& chosen);
void AddStore(CLI::App& norvik, Action& chosen);
void AddStoreKeys(CLI::App& norvik, Action& chosen);  // after AddStore, whose subcommand it joins
void AddCertificates(CLI::App& norvik, Action& chosen);
void AddSelect(CLI::App& norvik, Action& chosen);
void AddSettings(CLI::App& norvik, Action& chosen);
void AddTsa(CLI::App& norvik, Action& chosen);

// Throws WrongUse if the result would stand in the place of one of these files, under whatever name.
void RefuseToReplace(const std::filesystem::path& result, std::initializer_list<std::filesystem::path> inputs);

// Something that the person who calls has to put right: told on standard error, exit status 2.
class WrongUse : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

void PrintLine(std::string_view utf8);                  // standard output
int Fail(std::string_view utf8, int status = kFailed);  // standard error; answers the status

// One line of standard input without its line end. Throws WrongUse if there is none.
platform::Secret ReadSecretLine();
// A line asked for on the terminal, shown as it is typed; empty optional without one.
bool CanAsk();  // standard input and standard error are terminals
std::optional<std::string> AskLine(std::string_view prompt);

// --- Words.cpp ---
// Why a call of the platform failed: a sentence, or the code's number where there is none; empty for ERROR_SUCCESS.
std::string Explain(platform::ErrorCode code);
// UTCTime or GeneralizedTime as "2026-03-01 12:00:00 UTC"; another text on one line (platform::OneLineUtf8).
std::string ShownTime(std::string_view asn1);
// Text padded to a number of characters, for columns (UTF-8, one column a character).
std::string Padded(std::string_view utf8, std::size_t columns);

// Tells on standard error if the settings are there but cannot be read, since the defaults count then.
void WarnOfUnreadableSettings();
// Tells that the stored list of authorities is not whole; what of it can be read counts all the same.
void WarnOfDamagedAuthorities();
// Where the technical details of a failure are: a line that ends a message.
std::string WhereDetailsAre();

// How a certificate is shown; its names fit for a line.
struct CertificateLine {
    std::string thumbprint, subject, issuer, validFrom, validTo;
};
CertificateLine Describe(const platform::CertificateContext& certificate);
// Forty hexadecimal digits in any letter case, blanks and colons allowed. Throws WrongUse for others.
platform::Bytes Sha1FromThumbprint(const std::string& text);

}  // namespace cli
