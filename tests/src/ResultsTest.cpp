// What windows and the terminal say of results, without either.

#include <gmock/gmock.h>

#include "platform/Text.h"
#include "src/results/Legend.h"
#include "src/results/ProtectedContent.h"
#include "src/results/SignatureState.h"
#include "src/results/UnsafeExtension.h"
#include "src/ui/TerminalInterface.h"
#include "tests/support/Pki.h"

namespace {

using testing::HasSubstr;
using verification::SignatureEntry;

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
    EXPECT_EQ(shown(0, 0), "");
    EXPECT_EQ(shown(1, 1), "");
    EXPECT_EQ(shown(2, 2), " Ниво 1 [Ниво 2]");
    EXPECT_EQ(shown(4, 3), " Ниво 1  Ниво 2 [Ниво 3] Ниво 4 ");
    EXPECT_EQ(shown(5, 0), " Ниво 1  Ниво 2  ...  Ниво 5 ");
    EXPECT_EQ(shown(5, 1), "[Ниво 1] Ниво 2  ...  Ниво 5 ");
    EXPECT_EQ(shown(5, 3), " Ниво 1  Ниво 2 [...] Ниво 5 ");
    EXPECT_EQ(shown(5, 4), " Ниво 1  Ниво 2 [...] Ниво 5 ");
    EXPECT_EQ(shown(12, 12), " Ниво 1  Ниво 2  ... [Ниво 12]");

    const auto frames = results::MakeLegend(3, 1, 40, 16);
    EXPECT_EQ(frames[0].left, 42 - (40 + 24) / 2);
    EXPECT_EQ(frames[0].top, 160 - (24 * 3 + 20) / 2);
    EXPECT_EQ(frames[0].width, 64);
    EXPECT_EQ(frames[0].height, 24 * 3 + 20);
    EXPECT_EQ(frames[2].top, frames[1].top + 4) << "each lies in the one before";
    EXPECT_GE(frames[1].top + frames[1].height - frames[2].top - frames[2].height, 16) << "the label";
}

TEST(Results, WindowAndPaperJudgeASignatureEachByItsOwnRule) {
    using enum tessaly::StatusClass;
    struct Case {
        std::uint32_t sign, certificate;
        tessaly::StatusClass inList, inReport;
    };
    constexpr std::uint32_t broken = 0x80096010, changed = 0x80091007, revoked = 0x80092010, unchecked = 0x80092012,
                            unknown = 0x12345678, noChain = 0xFFFFFFFF;
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
    const auto certificate = tests::Issue({.subject = {{"CN", "Иван\n  2. Измислен подпис"}}});
    entries[0].certificate =
        std::make_unique<tessaly::CryptCertificate>(platform::CertCreateCertificateContext(certificate.Der()), true);
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
    EXPECT_THAT(text, HasSubstr("  1. Иван"));
    EXPECT_THAT(text, HasSubstr("време според подписалия: не е посочено"));
    EXPECT_THAT(text, HasSubstr("подпис: Валиден - Подписът е валиден"));
    EXPECT_THAT(text, HasSubstr("сертификат: Непроверен - " + platform::ToUtf8(entries[0].certMessage)));
    EXPECT_THAT(text, HasSubstr("  2. (сертификат без име)\n     време според подписалия: 2024-03-01 12:00:00"));
    EXPECT_THAT(text, HasSubstr("подпис: Невалиден - Цифровият подпис на обекта не се потвърди."));
    EXPECT_THAT(text, HasSubstr("срок на сертификата: изтекъл"));
}

}  // namespace
