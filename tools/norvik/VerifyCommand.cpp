#include <cstdio>

#include "platform/Http.h"
#include "platform/Text.h"
#include "src/ui/WindowInterface.h"
#include "src/verification/ShowSignatures.h"
#include "src/verification/SignInfoReport.h"
#include "toolkit/CkJsonArrayW.h"
#include "toolkit/CkJsonObjectW.h"
#include "tools/norvik/Command.h"
#include "tools/norvik/SignedFiles.h"

namespace cli {
namespace {

struct VerifyOptions {
    std::vector<std::string> files;
    std::optional<std::string> data;
    bool json = false, offline = false, dialog = false;
};

// What is left of a judged file for the table.
struct Row {
    std::string name;
    std::size_t signatures = 0;
    Verdict verdict = Verdict::bad;
};

const char* StatusName(const JudgedFile& file) {
    if (!file.fault.empty()) return "error";
    switch (file.verdict) {
        case Verdict::good:
            return "valid";
        case Verdict::unchecked:
            return "unverified";
        case Verdict::bad:
            break;
    }
    return "invalid";
}

void AddJson(const JudgedFile& file, toolkit::CkJsonArrayW& answer) {
    toolkit::CkJsonObjectW object;
    object.UpdateString(u"SignFile", platform::ToWide(file.name).c_str());
    object.UpdateString(u"Status", platform::ToWide(StatusName(file)).c_str());
    if (!file.fault.empty()) object.UpdateString(u"ErrorMessage", platform::ToWide(file.fault).c_str());
    toolkit::CkJsonArrayW signatures;
    verification::AddSignInfo(file.entries, signatures);
    object.AddArrayCopyAt(-1, u"Signatures", signatures);
    answer.AddObjectCopyAt(-1, object);
}

// A file that cannot be read, or whose data are not there, is neither good nor bad, and among several it must not keep
// the others from being judged.
JudgedFile JudgeAnyway(const VerifyOptions& options, const std::string& file) {
    try {
        return Judge(file, options.data);
    } catch (const WrongUse& error) {
        if (options.files.size() == 1) throw;
        return {.name = file, .fault = error.what(), .verdict = Verdict::unchecked};
    } catch (const std::runtime_error& error) {
        // The name stands before it in any case.
        const std::string told = error.what(), name = file + ": ";
        return {.name = file,
                .fault = told.starts_with(name) ? told.substr(name.size()) : told,
                .verdict = Verdict::unchecked};
    }
}

void PrintTable(const std::vector<Row>& rows) {
    constexpr std::size_t stateColumns = 15, countColumns = 9;
    std::size_t good = 0;
    for (const auto& row : rows)
        good += row.verdict == Verdict::good ? 1 : 0;
    PrintLine("\n" + Padded("Резултат", stateColumns) + Padded("Подписи", countColumns) + "Файл");
    for (const auto& row : rows) {
        const char* const state = row.verdict == Verdict::good        ? "верен"
                                  : row.verdict == Verdict::unchecked ? "НЕ Е ПРОВЕРЕН"
                                                                      : "НЕ Е ВАЛИДЕН";
        PrintLine(Padded(state, stateColumns) + Padded(std::to_string(row.signatures), countColumns) + row.name);
    }
    PrintLine("Верни: " + std::to_string(good) + " от " + std::to_string(rows.size()) + ".");
}

int VerifyAll(const VerifyOptions& options) {
    std::vector<Row> rows;
    toolkit::CkJsonArrayW answer;
    answer.put_EmitCompact(false);
    auto worst = Verdict::good;
    for (const auto& name : options.files) {
        const auto file = JudgeAnyway(options, name);
        worst = std::max(worst, file.verdict);
        rows.push_back({name, file.entries.size(), file.verdict});
        if (options.json) {
            AddJson(file, answer);
        } else {
            std::fputs(VerdictBlock(file).c_str(), stdout);
        }
    }
    if (options.json) std::fputs(platform::ToUtf8(answer.Emit()).c_str(), stdout);
    if (!options.json && rows.size() > 1) PrintTable(rows);
    return StatusOf(worst);
}

int ShowAll(const VerifyOptions& options) {
    ui::WindowInterface windows;
    auto worst = Verdict::good;
    for (const auto& name : options.files)
        worst = std::max(worst, VerdictOn(verification::ShowSignatures(windows, name, true), nullptr));
    return StatusOf(worst);
}

int Run(const VerifyOptions& options) {
    if (options.data && options.files.size() > 1) throw WrongUse("--data се отнася за един файл.");
    if (options.offline) platform::AllowNetwork(false);
    return options.dialog ? ShowAll(options) : VerifyAll(options);
}

}  // namespace

void AddVerify(CLI::App& norvik, Action& chosen) {
    auto* command = norvik.add_subcommand("verify", "Проверява подписите на файлове, сертификатите и времената им");
    const auto options = std::make_shared<VerifyOptions>();
    command->add_option("ФАЙЛ", options->files, "Подписани файлове (.p7m) или отделни подписи (.p7s)")
        ->required()
        ->option_text(" ");
    auto* data =
        command->add_option("--data", options->data, "Данните на отделен подпис (по подразбиране: името без .p7s)")
            ->option_text("ФАЙЛ");
    auto* json = command->add_flag("--json", options->json, "Извежда всичко намерено като JSON");
    command->add_flag("--offline", options->offline,
                      "Не търси в мрежата: важат CRL от хранилищата и каквото носи файлът");
    command->add_flag("--dialog", options->dialog, "Показва резултата в прозорец")->excludes(data)->excludes(json);
    command->footer(
        "Проверява се, че подписът е направен над тези данни, че сертификатът води до доверен корен и не е\n"
        "отменен, и че удостовереното време се отнася за подписа. Изход: 0 - всичко е вярно; 1 - подпис или\n"
        "сертификат не е верен или файлът не е подписан; 3 - нещо не можа да се провери или файл не се чете.\n"
        "JSON е масив с обект за всеки файл: SignFile, Status (valid, invalid, unverified, error),\n"
        "ErrorMessage (при error) и Signatures.");
    command->callback([options, &chosen] {
        chosen = {[options](ui::TerminalInterface&) { return Run(*options); }, options->dialog};
    });
}

}  // namespace cli
