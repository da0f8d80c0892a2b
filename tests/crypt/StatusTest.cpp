#include <gtest/gtest.h>

#include <fstream>
#include <sstream>

#include "crypt/CommonClass.h"
#include "crypt/CryptOID.h"
#include "crypt/Status.h"
#include "platform/Error.h"
#include "platform/Text.h"

namespace tessaly {
namespace {

// status, symbol, class, text; one row a line, separated by tabs.
TEST(StatusTable, HasTheTextAndClassOfEveryRow) {
    std::ifstream file(NORVIK_SOURCE_DIR "/tests/data/status.tsv");
    int rows = 0;
    for (std::string line; std::getline(file, line); ++rows) {
        std::istringstream fields(line);
        std::string number, symbol, verdict, text;
        std::getline(fields, number, '\t');
        std::getline(fields, symbol, '\t');
        std::getline(fields, verdict, '\t');
        std::getline(fields, text);
        const auto status = static_cast<std::uint32_t>(std::stoul(number, nullptr, 16));
        EXPECT_EQ(platform::ToUtf8(StatusText(status)), text) << symbol;
        const auto expected = verdict == "valid"     ? StatusClass::valid
                              : verdict == "invalid" ? StatusClass::invalid
                                                     : StatusClass::unverified;
        EXPECT_EQ(ClassifyStatus(status), expected) << symbol;
    }
    EXPECT_EQ(rows, 41);
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
