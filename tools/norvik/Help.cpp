#include "tools/norvik/Help.h"

namespace cli {
namespace {

constexpr char kEpilogue[] =
    "Изход: 0 - изпълнено, 1 - неуспех или невалиден подпис, 2 - грешна употреба,\n"
    "3 - при verify и extract: нещо не можа да се провери.\n"
    "Технически подробности се записват в Norvik/Norvik.log във временната папка на потребителя.";

// Asked for by the build, not by people.
class ManRequest : public CLI::Success {
  public:
    ManRequest() : CLI::Success("ManRequest", "", CLI::ExitCodes::Success) {}
};

// Columns are counted in characters, not in bytes.
class BulgarianFormatter : public CLI::Formatter {
  public:
    BulgarianFormatter() {
        label("Usage", "Употреба");
        label("OPTIONS", "ОПЦИИ");
        label("SUBCOMMAND", "КОМАНДА");
        label("SUBCOMMANDS", "КОМАНДИ");
        label("Positionals", "Аргументи");
    }
    std::string make_option(const CLI::Option* option, bool positional) const override {
        return Row(make_option_name(option, positional) + make_option_opts(option), make_option_desc(option));
    }
    std::string make_option_opts(const CLI::Option* option) const override {
        const auto& text = option->get_option_text();
        return text.empty() || text == " " ? "" : " " + text;
    }
    std::string make_subcommand(const CLI::App* command) const override {
        return Row(command->get_name(), command->get_description());
    }

  private:
    static std::string Row(const std::string& name, const std::string& description) {
        constexpr std::size_t columns = 24;
        auto row = Padded("  " + name, columns);
        if (row.back() != ' ') row += "\n" + std::string(columns, ' ');
        return row + description + "\n";
    }
};

void NameGroups(CLI::App& app) {
    for (auto* option : app.get_options()) {
        if (option->get_group() == "Options") option->group("Опции");
    }
    for (auto* command : app.get_subcommands([](const CLI::App*) { return true; })) {
        command->group("Команди");
        NameGroups(*command);
    }
}

std::string AllHelp(const CLI::App& app) {
    // The deepest subcommand that was named before --help is the one whose help is wanted.
    const CLI::App* wanted = &app;
    while (!wanted->get_subcommands().empty())
        wanted = wanted->get_subcommands().front();
    std::string path;
    for (const CLI::App* step = wanted->get_parent(); step != nullptr; step = step->get_parent()) {
        if (step->get_name().empty()) continue;
        if (!path.empty()) path.insert(0, 1, ' ');
        path.insert(0, step->get_name());
    }
    return wanted->help(path);
}

}  // namespace

void BuildCommandLine(CLI::App& norvik, Action& chosen) {
    norvik.name("norvik");
    norvik.formatter(std::make_shared<BulgarianFormatter>());
    norvik.set_help_flag("-h,--help", "Показва тази помощ");
    norvik.set_version_flag("--version", std::string("norvik " NORVIK_VERSION), "Показва версията");
    norvik.add_flag_callback("--man", [] { throw ManRequest(); })->group("");
    norvik.footer(kEpilogue);
    norvik.require_subcommand(1);
    AddSign(norvik, chosen);
    AddVerify(norvik, chosen);
    AddExtract(norvik, chosen);
    AddDetach(norvik, chosen);
    AddReport(norvik, chosen);
    AddCertificates(norvik, chosen);
    AddSelect(norvik, chosen);
    AddStore(norvik, chosen);
    AddStoreKeys(norvik, chosen);
    AddSettings(norvik, chosen);
    AddTsa(norvik, chosen);
    NameGroups(norvik);
}

int PrintRequested(const CLI::App& norvik, const CLI::Success& request) {
    if (dynamic_cast<const CLI::CallForVersion*>(&request) != nullptr) {
        PrintLine(request.what());
    } else if (dynamic_cast<const ManRequest*>(&request) != nullptr) {
        PrintLine(ManPage(norvik));
    } else {
        PrintLine(AllHelp(norvik));
    }
    return kDone;
}

// The parser's own sentences are English: what they speak of is taken out of them.
std::string ExplainWrongUse(const CLI::App& norvik, const CLI::ParseError& error) {
    const std::string sentence = error.what();
    const auto kind = static_cast<CLI::ExitCodes>(error.get_exit_code());
    const auto before = [&](std::string_view mark) { return sentence.substr(0, sentence.find(mark)); };
    const auto after = [&](std::string_view mark) {
        const auto at = sentence.find(mark);
        return at == std::string::npos ? sentence : sentence.substr(at + mark.size());
    };
    if (kind == CLI::ExitCodes::RequiredError) {
        if (sentence.find("subcommand") == std::string::npos) return "Липсва " + before(" is required") + ".";
        const auto unknown = norvik.remaining(true);
        return unknown.empty() ? "Липсва команда." : "Непозната команда: " + unknown.front();
    }
    if (kind == CLI::ExitCodes::ExtrasError) return "Неочаквано на командния ред: " + after("expected: ");
    if (sentence.find("At Most 1 ") != std::string::npos) return before(":") + " се посочва само веднъж.";
    if (kind == CLI::ExitCodes::ArgumentMismatch) return "Липсва стойност за " + before(":") + ".";
    if (kind == CLI::ExitCodes::ExcludesError)
        return before(" excludes ") + " и " + after(" excludes ") + " не се съчетават.";
    return "Грешна употреба: " + sentence;
}

}  // namespace cli
