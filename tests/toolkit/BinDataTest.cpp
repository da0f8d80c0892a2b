#include <gtest/gtest.h>

#include <cstdlib>

#include "tests/support/Profile.h"
#include "toolkit/Base64.h"
#include "toolkit/CkBinDataW.h"
#include "toolkit/CkByteData.h"

namespace toolkit {
namespace {

TEST(Base64, FollowsTheVectorsOfItsStandard) {
    const std::pair<const char*, const char*> vectors[] = {{"", ""},
                                                           {"f", "Zg=="},
                                                           {"fo", "Zm8="},
                                                           {"foo", "Zm9v"},
                                                           {"foob", "Zm9vYg=="},
                                                           {"fooba", "Zm9vYmE="},
                                                           {"foobar", "Zm9vYmFy"},
                                                           {"\xFB\xFF\xBF", "+/+/"}};
    for (const auto& [plain, encoded] : vectors) {
        EXPECT_EQ(EncodeBase64(platform::AsBytes(plain)), encoded);
        std::string loose;
        for (const char c : std::string_view(encoded))
            loose.append({c, '\r', '\n', ' ', '\t'});
        const auto padded = DecodeBase64(loose);
        ASSERT_TRUE(padded.has_value()) << encoded;
        EXPECT_EQ(platform::AsText(*padded), plain);
        const std::string_view bare = std::string_view(encoded).substr(0, std::string_view(encoded).find('='));
        ASSERT_TRUE(DecodeBase64(bare).has_value()) << bare;
        EXPECT_EQ(platform::AsText(*DecodeBase64(bare)), plain) << "without padding";
    }
    for (const char* broken : {"A", "Zg=", "Zg==Zg==", "Z!==", "Zm9v=", "====", "Zg===", "=", "Zm9vY", "Zm-_"}) {
        EXPECT_EQ(DecodeBase64(broken), std::nullopt) << broken;
    }
    EXPECT_EQ(DecodeBase64(std::string_view("Zg\0=", 4)), std::nullopt);
}

TEST(BinData, GrowsAndGivesItsBytesBack) {
    CkBinDataW data;
    EXPECT_TRUE(data.AppendBinary2("fo", 2));
    EXPECT_TRUE(data.AppendBinary2(nullptr, 0));
    EXPECT_FALSE(data.AppendBinary2(nullptr, 1));
    EXPECT_TRUE(data.AppendBinary2("obar", 4));
    EXPECT_EQ(std::u16string(data.GetEncoded(u"Base64")), u"Zm9vYmFy");
    EXPECT_EQ(data.GetEncoded(u"rot13"), nullptr);
    EXPECT_FALSE(data.LoadEncoded(u"Zg==", u"hexadecimal-like"));
    EXPECT_FALSE(data.LoadEncoded(u"Жълт", u"Base64"));
    EXPECT_EQ(std::u16string(data.GetEncoded(u"BASE64")), u"Zm9vYmFy") << "a failure leaves what was there";
    EXPECT_TRUE(data.LoadEncoded(u"Zg==", u"Base64"));
    EXPECT_EQ(platform::AsText(data.Inner().Content()), "f") << "loading replaces";
}

TEST(BinData, ReadsItsBytesInTheCharsetAsked) {
    CkBinDataW data;
    data.AppendBinary2("\x1F\x04\x30\x04\x3D\xD8\x11\xDD!", 9);  // П а and a key; half a character at the end
    EXPECT_EQ(std::u16string(data.GetString(u"unicode")), u"Па\U0001F511");
    EXPECT_EQ(data.GetString(u"utf-8"), nullptr) << "bytes that are no UTF-8";
    EXPECT_EQ(data.GetString(u"klingon"), nullptr);
    CkBinDataW cyrillic;
    cyrillic.AppendBinary2("\xCF\xE0", 2);
    EXPECT_EQ(std::u16string(cyrillic.GetString(u"windows-1251")), u"Па");
    CkBinDataW utf8;
    utf8.AppendBinary2("Па", 4);
    EXPECT_EQ(std::u16string(utf8.GetString(u"UTF-8")), u"Па");
}

TEST(BinData, LoadsFilesWholeOrFails) {
    const tests::Profile profile;
    const std::string content("a\0b\xFF", 4);
    const std::u16string path = profile.Write("данни.bin", content).u16string();
    CkBinDataW data;
    CkByteData bytes;
    EXPECT_TRUE(bytes.Content().empty());
    ASSERT_TRUE(data.LoadFile(path.c_str()));
    ASSERT_TRUE(bytes.LoadFile(path.c_str()));
    EXPECT_EQ(platform::AsText(data.Inner().Content()), content);
    EXPECT_EQ(platform::AsText(bytes.Content()), content);
    for (const std::u16string& wrong : {path + u".missing", profile.Folder().u16string(), std::u16string()}) {
        EXPECT_FALSE(data.LoadFile(wrong.c_str()));
        EXPECT_FALSE(bytes.LoadFile(wrong.c_str()));
    }
    EXPECT_FALSE(bytes.LoadFile(nullptr));
    EXPECT_EQ(platform::AsText(data.Inner().Content()), content);
    EXPECT_TRUE(bytes.Content().empty());
}

}  // namespace
}  // namespace toolkit
