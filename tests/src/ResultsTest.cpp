// What windows, terminal and paper say of results, without any of them.

#include <gmock/gmock.h>

#include "platform/Text.h"
#include "src/results/Legend.h"
#include "src/results/ProtectedContent.h"
#include "src/results/ReportContent.h"
#include "src/results/SignatureState.h"
#include "src/results/UnsafeExtension.h"
#include "src/settings/PrintTexts.h"
#include "src/settings/Settings.h"
#include "src/ui/TerminalInterface.h"
#include "tests/support/ChainWorld.h"

namespace {

using testing::HasSubstr;
using verification::SignatureEntry;

void Name(SignatureEntry& entry, const std::string& name) {
    entry.certificate =
        std::make_unique<tessaly::CryptCertificate>(tests::ContextOf(tests::Issue({.subject = {{"CN", name}}})), true);
}

TEST(Results, AnUnsafeExtensionIsFoundAnywhereInTheListAsItStands) {
    for (const auto* name : {u"x.vb", u"x.exe", u"x.as", u"договор.scr", u"noteexe", u"x.ws", u"x.js"})
        EXPECT_TRUE(results::HasUnsafeExtension(name)) << platform::ToUtf8(name);
    for (const auto* name : {u"x.EXE", u"x.pdf", u"x.docx", u"договор", u"x.exe.txt", u"a", u""})
        EXPECT_FALSE(results::HasUnsafeExtension(name)) << platform::ToUtf8(name);
}

TEST(Results, TheLegendShowsTwoToFourFramesAndMarksOneOfThem) {
    const auto shown = [](std::uint32_t levels, std::uint32_t current) {
        std::string text;
        for (const auto& frame : results::MakeLegend(levels, current, 40, 16))
            text += (frame.marked ? "[" : " ") + platform::ToUtf8(frame.label) + (frame.marked ? "]" : " ");
        return text;
    };
    EXPECT_EQ(shown(0, 0) + shown(1, 1), "");
    EXPECT_EQ(shown(2, 2), " Ниво 1 [Ниво 2]");
    EXPECT_EQ(shown(4, 3), " Ниво 1  Ниво 2 [Ниво 3] Ниво 4 ");
    EXPECT_EQ(shown(5, 0), " Ниво 1  Ниво 2  ...  Ниво 5 ");
    EXPECT_EQ(shown(5, 1), "[Ниво 1] Ниво 2  ...  Ниво 5 ");
    EXPECT_EQ(shown(5, 3), " Ниво 1  Ниво 2 [...] Ниво 5 ");
    EXPECT_EQ(shown(5, 4), " Ниво 1  Ниво 2 [...] Ниво 5 ");
    EXPECT_EQ(shown(12, 12), " Ниво 1  Ниво 2  ... [Ниво 12]");

    const auto frames = results::MakeLegend(3, 1, 40, 16);
    EXPECT_EQ(std::tuple(frames[0].left, frames[0].top, frames[0].width, frames[0].height),
              std::tuple(10, 114, 64, 92));
    EXPECT_EQ(frames[2].top, frames[1].top + 4) << "each lies in the one before";
    EXPECT_GE(frames[1].top + frames[1].height - frames[2].top - frames[2].height, 16) << "the label";
}

TEST(Results, WindowAndPaperJudgeASignatureEachByItsOwnRule) {
    using enum tessaly::StatusClass;
    constexpr std::uint32_t broken = 0x80096010, changed = 0x80091007, revoked = 0x80092010, unchecked = 0x80092012,
                            unknown = 0x12345678, noChain = 0xFFFFFFFF;
    struct Case {
        std::uint32_t sign, certificate;
        tessaly::StatusClass inList, inReport;
    };
    for (const auto& [sign, certificate, inList, inReport] :
         {Case{0, 0, valid, valid}, Case{0, revoked, invalid, valid}, Case{0, unchecked, unverified, valid},
          Case{0, noChain, unverified, valid}, Case{changed, 0, invalid, valid},
          Case{broken, revoked, invalid, invalid}, Case{changed, unchecked, invalid, unverified},
          Case{unknown, 0, valid, valid}, Case{unknown, noChain, unverified, unverified}}) {
        SignatureEntry entry;
        entry.signStatus = sign;
        entry.certStatus = certificate;
        EXPECT_EQ(results::StateInList(entry), inList) << std::hex << sign << ' ' << certificate;
        EXPECT_EQ(results::StateInReport(entry), inReport) << std::hex << sign << ' ' << certificate;
    }
}

TEST(Results, TheContentOfASignatureLiesBesideItOrInTheWorkFolder) {
    struct Case {
        const char *sign, *data;
        bool detached;
        const char* content;
    };
    for (const auto& [sign, data, detached, content] :
         {Case{"/d/a.txt.p7m", "", false, "/work/a.txt"}, Case{"/d/a.txt.P7M", "/d/a.txt", false, "/work/a.txt"},
          Case{"/d/a.txt.p7s", "/d/a.txt", true, "/d/a.txt"}, Case{"/d/a.txt.P7S", "/e/b", true, "/e/b"},
          Case{"/d/attached.txt.p7s", "", false, "/work/attached.txt"},
          Case{"/d/name.p7s.txt", "/d/name.p7s", true, "/d/name"},
          Case{"/d/a.tar.gz.sig", "", false, "/work/a.tar.gz"}}) {
        const results::ProtectedContent file(sign, data, "/work");
        EXPECT_EQ(file.Detached(), detached) << sign;
        EXPECT_EQ(file.Path(), content) << sign;
    }
}

TEST(Results, TheTerminalTellsWhatIsWrongWithSignatureAndCertificateEachByItself) {
    verification::SignatureEntries entries(2);
    Name(entries[0], "Иван\n  2. Измислен подпис");
    entries[0].signMessage = u"Подписът е валиден";
    entries[0].certStatus = 0x80092012;
    entries[0].certMessage = tessaly::StatusText(0x80092012);
    entries[0].comment = u"първи ред\nвтори ред";
    entries[1].signStatus = 0x80096010;
    entries[1].signMessage = tessaly::StatusText(0x80096010);
    entries[1].certMessage = tessaly::StatusText(0);
    entries[1].certTimeValidity = 1;
    entries[1].signingTime = 1;
    entries[1].signingTimeText = u"2024-03-01 12:00:00";
    testing::internal::CaptureStdout();
    EXPECT_EQ(ui::TerminalInterface().ShowResults({entries, "a.p7m", {}}), ui::ResultsAction::none);
    const auto text = testing::internal::GetCapturedStdout();
    EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 1 + 5 + 5) << text;
    for (const auto* part :
         {"  1. Иван", "време според подписалия: не е посочено", "подпис: Валиден - Подписът е валиден",
          "сертификат: Непроверен - Функцията за анулиране",
          "  2. (сертификат без име)\n     време според подписалия: 2024-03-01 12:00:00",
          "подпис: Невалиден - Цифровият подпис на обекта не се потвърди.", "срок на сертификата: изтекъл"})
        EXPECT_THAT(text, HasSubstr(part));
}

