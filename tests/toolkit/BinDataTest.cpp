#include <gtest/gtest.h>

#include <optional>
#include <vector>

#include "tests/support/Profile.h"
#include "toolkit/Base64.h"
#include "toolkit/CkBinDataW.h"
#include "toolkit/CkByteData.h"

namespace toolkit {
namespace {

std::string Decoded(std::string_view text) {
    const auto bytes = DecodeBase64(text);
    return bytes ? std::string(platform::AsText(*bytes)) : "refused";
}

TEST(Base64, FollowsTheVectorsOfItsStandard) {
    const std::vector<std::string> prefixesOfFoobar = {"", "Zg==", "Zm8=", "Zm9v", "Zm9vYg==", "Zm9vYmE=", "Zm9vYmFy"};
    for (const std::string& encoded : prefixesOfFoobar) {
        const auto plain =
            std::string("foobar").substr(0, static_cast<std::size_t>(&encoded - prefixesOfFoobar.data()));
        EXPECT_EQ(EncodeBase64(platform::AsBytes(plain)), encoded);
        std::string loose;
        for (const char c : encoded)
            loose.append({c, '\r', '\n', ' ', '\t'});
        EXPECT_EQ(Decoded(loose), plain);
        EXPECT_EQ(Decoded(encoded.substr(0, encoded.find('='))), plain) << "without padding";
    }
    EXPECT_EQ(Decoded("+/+/"), "\xFB\xFF\xBF");
    for (const std::string_view broken :
         {"A", "Zg=", "Zg==Zg==", "Z!==", "Zm9v=", "====", "Zg===", "=", "Zm9vY", "Zm-_"})
        EXPECT_EQ(Decoded(broken), "refused") << broken;
    EXPECT_EQ(Decoded(std::string_view("Zg\0=", 4)), "refused");
}

// What GetString says of these bytes.
std::optional<std::u16string> Read(std::string_view bytes, const char16_t* charset) {
    CkBinDataW data;
    EXPECT_TRUE(data.AppendBinary2(bytes.data(), bytes.size()));
    const char16_t* text = data.GetString(charset);
    return text == nullptr ? std::nullopt : std::optional<std::u16string>(text);
}

TEST(BinData, ReadsItsBytesInTheCharsetAsked) {
    const std::string_view wide("\x1F\x04\x30\x04\x3D\xD8\x11\xDD!", 9);  // П, а and a key; half a character at the end
    EXPECT_EQ(Read(wide, u"unicode"), u"Па\U0001F511");
    EXPECT_EQ(Read(wide, u"utf-8"), std::nullopt) << "bytes that are no UTF-8";
    EXPECT_EQ(Read(wide, u"klingon"), std::nullopt);
    EXPECT_EQ(Read("\xCF\xE0", u"windows-1251"), u"Па");
    EXPECT_EQ(Read("Па", u"UTF-8"), u"Па");
}

TEST(BinData, GrowsAndGivesItsBytesBack) {
    CkBinDataW data;
    EXPECT_TRUE(data.AppendBinary2("fo", 2));
    EXPECT_TRUE(data.AppendBinary2(nullptr, 0));
    EXPECT_FALSE(data.AppendBinary2(nullptr, 1));
    EXPECT_TRUE(data.AppendBinary2("obar", 4));
    EXPECT_EQ(data.GetEncoded(u"rot13"), nullptr);
    EXPECT_FALSE(data.LoadEncoded(u"Zg==", u"hexadecimal-like"));
    EXPECT_FALSE(data.LoadEncoded(u"Жълт", u"Base64"));
    EXPECT_EQ(std::u16string(data.GetEncoded(u"BASE64")), u"Zm9vYmFy") << "a failure leaves what was there";
    EXPECT_TRUE(data.LoadEncoded(u"Zg==", u"Base64"));
    EXPECT_EQ(platform::AsText(data.Inner().Content()), "f") << "loading replaces";
}

TEST(BinData, LoadsFilesWholeOrFails) {
    const tests::Profile profile;
    const std::string content("a\0b\xFF", 4);
    const std::u16string path = profile.Write("данни.bin", content).u16string();
    CkBinDataW data;
    CkByteData bytes;
    ASSERT_TRUE(data.LoadFile(path.c_str()) && bytes.LoadFile(path.c_str()));
    EXPECT_EQ(platform::AsText(bytes.Content()), content);
    for (const std::u16string& wrong : {path + u".missing", profile.Folder().u16string(), std::u16string()})
        EXPECT_FALSE(data.LoadFile(wrong.c_str()) || bytes.LoadFile(wrong.c_str()));
    EXPECT_FALSE(bytes.LoadFile(nullptr));
    EXPECT_EQ(platform::AsText(data.Inner().Content()), content);
    EXPECT_TRUE(bytes.Content().empty());
}

}  // namespace
}  // namespace toolkit
