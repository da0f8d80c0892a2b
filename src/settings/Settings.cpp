#include "src/settings/Settings.h"

#include <algorithm>
#include <array>
#include <charconv>

#include "platform/Text.h"
#include "units/Registry.h"

namespace settings {
namespace {

using platform::REG_DWORD;
using platform::REG_SZ;
constexpr auto kUser = platform::Hive::HKEY_CURRENT_USER;
constexpr auto kMachine = platform::Hive::HKEY_LOCAL_MACHINE;
constexpr auto kWrittenBack = MissingRule::writtenBack;
constexpr auto kNotWritten = MissingRule::notWritten;

constexpr std::array kSettings = {
    Setting{kMachine, kMachineKey, u"InstallDir", REG_SZ, u"", kNotWritten, "папката на инсталацията"},
    Setting{kUser, kTsaKey, u"JSON", REG_SZ, u"", kNotWritten,
            "списъкът на органите за удостоверяване на време; вижте norvik tsa"},
    Setting{kUser, kTsaKey, u"NTPUse", REG_DWORD, u"0", kWrittenBack,
            "1: времето на подписване се взема от NTP сървър"},
    Setting{kUser, kTsaKey, u"NTPURL", REG_SZ, u"", kNotWritten, "NTP сървър"},
    Setting{kUser, kVerificationKey, u"VerificationMethod", REG_DWORD, u"0", kWrittenBack,
            "начин на проверка за прекратени сертификати; 0: по списъци (CRL)"},
    Setting{kUser, kVerificationKey, u"LocalCRL", REG_SZ, u"", kNotWritten,
            "друг адрес на списъка с прекратени сертификати (CRL)"},
    Setting{kUser, kVerificationKey, u"UseLocalCRL", REG_DWORD, u"0", kWrittenBack,
            "1: използва се само другият адрес"},
    Setting{kUser, kVerificationKey, u"DoNotUseCRLCache", REG_DWORD, u"0", kWrittenBack,
            "1: изтеглените списъци не се пазят"},
    Setting{kUser, kVerificationKey, u"CERT_FILE", REG_SZ, u"", kNotWritten,
            "файл със сертификат за проверка на отговорите по OCSP"},
    Setting{kUser, kVerificationKey, u"OCSP_URL", REG_SZ, kDefaultOcspResponder, kNotWritten,
            "адрес на сървъра за проверка по OCSP"},
    Setting{kUser, kVerificationKey, u"HashAlg", REG_SZ, kDefaultHash, kNotWritten,
            "хеш алгоритъм на подписите: SHA256 или SHA1"},
    Setting{kUser, kPrintKey, u"Header", REG_SZ, u"", kNotWritten, "горен ред на отпечатания отчет"},
    Setting{kUser, kPrintKey, u"Footer", REG_SZ, kDefaultFooter, kNotWritten,
            "долен ред на отпечатания отчет; %d е номерът на страницата"},
};

bool EqualsWithoutCase(std::u16string_view a, std::u16string_view b) {
    const auto lower = [](char16_t unit) { return unit >= u'A' && unit <= u'Z' ? unit - u'A' + u'a' : unit; };
    return std::ranges::equal(a, b, {}, lower, lower);
}

std::optional<std::uint32_t> NumberOf(std::u16string_view text) {
    const std::string digits = platform::ToUtf8(text);
    std::uint32_t number = 0;
    const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), number);
    if (error != std::errc() || end != digits.data() + digits.size()) return std::nullopt;
    return number;
}

}  // namespace

std::span<const Setting> AllSettings() {
    return kSettings;
}

std::u16string_view TopicOf(const Setting& setting) {
    return setting.hive == kMachine ? std::u16string_view() : setting.key.substr(setting.key.rfind(u'\\') + 1);
}

const Setting* FindSetting(std::u16string_view topic, std::u16string_view name) {
    const auto* const found = std::ranges::find_if(kSettings, [&](const Setting& setting) {
        return EqualsWithoutCase(TopicOf(setting), topic) && EqualsWithoutCase(setting.name, name);
    });
    return found == kSettings.end() ? nullptr : found;
}

std::optional<std::u16string> StoredText(const Setting& setting) {
    CRegistry registry(setting.hive);
    platform::RegistryValue value;
    if (!registry.Open(setting.key, false) ||
        platform::RegQueryValueExW(registry.GetKey(), setting.name, value) != platform::ERROR_SUCCESS ||
        value.type != setting.type)
        return std::nullopt;
    if (setting.type == REG_SZ) return registry.ReadString(setting.name, setting.missing);
    return platform::ToWide(std::to_string(registry.ReadDword(setting.name, NumberOf(setting.missing).value_or(0))));
}

platform::ErrorCode Store(const Setting& setting, std::u16string_view text) {
    const auto number = NumberOf(text);
    if (setting.type == REG_DWORD && !number) return platform::ERROR_INVALID_PARAMETER;
    platform::RegistryKey key;
    const auto code = platform::RegCreateKeyExW(setting.hive, setting.key, key);
    if (code != platform::ERROR_SUCCESS) return code;
    CRegistry registry(setting.hive);
    const bool done =
        registry.Open(setting.key, true) && (setting.type == REG_DWORD ? registry.WriteDword(setting.name, *number)
                                                                       : registry.WriteString(setting.name, text));
    return done ? platform::ERROR_SUCCESS : platform::ERROR_REGISTRY_IO_FAILED;
}

}  // namespace settings
