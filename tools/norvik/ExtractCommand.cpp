#include <filesystem>

#include "platform/Http.h"
#include "src/verification/WriteContent.h"
#include "tools/norvik/Command.h"
#include "tools/norvik/SignedFiles.h"

namespace cli {
namespace {

namespace fs = std::filesystem;

struct ExtractOptions {
    std::string file;
    std::optional<std::string> output;
    bool offline = false;
};

// A name that the command chose itself must not replace anything; one that the person chose may.
fs::path TargetOf(const ExtractOptions& options) {
    if (options.output) {
        RefuseToReplace(*options.output, {options.file});
        return *options.output;
    }
    auto target = verification::WithoutExtension(options.file);
    if (target == options.file) throw WrongUse("Файлът е без разширение: посочете името на резултата с --output ФАЙЛ.");
    std::error_code error;
    if (fs::exists(fs::symlink_status(target, error)))
        throw WrongUse(target.string() + " вече съществува: посочете друго име с --output ФАЙЛ.");
    return target;
}

int Run(const ExtractOptions& options) {
    if (options.offline) platform::AllowNetwork(false);
    const auto target = TargetOf(options);
    const auto file = JudgeAttached(options.file);
    if (!SignedByAll(file)) return Fail(VerdictBlock(file) + "Данните не са извадени.");
    try {
        verification::WriteContent(file.message, target, file.entries.front().digest, true);
    } catch (const verification::MessageFault& fault) {
        return Fail(target.string() + ": не е записан. " + Explain(fault.Code()));
    }
    PrintLine(target.string());
    return file.verdict == Verdict::good ? kDone : Fail(VerdictBlock(file), StatusOf(file.verdict));
}

struct DetachOptions {
    std::string source, target;
};

int Run(const DetachOptions& options) {
    if (verification::ExtensionOf(options.source) != u".p7m")
        throw WrongUse(options.source + ": не е подписан файл с разширение .p7m.");
    RefuseToReplace(options.target, {options.source});
    try {
        const bool done = verification::WriteDetached(OpenMessage(options.source), options.target,
                                                      verification::DetachedParts::everything);
        return done ? kDone : kFailed;
    } catch (const verification::MessageFault& fault) {
        return Fail(options.source + ": " + FaultText(fault) + ".");
    }
}

}  // namespace

void AddExtract(CLI::App& norvik, Action& chosen) {
    auto* command = norvik.add_subcommand("extract", "Изважда данните от подписан файл, ако подписите им са верни");
    const auto options = std::make_shared<ExtractOptions>();
    command->add_option("ФАЙЛ", options->file, "Подписаният файл (.p7m)")->required()->option_text(" ");
    command->add_option("--output", options->output, "Къде да се запишат (по подразбиране: името без разширението)")
        ->option_text("ФАЙЛ");
    command->add_flag("--offline", options->offline, "Не търси в мрежата при проверката");
    command->footer(
        "Данни, които не са тези, които са подписани, не се изваждат. Ако подписът е верен, но сертификатът не е\n"
        "или не можа да се провери, данните се записват, причината се показва и изходът е 1 или 3, както при verify.");
    command->callback([options, &chosen] { chosen = [options](ui::TerminalInterface&) { return Run(*options); }; });
}

void AddDetach(CLI::App& norvik, Action& chosen) {
    auto* command = norvik.add_subcommand("detach", "Прави от подписан файл отделен подпис, без да подписва отново");
    const auto options = std::make_shared<DetachOptions>();
    command->add_option("ФАЙЛ", options->source, "Подписаният файл (.p7m)")->required()->option_text(" ");
    command->add_option("РЕЗУЛТАТ", options->target, "Отделният подпис (.p7s)")->required()->option_text(" ");
    command->footer("Подписите и сертификатите остават каквито са; данните не се записват в резултата.");
    command->callback([options, &chosen] { chosen = [options](ui::TerminalInterface&) { return Run(*options); }; });
}

}  // namespace cli
