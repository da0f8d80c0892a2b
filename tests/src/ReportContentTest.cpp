#include <gtest/gtest.h>

#include "platform/Certificates.h"
#include "platform/Text.h"
#include "src/results/ReportContent.h"
#include "src/settings/PrintTexts.h"
#include "src/settings/Settings.h"
#include "tests/support/Pki.h"
#include "tests/support/Profile.h"

namespace {

using verification::SignatureEntry;

class ReportContent : public testing::Test {
  protected:
    static results::ReportRow RowOf(SignatureEntry entry) {
        verification::SignatureEntries entries;
        entries.push_back(std::move(entry));
        return results::MakeReport(entries, u"a").rows.at(0);
    }
    tests::Profile profile_;
};

TEST_F(ReportContent, TellsLevelNameAndLocalTimeOnOneLine) {
    profile_.Set("TZ", "Europe/Sofia");
    const auto certificate = tests::Issue({.subject = {{"CN", "Иван\nПетров\u202E"}}});
    SignatureEntry entry;
    entry.level = 2;
    entry.certificate = std::make_unique<tessaly::CryptCertificate>(certificate.Der());
    entry.signingTime = 1'782'853'500;  // 2026-06-30 21:05 UTC
    const auto row = RowOf(std::move(entry));
    EXPECT_EQ(row.level, u"3");
    EXPECT_EQ(row.name, u"Иван\uFFFDПетров\uFFFD");
    EXPECT_EQ(row.date, u"01.07.2026 00:05") << "summer time, and the next day";
    for (const std::int64_t absent : {0, -1}) {
        SignatureEntry without;
        without.signingTime = absent;
        const auto bare = RowOf(std::move(without));
        EXPECT_EQ(bare.date, u"n/a");
        EXPECT_EQ(bare.name, u"");
    }
}

TEST_F(ReportContent, TakesHeaderAndFooterFromTheSettings) {
    const auto fresh = results::MakeReport({}, u"a");
    EXPECT_EQ(fresh.header, u"");
    EXPECT_EQ(fresh.footer, u"Страница %d");
    EXPECT_FALSE(settings::StoredText(*settings::FindSetting(u"Print", u"Footer"))) << "a default is not written back";
    settings::StorePrintTexts({u"Горе", u""});
    const auto stored = results::MakeReport({}, u"a");
    EXPECT_EQ(stored.header, u"Горе");
    EXPECT_EQ(stored.footer, u"") << "an empty text is a text";
}

TEST_F(ReportContent, PutsThePageIntoTheFormatAndSurvivesEveryOther) {
    const std::pair<const char16_t*, const char16_t*> cases[] = {
        {u"Страница %d", u"Страница 7"}, {u"без номер", u"без номер"},     {u"%02d/%%", u"07/%"},
        {u"%-3i|%+u", u"7  |%+u"},       {u"%d от %d", u"7 от %d"},        {u"100 %", u"100 %"},
        {u"%s %n %x", u"%s %n %x"},      {u"%999999999d", u"%999999999d"}, {u"%5", u"%5"},
        {u"%*d %ld", u"%*d %ld"},        {u"%%d %3d", u"%d   7"}};
    for (const auto& [format, text] : cases)
        EXPECT_EQ(results::PageText(format, 7), text) << platform::ToUtf8(format);
}

}  // namespace
