#include <algorithm>
#include <functional>

#include "platform/Registry.h"
#include "platform/Text.h"
#include "src/settings/Settings.h"
#include "src/settings/TsaList.h"
#include "tools/norvik/Command.h"

namespace cli {
namespace {

struct TsaOptions {
    std::string title, url, user;
    bool passwordFromStdin = false, makeDefault = false;
};

void Save(const std::vector<settings::TsaRecord>& list) {
    const auto code = settings::StoreTsaList(list);
    if (code != platform::ERROR_SUCCESS)
        throw std::runtime_error("Списъкът на TSA не може да се запише. " + Explain(code));
}

// A list that cannot be read whole is not written over: it may hold more than we see, and its passwords.
std::vector<settings::TsaRecord> ListToChange() {
    std::vector<settings::TsaRecord> list;
    const auto code = settings::LoadTsaListForChange(list);
    if (code == platform::ERROR_INVALID_DATA)
        throw std::runtime_error(
            "Записаният списък на TSA е повреден и не е променен.\n"
            "Вижте го с: norvik settings get TSA JSON, поправете го с: norvik settings set TSA JSON");
    if (code != platform::ERROR_SUCCESS)
        throw std::runtime_error("Записаният списък на TSA не може да се прочете и не е променен. " + Explain(code));
    return list;
}

auto FindByTitle(std::vector<settings::TsaRecord>& list, const std::string& title) {
    return std::find_if(list.begin(), list.end(),
                        [wanted = platform::ToWide(title)](const auto& record) { return record.title == wanted; });
}

// Two at once would each store the list without what the other added.
void Change(const std::function<void(std::vector<settings::TsaRecord>&)>& change) {
    const platform::RegistryChangeLock lock(platform::Hive::HKEY_CURRENT_USER);
    auto list = ListToChange();
    change(list);
    Save(list);
}

void RefuseKnownTitle(std::vector<settings::TsaRecord> list, const std::string& title) {
    if (FindByTitle(list, title) != list.end())
        throw WrongUse("Вече има TSA с име „" + title + "“. Премахнете го с: norvik tsa remove");
}

int List() {
    WarnOfUnreadableSettings();
    WarnOfDamagedAuthorities();
    const auto list = settings::LoadTsaList(nullptr);
    if (list.empty()) return Fail("Няма записани TSA.", kDone);
    for (const auto& record : list) {
        PrintLine((record.selected ? "* " : "  ") + Padded(platform::OneLineUtf8(record.title), 24) + " " +
                  platform::OneLineUtf8(record.url) +
                  (record.username.empty() ? "" : "  (потребител " + platform::OneLineUtf8(record.username) + ")"));
    }
    return kDone;
}

int Add(const TsaOptions& options) {
    if (!options.url.starts_with("http://") && !options.url.starts_with("https://"))
        throw WrongUse("Адресът трябва да започва с http:// или https://: " + options.url);
    if (options.passwordFromStdin && options.user.empty()) throw WrongUse("Парола без потребител: добавете --user.");
    RefuseKnownTitle(ListToChange(), options.title);
    settings::TsaRecord record;
    record.title = platform::ToWide(options.title);
    record.url = platform::ToWide(options.url);
    record.username = platform::ToWide(options.user);
    record.selected = options.makeDefault;
    if (!options.user.empty()) {
        const auto password = options.passwordFromStdin ? std::optional(ReadSecretLine())
                                                        : ui::ReadHidden("Парола за " + options.user + ": ");
        if (!password) throw WrongUse("Подайте паролата на терминала или с --password-stdin.");
        record.password = platform::ToWide(password->Text());
    }
    if (!options.user.empty() && options.url.starts_with("http://"))
        Fail("Внимание: паролата ще минава по мрежата открито. Използвайте адрес с https://, ако TSA има такъв.");
    platform::RegistryKey made;  // so that there is something to lock
    platform::RegCreateKeyExW(platform::Hive::HKEY_CURRENT_USER, settings::kTsaKey, made);
    Change([&](std::vector<settings::TsaRecord>& list) {
        RefuseKnownTitle(list, options.title);
        for (auto& other : list)
            other.selected = other.selected && !options.makeDefault;
        list.push_back(std::move(record));
    });
    return kDone;
}

int Remove(const TsaOptions& options) {
    Change([&](std::vector<settings::TsaRecord>& list) {
        const auto found = FindByTitle(list, options.title);
        if (found == list.end()) throw std::runtime_error("Няма TSA с име „" + options.title + "“.");
        list.erase(found);
    });
    return kDone;
}

}  // namespace

void AddTsa(CLI::App& norvik, Action& chosen) {
    auto* command = norvik.add_subcommand("tsa", "Списъкът на органите за удостоверяване на време (TSA)");
    command->require_subcommand(1);
    const auto options = std::make_shared<TsaOptions>();
    const auto choose = [&chosen, options](CLI::App* subcommand, int (*run)(const TsaOptions&)) {
        subcommand->callback([&chosen, options, run] { chosen = [options, run](auto&) { return run(*options); }; });
    };
    choose(command->add_subcommand("list", "Показва списъка; * е TSA по подразбиране"),
           [](const TsaOptions&) { return List(); });

    auto* add = command->add_subcommand("add", "Добавя TSA");
    add->add_option("ИМЕ", options->title, "Име, под което се избира")->required()->option_text(" ");
    add->add_option("URL", options->url, "Адресът (http или https)")->required()->option_text(" ");
    add->add_option("--user", options->user, "Потребител, ако TSA го изисква; паролата се пита")->option_text("ИМЕ");
    add->add_flag("--password-stdin", options->passwordFromStdin, "Чете паролата от първия ред на стандартния вход");
    add->add_flag("--default", options->makeDefault, "Прави го TSA по подразбиране за norvik sign");
    choose(add, Add);

    auto* remove = command->add_subcommand("remove", "Премахва TSA от списъка");
    remove->add_option("ИМЕ", options->title, "Името")->required()->option_text(" ");
    choose(remove, Remove);
}

}  // namespace cli
