#include <gtest/gtest.h>

#include <map>

#include "crypt/CommonClass.h"
#include "crypt/CryptOID.h"
#include "crypt/Status.h"
#include "platform/Error.h"
#include "platform/Text.h"
#include "tests/support/Corpora.h"

namespace tessaly {
namespace {

// The words that people read for each status word, letter by letter.
TEST(StatusTable, HasTheTextAndClassOfEveryRow) {
    const auto rows = tests::ReadTable(NORVIK_SOURCE_DIR "/tests/data/status.tsv");
    EXPECT_EQ(rows.size(), 41U);
    const std::map<std::string, StatusClass> classes = {
        {"valid", StatusClass::valid}, {"invalid", StatusClass::invalid}, {"unverified", StatusClass::unverified}};
    for (const auto& row : rows) {
        const auto status = static_cast<std::uint32_t>(std::stoul(row[0], nullptr, 16));
        EXPECT_EQ(platform::ToUtf8(StatusText(status)), row[3]) << row[1];
        EXPECT_EQ(ClassifyStatus(status), classes.at(row[2])) << row[1];
    }
}

TEST(StatusTable, KnowsNoGoodOfWhatItDoesNotList) {
    for (const std::uint32_t status : {3U, 0x100U, 0x80090006U, 0x80091008U, 0x800B0115U, kStatusNotBuilt}) {
        EXPECT_EQ(StatusText(status), u"Неизвестна грешка.") << status;
        EXPECT_EQ(ClassifyStatus(status), StatusClass::unverified) << status;
    }
}

TEST(ErrorText, HasTheSentenceOfTheCodeOrTheCodeAlone) {
    EXPECT_EQ(FormatErrorText(0), u"");
    EXPECT_EQ(FormatErrorText(0xDEAD0BAD), u"Error 0xdead0bad");
    const std::u16string sentence = platform::FormatMessageW(platform::CRYPT_E_NO_REVOCATION_CHECK);
    ASSERT_TRUE(sentence.ends_with(u"\r\n"));
    EXPECT_EQ(FormatErrorText(0x80092012), u"Msg: " + sentence + u"\nError 0x80092012");
    CommonClass object;
    object.lastError = 0xDEAD0BAD;
    EXPECT_EQ(object.FormatErrorAt(u"a.cpp", 120), u"File - a.cpp\nLine - 120\nError 0xdead0bad");
}

TEST(CryptOid, FindsAnEntryOfAnyGroup) {
    CryptOID oid;
    ASSERT_TRUE(oid.Find("2.16.840.1.101.3.4.2.1"));
    EXPECT_EQ(oid.Name(), u"sha256");
    EXPECT_FALSE(oid.Find("1.2.3.4.5.6.7"));
    EXPECT_EQ(oid.lastError, platform::CRYPT_E_NOT_FOUND);
}

}  // namespace
}  // namespace tessaly
