#include <filesystem>

#include "platform/Files.h"
#include "platform/Http.h"
#include "platform/Text.h"
#include "tools/norvik/Command.h"
#include "tools/norvik/SignedFiles.h"
#include "tools/norvik/Windows.h"

namespace cli {
namespace {

struct ReportOptions {
    std::string file, pdf;
    std::optional<std::string> data;
    bool letter = false, offline = false;
};

int Run(const ReportOptions& options, ui::TerminalInterface& terminal) {
    using Paper = ui::ReportOrder::Paper;
    if (options.offline) platform::AllowNetwork(false);
    const auto beside = verification::WithoutExtension(options.file);
    RefuseToReplace(options.pdf, {options.file, options.data.value_or(beside.string())});
    const auto file = Judge(options.file, options.data);
    if (!file.fault.empty()) return Fail(options.file + ": " + file.fault);
    const auto name = platform::ToWide(std::filesystem::path(options.file).filename().string());
    const auto document = terminal.DrawReport({file.entries, name, options.letter ? Paper::letter : Paper::a4});
    if (!platform::WriteWholeFile(options.pdf, document))
        return Fail(options.pdf + ": не е записан. " + Explain(platform::GetLastError()));
    return kDone;
}

}  // namespace

void AddReport(CLI::App& norvik, Action& chosen) {
    auto* command = norvik.add_subcommand("report", "Записва справка за подписите на файл като PDF на една страница");
    const auto options = std::make_shared<ReportOptions>();
    command->add_option("ФАЙЛ", options->file, "Подписан файл (.p7m) или отделен подпис (.p7s)")
        ->required()
        ->option_text(" ");
    command->add_option("--pdf", options->pdf, "Къде да се запише справката")->required()->option_text("ФАЙЛ");
    command->add_option("--data", options->data, "Данните на отделен подпис (по подразбиране: името без .p7s)")
        ->option_text("ФАЙЛ");
    command->add_flag("--letter", options->letter, "На лист Letter вместо A4");
    command->add_flag("--offline", options->offline,
                      "Не търси в мрежата: важат CRL от хранилищата и каквото носи файлът");
    command->footer(
        "Състоянието в справката е „Валиден“, когато подписът е верен, какъвто и да е сертификатът; иначе е\n"
        "това на сертификата. Пълната преценка дава norvik verify. Не е нужен екран. Горният и долният\n"
        "колонтитул се вземат от настройките Print Header и Footer (norvik settings).");
    command->callback([options, &chosen] {
        NeedWindows();
        chosen = [options](ui::TerminalInterface& terminal) { return Run(*options, terminal); };
    });
}

}  // namespace cli
