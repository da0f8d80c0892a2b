#include "src/certificates/PolicyText.h"

#include "platform/Text.h"
#include "src/certificates/DerText.h"

namespace certificates {
namespace {

using platform::ByteView;
using platform::DerReader;
using MaybeText = std::optional<std::u16string>;
namespace tag = platform::tag;

constexpr std::string_view kPracticeStatement = "1.3.6.1.5.5.7.2.1", kUserNotice = "1.3.6.1.5.5.7.2.2";

// Of ETSI EN 319 411-1 and -2, TS 101 456 and the CA/Browser Forum.
constexpr auto kPolicies = std::to_array<OidWord>({
    {"2.5.29.32.0", u"всяка политика"},
    {"0.4.0.194112.1.0", u"QCP-n: квалифициран, физическо лице"},
    {"0.4.0.194112.1.1", u"QCP-l: квалифициран, юридическо лице"},
    {"0.4.0.194112.1.2", u"QCP-n-qscd: квалифициран, физическо лице, ключ в устройство"},
    {"0.4.0.194112.1.3", u"QCP-l-qscd: квалифициран, юридическо лице, ключ в устройство"},
    {"0.4.0.194112.1.4", u"QEVCP-w: квалифициран, за уебсайт"},
    {"0.4.0.1456.1.1", u"QCP public + SSCD: квалифициран, ключ в устройство"},
    {"0.4.0.1456.1.2", u"QCP public: квалифициран"},
    {"0.4.0.2042.1.1", u"NCP: нормализиран"},
    {"0.4.0.2042.1.2", u"NCP+: нормализиран, ключ в устройство"},
    {"0.4.0.2042.1.3", u"LCP: облекчен"},
    {"0.4.0.2042.1.4", u"EVCP: за уебсайт, разширена проверка"},
    {"0.4.0.2042.1.6", u"DVCP: за уебсайт, проверен домейн"},
    {"0.4.0.2042.1.7", u"OVCP: за уебсайт, проверена организация"},
    {"2.23.140.1.1", u"за уебсайт, разширена проверка"},
    {"2.23.140.1.2.1", u"за уебсайт, проверен домейн"},
    {"2.23.140.1.2.2", u"за уебсайт, проверена организация"},
    {"2.23.140.1.2.3", u"за уебсайт, проверено физическо лице"},
});

std::u16string PolicyName(const std::string& oid) {
    const auto word = FindWord(kPolicies, oid);
    return word.empty() ? platform::ToWide(oid) : platform::ToWide(oid) + u" (" + word + u")";
}

// NoticeReference: who speaks, and the numbers of the paragraphs.
MaybeText NoticeReference(DerReader reader) {
    const auto organization = reader.Next();
    const auto name = organization ? StringText(*organization) : std::nullopt;
    auto numbers = name ? reader.Enter(tag::kSequence) : std::nullopt;
    if (!numbers) return std::nullopt;
    std::u16string text = *name;
    while (const auto number = numbers->Next(tag::kInteger))
        text += u" № " + NumberText(number->contents);
    return numbers->AtEnd() ? MaybeText(text) : std::nullopt;
}

MaybeText UserNotice(DerReader reader) {
    std::u16string text;
    if (const auto reference = reader.Enter(tag::kSequence)) {
        const auto line = NoticeReference(*reference);
        if (!line) return std::nullopt;
        AddLine(text, u"   Източник: " + *line);
    }
    if (const auto words = reader.Next()) {
        const auto line = StringText(*words);
        if (!line) return std::nullopt;
        AddLine(text, u"   Бележка: " + *line);
    }
    return reader.AtEnd() ? MaybeText(text) : std::nullopt;
}

MaybeText Qualifier(DerReader reader) {
    const auto oid = reader.Oid();
    const auto value = oid ? reader.Next() : std::nullopt;
    if (!value || !reader.AtEnd()) return std::nullopt;
    if (*oid == kUserNotice && value->tag == tag::kSequence) return UserNotice(DerReader(value->contents));
    const auto label = *oid == kPracticeStatement ? std::u16string(u"Практика") : platform::ToWide(*oid);
    return u"   " + label + u": " + StringText(*value).value_or(HexLines(value->encoded));
}

MaybeText Policy(DerReader reader) {
    const auto oid = reader.Oid();
    if (!oid) return std::nullopt;
    auto text = PolicyName(*oid);
    if (auto qualifiers = reader.Enter(tag::kSequence)) {
        while (!qualifiers->AtEnd()) {
            const auto qualifier = qualifiers->Enter(tag::kSequence);
            const auto lines = qualifier ? Qualifier(*qualifier) : std::nullopt;
            if (!lines) return std::nullopt;
            AddLine(text, *lines);
        }
    }
    return reader.AtEnd() ? MaybeText(text) : std::nullopt;
}

MaybeText Mapping(DerReader reader) {
    const auto issuers = reader.Oid();
    const auto subjects = issuers ? reader.Oid() : std::nullopt;
    if (!subjects || !reader.AtEnd()) return std::nullopt;
    return PolicyName(*issuers) + u" = " + PolicyName(*subjects);
}

}  // namespace

MaybeText PoliciesText(ByteView value) {
    return LinesOfEach(value, Policy);
}

MaybeText PolicyMappingsText(ByteView value) {
    return LinesOfEach(value, Mapping);
}

MaybeText PolicyConstraintsText(ByteView value) {
    const auto whole = platform::SoleElement(value, tag::kSequence);
    if (!whole) return std::nullopt;
    DerReader reader(whole->contents);
    std::u16string text;
    if (const auto skip = reader.Next(tag::Context(0)))
        AddLine(text, u"Изрична политика след сертификати: " + NumberText(skip->contents));
    if (const auto skip = reader.Next(tag::Context(1)))
        AddLine(text, u"Без съответствия на политики след сертификати: " + NumberText(skip->contents));
    return reader.AtEnd() ? MaybeText(text) : std::nullopt;
}

MaybeText InhibitAnyPolicyText(ByteView value) {
    const auto skip = platform::SoleElement(value, tag::kInteger);
    return skip ? MaybeText(u"След сертификати: " + NumberText(skip->contents)) : std::nullopt;
}

}  // namespace certificates
