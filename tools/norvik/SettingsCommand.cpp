#include "platform/Text.h"
#include "src/settings/Settings.h"
#include "tools/norvik/Command.h"

namespace cli {
namespace {

struct SettingOptions {
    std::string topic, name, data;
};

// The machine's values have no topic of their own; at the command line they go by "Machine".
constexpr std::u16string_view kMachineTopic = u"Machine";

std::string TopicName(const settings::Setting& setting) {
    const auto topic = settings::TopicOf(setting);
    return platform::ToUtf8(topic.empty() ? kMachineTopic : topic);
}

const settings::Setting& Find(const SettingOptions& options) {
    auto topic = platform::ToWide(options.topic);
    if (topic == kMachineTopic) topic.clear();
    const auto* setting = settings::FindSetting(topic, platform::ToWide(options.name));
    if (setting == nullptr)
        throw WrongUse("Няма настройка " + options.topic + " " + options.name + ". Списъкът: norvik settings list");
    return *setting;
}

int List() {
    WarnOfUnreadableSettings();
    for (const auto& setting : settings::AllSettings()) {
        const auto stored = settings::StoredText(setting);
        const auto text = platform::ToUtf8(stored.value_or(std::u16string(setting.missing)));
        PrintLine(Padded(TopicName(setting) + " " + platform::ToUtf8(setting.name), 36) +
                  (setting.type == platform::REG_DWORD ? "число  " : "текст  ") + (stored ? "  " : "* ") + text);
        PrintLine("    " + std::string(setting.meaning));
    }
    PrintLine("* не е записана: показана е стойността по подразбиране.");
    return kDone;
}

int Get(const SettingOptions& options) {
    const auto& setting = Find(options);
    WarnOfUnreadableSettings();
    PrintLine(platform::ToUtf8(settings::StoredText(setting).value_or(std::u16string(setting.missing))));
    return kDone;
}

int Set(const SettingOptions& options) {
    const auto code = settings::Store(Find(options), platform::ToWide(options.data));
    if (code == platform::ERROR_SUCCESS) return kDone;
    if (code == platform::ERROR_INVALID_PARAMETER) throw WrongUse("Стойността трябва да е число: " + options.data);
    return Fail("Настройката не може да се запише. " + Explain(code));
}

}  // namespace

void AddSettings(CLI::App& norvik, Action& chosen) {
    auto* command = norvik.add_subcommand("settings", "Настройките, които важат за всички операции");
    command->require_subcommand(1);
    const auto options = std::make_shared<SettingOptions>();
    const auto choose = [&chosen, options](CLI::App* subcommand, int (*run)(const SettingOptions&)) {
        subcommand->callback([&chosen, options, run] { chosen = [options, run](auto&) { return run(*options); }; });
    };
    choose(command->add_subcommand("list", "Показва всички настройки с типа и стойността им"),
           [](const SettingOptions&) { return List(); });

    auto* get = command->add_subcommand("get", "Показва една настройка");
    auto* set = command->add_subcommand("set", "Записва една настройка");
    for (auto* subcommand : {get, set}) {
        subcommand->add_option("КЛЮЧ", options->topic, "TSA, Verification, Print или Machine")
            ->required()
            ->option_text(" ");
        subcommand->add_option("ИМЕ", options->name, "Името на настройката, например HashAlg")
            ->required()
            ->option_text(" ");
    }
    set->add_option("СТОЙНОСТ", options->data, "Текст или десетично число")->required()->option_text(" ");
    choose(get, Get);
    choose(set, Set);
}

}  // namespace cli
