// The command-line front end: the operations of the library for terminals, scripts and servers.

#include <clocale>
#include <csignal>
#include <cstdio>
#include <exception>

#include "platform/Leftovers.h"
#include "platform/System.h"
#include "platform/Text.h"
#include "src/Norvik.h"
#include "src/ui/WindowInterface.h"
#include "tools/norvik/Command.h"
#include "tools/norvik/Help.h"
#include "tools/norvik/Windows.h"
#include "units/Helpers.h"

namespace {

int RunChosen(const cli::Action& chosen) {
    auto owned = std::make_unique<ui::TerminalInterface>();
    auto& terminal = *owned;
    const auto app = chosen.inWindows ? CNorvikApp::Start(std::make_unique<ui::WindowInterface>())
                                      : CNorvikApp::Start(std::move(owned));
    int status = cli::kFailed;
    try {
        status = chosen.run(terminal);
    } catch (const cli::WrongUse& error) {
        status = cli::Fail(error.what(), cli::kWrongUse);
    } catch (const std::exception& error) {
        const auto what = units::WideFromWhat(error.what());
        LogError(what);
        status = cli::Fail(platform::ToUtf8(what));
    }
    CNorvikApp::Stop();
    return status;
}

}  // namespace

int main(int argc, char** argv) {
    // Characters and the system's own error texts. The other categories are not used, and their files cost time to
    // load.
    std::setlocale(LC_CTYPE, "");
    std::setlocale(LC_MESSAGES, "");
    // A file that grows beyond the limit of the session is a failed write that can be told, like a full disk.
    std::signal(SIGXFSZ, SIG_IGN);
    platform::LeaveCleaningToTheHost();
    platform::RemoveLeftoversOnEndSignals();
    CLI::App norvik("Електронни подписи и защита на документи");
    cli::Action chosen;
    cli::BuildCommandLine(norvik, chosen);
    try {
        norvik.parse(argc, argv);
        if (chosen.inWindows) cli::NeedWindows();
    } catch (const cli::WindowsNeeded&) {
        return cli::RunWithWindows(argv);
    } catch (const CLI::Success& request) {
        return cli::PrintRequested(norvik, request);
    } catch (const CLI::ParseError& error) {
        return cli::Fail(cli::ExplainWrongUse(norvik, error) + "\nВижте: norvik --help", cli::kWrongUse);
    }
    const int status = RunChosen(chosen);
    // What standard output could not take is a failure too: a full disk must not look like a verdict.
    if (std::fflush(stdout) != 0 || std::ferror(stdout) != 0)
        return cli::Fail("Стандартният изход не може да се запише.", cli::kFailed);
    return status;
}
