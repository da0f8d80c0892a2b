#include "src/certificates/Wording.h"

#include "platform/Text.h"
#include "src/certificates/DerText.h"

namespace certificates {
namespace {

using platform::ByteView;
using platform::DerReader;

constexpr auto kExtensions = std::to_array<OidWord>({
    {"2.5.29.9", u"Атрибути на притежателя"},
    {"2.5.29.14", u"Идентификатор на ключа на притежателя"},
    {"2.5.29.15", u"Използване на ключа"},
    {"2.5.29.16", u"Период на използване на частния ключ"},
    {"2.5.29.17", u"Алтернативно име на притежателя"},
    {"2.5.29.18", u"Алтернативно име на издателя"},
    {"2.5.29.19", u"Основни ограничения"},
    {"2.5.29.30", u"Ограничения на имената"},
    {"2.5.29.31", u"Адреси на списъци с отменени сертификати"},
    {"2.5.29.32", u"Политики на сертификата"},
    {"2.5.29.33", u"Съответствия на политики"},
    {"2.5.29.35", u"Идентификатор на ключа на издателя"},
    {"2.5.29.36", u"Ограничения на политиките"},
    {"2.5.29.37", u"Разширено използване на ключа"},
    {"2.5.29.46", u"Адреси на допълващи списъци с отменени"},
    {"2.5.29.54", u"Забрана на политика „всяка“"},
    {"1.3.6.1.5.5.7.1.1", u"Достъп до информация за издателя"},
    {"1.3.6.1.5.5.7.1.3", u"Изявления за квалифициран сертификат"},
    {"1.3.6.1.5.5.7.1.11", u"Достъп до информация за притежателя"},
    {"1.3.6.1.5.5.7.1.24", u"Изисквани възможности на TLS"},
    {"1.3.6.1.5.5.7.48.1.5", u"Без проверка на OCSP за отмяна"},
    {"1.3.6.1.4.1.11129.2.4.2", u"Времеви марки от журнали за сертификати"},
});

constexpr std::string_view kLimitValue = "0.4.0.1862.1.2";
constexpr auto kStatements = std::to_array<OidWord>({
    {"0.4.0.1862.1.1", u"Квалифициран сертификат по правото на ЕС"},
    {kLimitValue, u"Граница на стойността на сделките"},
    {"0.4.0.1862.1.3", u"Години, за които се пазят данните след изтичането"},
    {"0.4.0.1862.1.4", u"Частният ключ е в квалифицирано устройство"},
    {"0.4.0.1862.1.5", u"Декларация за условията"},
    {"0.4.0.1862.1.6", u"Вид"},
    {"0.4.0.1862.1.7", u"Издаден по правото на"},
    {"1.3.6.1.5.5.7.11.1", u"Квалифициран сертификат (RFC 3039)"},
    {"1.3.6.1.5.5.7.11.2", u"Квалифициран сертификат (RFC 3739)"},
});

constexpr auto kDetails = std::to_array<OidWord>({
    {"0.4.0.1862.1.6.1", u"електронен подпис"},
    {"0.4.0.1862.1.6.2", u"електронен печат"},
    {"0.4.0.1862.1.6.3", u"удостоверяване на уебсайт"},
    {"0.4.0.194121.1.1", u"физическо лице"},
    {"0.4.0.194121.1.2", u"юридическо лице"},
});

// The leaves of a value in their order. Structures of these statements are flat: what nests deeper is passed over.
void AddLeaves(DerReader reader, int depth, std::u16string& text) {
    while (const auto element = reader.Next()) {
        std::u16string leaf;
        switch (element->tag) {
            case platform::tag::kSequence:
                if (depth > 0) AddLeaves(DerReader(element->contents), depth - 1, text);
                continue;
            case platform::tag::kOid: {
                const auto oid = DerReader(element->encoded).Oid().value_or("?");
                leaf = FindWord(kDetails, oid);
                if (leaf.empty()) leaf = platform::ToWide(oid);
                break;
            }
            case platform::tag::kInteger:
                leaf = NumberText(element->contents);
                break;
            default:
                leaf = StringText(*element).value_or(u"?");
        }
        text += (text.empty() ? u"" : u" ") + leaf;
    }
}

// MonetaryValue of EN 319 412-5: currency, amount and the power of ten that the amount is multiplied by.
std::u16string MonetaryText(DerReader reader) {
    auto value = reader.Enter(platform::tag::kSequence);
    const auto currency = value ? value->Next() : std::nullopt;
    const auto amount = currency ? value->Next(platform::tag::kInteger) : std::nullopt;
    const auto exponent = amount ? value->Next(platform::tag::kInteger) : std::nullopt;
    if (!exponent) return u"?";
    auto text = NumberText(amount->contents);
    const auto power = NumberText(exponent->contents);
    if (power != u"0") text += u" × 10^" + power;
    const bool number = currency->tag == platform::tag::kInteger;  // of ISO 4217
    return text + u" " + (number ? NumberText(currency->contents) : StringText(*currency).value_or(u"?"));
}

}  // namespace

std::u16string ExtensionName(std::string_view oid) {
    return FindWord(kExtensions, oid);
}

std::optional<std::u16string> QcStatementsText(ByteView der) {
    constexpr int kDepth = 4;
    const auto whole = platform::SoleElement(der, platform::tag::kSequence);
    if (!whole) return std::nullopt;
    std::u16string text;
    for (DerReader reader(whole->contents); !reader.AtEnd();) {
        auto statement = reader.Enter(platform::tag::kSequence);
        const auto oid = statement ? statement->Oid() : std::nullopt;
        if (!oid) return std::nullopt;
        const auto name = FindWord(kStatements, *oid);
        std::u16string value;
        if (*oid == kLimitValue)
            value = MonetaryText(*statement);
        else
            AddLeaves(*statement, kDepth, value);
        text += (text.empty() ? u"" : u"\n") + (name.empty() ? platform::ToWide(*oid) : name);
        if (!value.empty()) text += u": " + value;
    }
    return text;
}

}  // namespace certificates
