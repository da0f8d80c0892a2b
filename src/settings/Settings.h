#pragma once
// All values that Norvik keeps in the registry: where they stand, their types and what counts while one is missing. The
// code that uses a value reads it with CRegistry at the moment of use; this table is for those who list and set values.

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "platform/Registry.h"

namespace settings {

// The user's keys and the machine's differ in spelling, as programs that write them from outside expect.
inline constexpr std::u16string_view kMachineKey = u"Software\\Tessaly\\Tessaly Norvik";
inline constexpr std::u16string_view kTsaKey = u"software\\tessaly\\Tessaly Norvik\\TSA";
inline constexpr std::u16string_view kVerificationKey = u"software\\tessaly\\Tessaly Norvik\\Verification";
inline constexpr std::u16string_view kPrintKey = u"software\\tessaly\\Tessaly Norvik\\Print";
inline constexpr std::u16string_view kLdapKey = u"software\\tessaly\\Tessaly Norvik\\LDAP";

// What the settings page shows while no server is stored; a signature takes its time from none then.
inline constexpr std::u16string_view kDefaultNtpServer = u"bg.pool.ntp.org";
inline constexpr std::u16string_view kDefaultOcspResponder = u"http://ocsp.example.bg/";
inline constexpr std::u16string_view kDefaultHash = u"SHA256";
inline constexpr std::u16string_view kDefaultFooter = u"Страница %d";

enum class MissingRule {
    writtenBack,  // the reader stores the default and goes on with it
    notWritten,   // the reader only uses the default
};

struct Setting {
    platform::Hive hive;
    std::u16string_view key;  // path below the hive
    std::u16string_view name;
    std::uint32_t type;           // REG_SZ or REG_DWORD
    std::u16string_view missing;  // the default as text; of NTPUse and NTPURL the one of the signing path
    MissingRule rule;
    std::string_view meaning;  // Bulgarian, one line, for people at a terminal
};

// In the order in which they are to be listed.
std::span<const Setting> AllSettings();

// By the last part of the key ("TSA", "Verification", "Print"; for the machine's the empty text) and the value's name,
// without letter case. Null if there is none.
const Setting* FindSetting(std::u16string_view topic, std::u16string_view name);
// That last part of the key.
std::u16string_view TopicOf(const Setting& setting);

// What is stored, as text (a number in decimal), without writing anything back. Empty if the value is missing, cannot
// be read or is of another type than it should be: then setting.missing counts.
std::optional<std::u16string> StoredText(const Setting& setting);

// Stores a text or, for REG_DWORD, the decimal number that the text is. ERROR_INVALID_PARAMETER if it is none; else as
// the registry answers.
platform::ErrorCode Store(const Setting& setting, std::u16string_view text);

}  // namespace settings
