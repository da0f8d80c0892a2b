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

// Every function about certificates and signing, called as a script does, where nobody can be asked: what needs a
// window says so, the rest works, and the script lives on.
TEST_F(CRequest, AScriptCallsEachFunctionWithoutAScreen) {
    const auto file = profile_.Write("one.pem", pki_.signer.Pem()).string();
    const auto result = tests::RunProgram({"python3", NORVIK_SOURCE_DIR "/tests/callers/programs/exports.py",
                                           NORVIK_BINARY_DIR "/lib/libNorvik.so", file});
    EXPECT_EQ(result.status, 3) << result.Summary();
    const std::string none = "Няма достъпен екран (DISPLAY, WAYLAND_DISPLAY): прозорецът не може да се покаже.";
    const std::string expected[] = {
        "NorvikInit\n  None",
        "NorvikCertInfo\n  record True None Иван Петров Norvik Test CA\n  True",
        "NorvikCertInfo2\n  record True None Иван Петров Norvik Test CA True\n  True",
        "NorvikCertInfoJson\n  list True Иван Петров None\n  True",
        "NorvikCertStoreInfo\n  error True NCryptOpenStorageProvider could not open storage! "
        "None None\n  None",
        "NorvikSelectCertificateJson\n  dict True Иван Петров None\n  True",
        "NorvikSelectCertificateJson\n  dict True None " + none + "\n  False",
        "NorvikSelectCertificateFromFileCB\n  record True None Иван Петров Norvik Test CA "
        "False\n  True",
        "NorvikSelectCertificateCB\n  error True " + none + " None None False\n  True",
        "NorvikSelectCertificateFromFile\n  1\n  False Иван Петров " + pki_.signer.Thumbprint(),
        "NorvikSelectCertificate\n  False",
        "NorvikCertSelectPrivate\n  None",
        "NorvikSignFileJson\n  dict True None " + none + "\n  False",
        "NorvikSignFile\n  False",
        "NorvikSignFileResult\n  False",
        "NorvikSignFileFilter\n  False",
        "NorvikSignFileFilterTSA\n  False",
        "NorvikShowAboutBox\n  None",
        "EPNorvikSignFileA\n  None",
        "EPNorvikShowAboutBoxW\n  None"};
    std::string all;
    for (const auto& call : expected)
        all += call + "\n";
    EXPECT_EQ(result.output, all);
}

}  // namespace