TEST(Report, TellsLevelNameAndLocalTimeOnOneLine) {
    tests::Profile profile;
    profile.Set("TZ", "Europe/Sofia");
    verification::SignatureEntries entries(3);
    Name(entries[0], "Иван\nПетров\u202E");
    entries[0].level = 2;
    entries[0].signingTime = 1'782'853'500;  // 2026-06-30 21:05 UTC
    entries[2].signingTime = -1;
    const auto rows = results::MakeReport(entries, u"a").rows;
    EXPECT_EQ(rows.at(0).level, u"3");
    EXPECT_EQ(rows[0].name, u"Иван\uFFFDПетров\uFFFD");
    EXPECT_EQ(rows[0].date, u"01.07.2026 00:05") << "summer time, and the next day";
    for (const std::size_t absent : {1, 2}) {
        EXPECT_EQ(rows.at(absent).date, u"n/a");
        EXPECT_EQ(rows[absent].name, u"");
    }
}

TEST(Report, TakesHeaderAndFooterFromTheSettings) {
    const tests::Profile profile;
    const auto fresh = results::MakeReport({}, u"a");
    EXPECT_EQ(fresh.header, u"");
    EXPECT_EQ(fresh.footer, u"Страница %d");
    EXPECT_FALSE(settings::StoredText(*settings::FindSetting(u"Print", u"Footer"))) << "a default is not written back";
    settings::StorePrintTexts({u"Горе", u""});
    const auto stored = results::MakeReport({}, u"a");
    EXPECT_EQ(stored.header, u"Горе");
    EXPECT_EQ(stored.footer, u"") << "an empty text is a text";
}

TEST(Report, PutsThePageIntoTheFormatAndSurvivesEveryOther) {
    const std::pair<const char16_t*, const char16_t*> cases[] = {
        {u"Страница %d", u"Страница 7"}, {u"без номер", u"без номер"},     {u"%02d/%%", u"07/%"},
        {u"%-3i|%+u", u"7  |%+u"},       {u"%d от %d", u"7 от %d"},        {u"100 %", u"100 %"},
        {u"%s %n %x", u"%s %n %x"},      {u"%999999999d", u"%999999999d"}, {u"%5", u"%5"},
        {u"%*d %ld", u"%*d %ld"},        {u"%%d %3d", u"%d   7"}};
    for (const auto& [format, text] : cases)
        EXPECT_EQ(results::PageText(format, 7), text) << platform::ToUtf8(format);
}

}  // namespace
