#include "tools/norvik/Help.h"

namespace cli {
namespace {

// roff reads a leading dot or quote as a request, a backslash as an escape and a hyphen as a place to break.
std::string Escaped(const std::string& text) {
    std::string out;
    for (const char c : text) {
        const bool lineStart = out.empty() || out.back() == '\n';
        if (lineStart && (c == '.' || c == '\'')) out += "\\&";
        if (c == '\\') {
            out += "\\e";
        } else if (c == '-') {
            out += "\\-";
        } else {
            out += c;
        }
    }
    return out;
}

std::string Synopsis(const CLI::App& command, const std::string& name) {
    std::string line = ".B " + Escaped(name) + "\n";
    bool options = false;
    for (const auto* option : command.get_options()) {
        if (option->get_positional()) {
            const auto value = Escaped(option->get_name(true) + (option->get_expected_max() > 1 ? "..." : ""));
            line += option->get_required() ? value + "\n" : "[" + value + "]\n";
        } else if (!option->get_group().empty()) {
            options = true;
        }
    }
    return line + (options ? "[опции]\n" : "");
}

std::string Options(const CLI::App& command) {
    std::string text;
    for (const auto* option : command.get_options()) {
        if (option->get_group().empty()) continue;
        const bool takesValue =
            !option->get_positional() && option->get_expected_max() > 0 && !option->get_option_text().empty();
        text += ".TP\n.B " + Escaped(option->get_name(option->get_positional(), true));
        if (takesValue) text += " " + Escaped(option->get_option_text());
        text += "\n" + Escaped(option->get_description()) + "\n";
    }
    return text;
}

void Walk(const CLI::App& command, const std::string& name, std::string& synopsis, std::string& details) {
    const auto children = command.get_subcommands([](const CLI::App*) { return true; });
    if (children.empty()) synopsis += ".br\n" + Synopsis(command, name);
    if (command.get_parent() != nullptr) {
        details += ".SS \"" + Escaped(name) + "\"\n" + Escaped(command.get_description()) + "\n" + Options(command);
        if (!command.get_footer().empty()) details += ".PP\n.nf\n" + Escaped(command.get_footer()) + "\n.fi\n";
    }
    for (const auto* child : children)
        Walk(*child, name + " " + child->get_name(), synopsis, details);
}

constexpr char kExamples[] =
    ".SH ПРИМЕРИ\n"
    "Внасяне на ключ и сертификат от PFX файл и подписване:\n.PP\n.nf\n"
    "norvik store import my.p12\n"
    "norvik sign report.pdf\n"
    "norvik verify report.pdf.p7m\n"
    "norvik extract report.pdf.p7m \\-\\-output copy.pdf\n.fi\n.PP\n"
    "Отделен подпис с удостоверено време:\n.PP\n.nf\n"
    "norvik tsa add \"Моята TSA\" http://tsa.example/ \\-\\-default\n"
    "norvik sign \\-\\-detached report.pdf\n"
    "norvik verify report.pdf.p7s\n.fi\n.PP\n"
    "Избор в прозорец: сертификатът, видът на подписа и TSA за всички файлове наведнъж:\n.PP\n.nf\n"
    "norvik sign \\-\\-dialog report.pdf offer.pdf\n.fi\n.PP\n"
    "Избор на сертификат за скрипт; пита на терминала, ако има, иначе в прозорец:\n.PP\n.nf\n"
    "norvik select \\-\\-file team.pem \\-\\-json > chosen.json\n.fi\n";

constexpr char kStatus[] =
    ".SH ИЗХОДЕН КОД\n"
    ".TP\n.B 0\nИзпълнено; при verify: подписите и сертификатите са верни.\n"
    ".TP\n.B 1\nНеуспех; при verify: поне един подпис или сертификат не е верен или файлът не е подписан.\n"
    ".TP\n.B 2\nГрешна употреба: непозната опция, липсващ избор на сертификат и подобни.\n"
    ".TP\n.B 3\nПри verify и extract: няма невалиден подпис, но нещо не можа да бъде проверено.\n"
    ".SH ФАЙЛОВЕ\n"
    ".TP\n.I $XDG_DATA_HOME/norvik/stores/ИМЕ/\nХранилища за сертификати и CRL на потребителя. В MY лежат и частните "
    "ключове.\n"
    ".TP\n.I /etc/norvik/stores/ИМЕ/\nХранилищата на машината.\n"
    ".TP\n.I $XDG_CONFIG_HOME/norvik/registry.db\nНастройките на потребителя.\n"
    ".TP\n.I $TMPDIR/Norvik/Norvik.log\nТехнически съобщения.\n"
    ".SH СИГУРНОСТ\n"
    "ПИН кодове и пароли не се подават на командния ред: питат се на терминала или се четат от стандартния вход с "
    "\\-\\-pin\\-stdin и \\-\\-password\\-stdin.\n";

}  // namespace

std::string ManPage(const CLI::App& norvik) {
    std::string synopsis, details;
    Walk(norvik, "norvik", synopsis, details);
    return ".TH NORVIK 1 \"\" \"norvik " NORVIK_VERSION "\"\n.SH ИМЕ\nnorvik \\- " + Escaped(norvik.get_description()) +
           "\n.SH СИНТАКСИС\n" + synopsis + ".SH КОМАНДИ\n" + details + kExamples + kStatus;
}

}  // namespace cli
