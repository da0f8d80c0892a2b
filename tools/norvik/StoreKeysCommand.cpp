#include <memory>

#include "platform/Keys.h"
#include "platform/Text.h"
#include "tools/norvik/Command.h"

namespace cli {
namespace {

int ListKeys(const std::string& provider) {
    const auto keys = platform::NCryptEnumKeys(platform::ToWide(provider));
    const auto status = platform::GetLastError();
    if (status == platform::NTE_KEYSET_NOT_DEF) throw WrongUse("Няма PKCS#11 модул или токен с име " + provider + ".");
    if (status != platform::NTE_NO_MORE_ITEMS)
        throw std::runtime_error(provider + ": ключовете не могат да се прочетат. " +
                                 platform::ToUtf8(platform::TokenErrorMessage(status)));
    if (keys.empty()) return Fail("Няма ключове.", kDone);
    for (const auto& key : keys) {
        const auto algorithm = key.pszAlgid.empty() ? std::string("?") : platform::ToUtf8(key.pszAlgid);
        const auto owner = key.certificate ? Describe(key.certificate).subject : std::string("без сертификат");
        PrintLine(Padded(algorithm, 7) + Padded(platform::OneLineUtf8(key.pszName), 40) + "  " + owner);
    }
    return kDone;
}

}  // namespace

void AddStoreKeys(CLI::App& norvik, Action& chosen) {
    auto* command = norvik.get_subcommand("store")->add_subcommand("keys", "Показва частните ключове");
    const auto provider = std::make_shared<std::string>();
    command
        ->add_option("ИМЕ", *provider,
                     "Име на PKCS#11 модул, път до него или етикет на токен (без име: ключовете във файлове)")
        ->option_text(" ");
    command->callback(
        [provider, &chosen] { chosen = [provider](ui::TerminalInterface&) { return ListKeys(*provider); }; });
}

}  // namespace cli
