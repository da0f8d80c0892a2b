#include <gtest/gtest.h>

#include "crypt/CommonClass.h"
#include "crypt/CryptOID.h"
#include "crypt/Status.h"
#include "platform/Error.h"
#include "platform/Text.h"
#include "tests/support/StatusTable.h"

namespace tessaly {
namespace {

TEST(StatusTable, HasTheTextAndClassOfEveryRow) {
    const auto rows = tests::StatusRows();
    EXPECT_EQ(rows.size(), 41U);
    for (const auto& row : rows) {
        EXPECT_EQ(platform::ToUtf8(StatusText(row.status)), row.text) << row.symbol;
        const auto expected = row.verdict == "valid"     ? StatusClass::valid
                              : row.verdict == "invalid" ? StatusClass::invalid
                                                         : StatusClass::unverified;
        EXPECT_EQ(ClassifyStatus(row.status), expected) << row.symbol;
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
