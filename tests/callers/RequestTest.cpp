#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/support/Pki.h"
#include "tests/support/Process.h"

// A program in C, on a machine without a screen, makes requests that are none.
namespace {

using testing::EndsWith;
using testing::HasSubstr;

class CRequest : public testing::Test {
  protected:
    CRequest() {
        pki_.Install(profile_);
        for (const auto* screen : {"DISPLAY", "WAYLAND_DISPLAY"})
            profile_.Set(screen, std::nullopt);
    }
    // What the program wrote; it must end by itself, with its own status.
    static std::string Make(const std::string& function, const std::u16string& request, const std::string& more = "") {
        std::vector<std::string> command{NORVIK_BINARY_DIR "/tests/callers/request",
                                         NORVIK_BINARY_DIR "/lib/libNorvik.so", function};
        if (!more.empty()) command.push_back(more);
        const auto* bytes = reinterpret_cast<const char*>(request.data());
        const auto result =
            tests::RunProgram(command, {.input = std::string(bytes, request.size() * sizeof(char16_t))});
        EXPECT_EQ(result.status, 3) << result.Summary();
        return result.output;
    }
    tests::Profile profile_;
    tests::StandardPki pki_;
};

TEST_F(CRequest, GetsOneAnswerForWhatIsNone) {
    const std::u16string requests[] = {u"no json",
                                       u"{",
                                       u"[{}]",
                                       u"{\"Filename\":\"\xD800\"}",
                                       u"\xFFFF\xDC00{",
                                       u"{\"Store\":7}",
                                       u"{\"Store\":\"Nobody\"}",
                                       u"{\"SignFile\"",
                                       u"{\"SignFile\":\"x\",\"StoreFilename\":\"/dev/null\"}",
                                       std::u16string(100'000, u'[') + u"{",
                                       u"{\"a\":" + std::u16string(100'000, u'{'),
                                       u"{\"Filename\":\"" + std::u16string(std::size_t{8} << 20, u'я')};
    for (const auto& request : requests) {
        for (const auto* function : {"NorvikCertInfoJson", "NorvikSelectCertificateJson", "NorvikSignFileJson"}) {
            const auto output = Make(function, request);
            EXPECT_THAT(output, HasSubstr("context fedcba9876543210\n")) << function;
            EXPECT_THAT(output, HasSubstr("\"Error\"")) << function;
            EXPECT_THAT(output, EndsWith("done 0 calls 1\n")) << function;
        }
    }
}

TEST_F(CRequest, GetsNoAnswerWhereThereIsNothingToCallOrToRead) {
    EXPECT_EQ(Make("NorvikSignFileJson", u" \t\r\n"), "done 0 calls 0\n");
    for (const auto* function : {"NorvikCertInfoJson", "NorvikSelectCertificateJson", "NorvikSignFileJson"})
        EXPECT_EQ(Make(function, u"{\"Store\":\"MY\",\"SignFile\":\"x\"}", "null"), "done 0 calls 0\n") << function;
    EXPECT_THAT(Make("NorvikCertInfoJson", u"{\"Store\":\"MY\"}"), HasSubstr(pki_.signer.Thumbprint()));
}

}  // namespace
