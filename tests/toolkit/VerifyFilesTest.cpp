// The operations on files and buffers: what they read, what they write and what they say.

#include <gmock/gmock.h>

#include "tests/toolkit/MessageParts.h"
#include "tests/toolkit/PeerMessages.h"
#include "tests/toolkit/VerifySupport.h"
#include "toolkit/ClsBinData.h"
#include "toolkit/ClsCrypt2.h"
#include "toolkit/ClsJsonObject.h"
#include "toolkit/cms/Findings.h"

namespace {

using platform::Bytes;
using testing::AllOf, testing::HasSubstr;
using tests::KeyType;
using toolkit::ClsCrypt2;

class VerifyFiles : public testing::Test {
  protected:
    VerifyFiles() {
        testing_support::WritePem(profile_, "signer", tests::Issue({.key = tests::TestKey(KeyType::p256)}));
    }
    std::filesystem::path Path(const char* name) const { return profile_.Folder() / name; }
    // What the last operation said if it failed; empty if it succeeded.
    std::string Reason(bool succeeded) const { return succeeded ? "" : crypt_.LastErrorText(); }
    // Signs `text` into the file "message".
    Bytes Sign(std::string_view text, const std::vector<std::string>& options = {"-nodetach"}) {
        profile_.Write("content", text);
        return testing_support::OpenSslSign(profile_, options);
    }

    tests::Profile profile_;
    ClsCrypt2 crypt_;
};

TEST_F(VerifyFiles, ContentComesOutOfEveryFormOfAGoodMessage) {
    using Form = std::vector<std::string>;
    const std::string large(3'000'000, 'x'), beyondMemory(20'000'000, 'x');
    const std::pair<std::string, Form> cases[] = {{"x", {"-nodetach"}},
                                                  {"x", {"-nodetach", "-stream"}},
                                                  {"x", {"-nodetach", "-outform", "PEM"}},
                                                  {large, {"-nodetach"}},
                                                  {large, {"-nodetach", "-stream"}},
                                                  {large, {"-nodetach", "-outform", "PEM"}},
                                                  {beyondMemory, {"-nodetach", "-outform", "PEM"}},
                                                  {"", {"-nodetach"}}};
    for (const auto& [text, form] : cases) {
        Sign(text, form);
        EXPECT_EQ(Reason(crypt_.VerifyP7M(Path("message"), Path("out"))), "");
        EXPECT_EQ(tests::ReadFile(Path("out")), text);
        EXPECT_EQ(Reason(crypt_.VerifyFile(Path("message"))), "");
        std::filesystem::remove(Path("out"));
    }
    // Text beyond memory goes through a temporary file that vanishes.
    for (const auto& entry : std::filesystem::recursive_directory_iterator(profile_.Folder()))
        EXPECT_FALSE(entry.path().filename().string().starts_with("message-")) << entry.path();
    // The output may be the input.
    Sign("x");
    EXPECT_TRUE(crypt_.VerifyP7M(Path("message"), Path("message")));
    EXPECT_EQ(tests::ReadFile(Path("message")), "x");
}

TEST_F(VerifyFiles, TamperedContentNeverStandsUnderTheOutputsName) {
    Bytes message = Sign(std::string(5'000'000, 'x'));
    message[2'500'000] ^= 1;
    profile_.Write("message", platform::AsText(message));
    const auto folderSize = [&] { return std::distance(std::filesystem::directory_iterator(profile_.Folder()), {}); };
    for (const std::string old : {"absent", "old"}) {
        const auto outNow = [&] {
            return std::filesystem::exists(Path("out")) ? tests::ReadFile(Path("out")) : "absent";
        };
        if (old == "old") profile_.Write("out", old);
        int calls = 0;
        crypt_.SetProgress([&](std::uint64_t done, std::uint64_t total) {
            ++calls;
            EXPECT_LE(done, total);
            EXPECT_EQ(outNow(), old);
        });
        const auto before = folderSize();
        EXPECT_THAT(Reason(crypt_.VerifyP7M(Path("message"), Path("out"))),
                    AllOf(HasSubstr("SHA256 message digest does not match."),
                          HasSubstr("One more more digests did not match.")));
        EXPECT_GT(calls, 2);
        EXPECT_EQ(folderSize(), before);
        EXPECT_EQ(outNow(), old);
    }
}

TEST_F(VerifyFiles, ABufferIsReplacedByItsContentOnlyWhenTheSignatureIsGood) {
    const Bytes message = Sign("data");
    testing_support::MessageParts parts(message);
    parts.SetContent("1.2.840.113549.1.7.1", platform::AsBytes("date"));
    toolkit::ClsBinData data;
    data.Replace(parts.Assemble());
    EXPECT_FALSE(crypt_.OpaqueVerifyBd(data));
    EXPECT_EQ(platform::CopyOf(data.Content()), parts.Assemble());
    data.Replace(message);
    EXPECT_EQ(Reason(crypt_.OpaqueVerifyBd(data)), "");
    EXPECT_EQ(platform::AsText(data.Content()), "data");
    data.Replace({});
    EXPECT_THAT(Reason(crypt_.OpaqueVerifyBd(data)), HasSubstr("No input data to verify"));
}

TEST_F(VerifyFiles, WhatCannotBeReadOrWrittenIsToldAndLeavesNothing) {
    profile_.Write("empty", "");
    profile_.Write("garbage", "\x30\x82\xFF\xFF garbage");
    std::filesystem::create_directory(Path("folder"));
    const std::pair<const char*, const char*> cases[] = {{"missing", "Failed to open the file."},
                                                         {"folder", "Failed to open the file."},
                                                         {"empty", "No input data to verify"},
                                                         {"garbage", "Failed to create PKCS7 from DER."},
                                                         {"signer.pem", "Input file contains only 7bit bytes"}};
    for (const auto& [input, reason] : cases) {
        EXPECT_THAT(Reason(crypt_.VerifyP7M(Path(input), Path("out"))), HasSubstr(reason)) << input;
        EXPECT_FALSE(std::filesystem::exists(Path("out"))) << input;
        EXPECT_EQ(crypt_.LastJsonData(), nullptr) << input;
    }
    Sign("x");
    EXPECT_THAT(Reason(crypt_.VerifyP7M(Path("message"), Path("nowhere") / "out")),
                HasSubstr("Failed to create the output file."));
}

TEST_F(VerifyFiles, DetachedSignaturesAreJudgedFromBuffersAndFiles) {
    const Bytes signature = Sign("data", {});
    const Bytes content = platform::CopyOf(platform::AsBytes("data"));
    EXPECT_EQ(crypt_.LastJsonData(), nullptr) << "nothing was verified yet";
    EXPECT_TRUE(crypt_.VerifyBytes(content, signature));
    EXPECT_THAT(crypt_.LastErrorText(), HasSubstr("Digest of authenticated attributes DER matches."));
    ASSERT_NE(crypt_.LastJsonData(), nullptr);
    EXPECT_EQ(crypt_.LastFindings()->contentDigests.at(platform::HashAlgorithm::sha256),
              platform::Digest(platform::HashAlgorithm::sha256, content));
    EXPECT_THAT(Reason(crypt_.VerifyBytes(content, {})), HasSubstr("Signature is empty"));
    EXPECT_EQ(crypt_.LastJsonData(), nullptr) << "the last result is cleared";
    EXPECT_THAT(Reason(crypt_.VerifyBytes({}, signature)), HasSubstr("No input data to verify"));
    const Bytes other{0x30, 0x0B, 6, 9, 0x2A, 0x86, 0x48, 0x86, 0xF7, 0x0D, 1, 7, 1};
    EXPECT_THAT(Reason(crypt_.VerifyBytes(content, other)),
                HasSubstr("Cannot verify detached signature -- not a PKCS7 SignedData object."));

    EXPECT_TRUE(crypt_.VerifyDetachedFile(Path("content"), Path("message")));
    profile_.Write("content", "date");
    EXPECT_FALSE(crypt_.VerifyDetachedFile(Path("content"), Path("message")));
    EXPECT_NE(crypt_.LastJsonData(), nullptr) << "a bad signature has a tree too";
    EXPECT_FALSE(crypt_.VerifyDetachedFile(Path("missing"), Path("message")));
    EXPECT_FALSE(crypt_.VerifyFile(Path("message"))) << "there is no content in it";
    // An empty document is a document.
    Sign("", {});
    EXPECT_EQ(Reason(crypt_.VerifyDetachedFile(Path("content"), Path("message"))), "");
}

TEST_F(VerifyFiles, TrustIsOnlyRemarkedUpon) {
    const tests::StandardPki pki(KeyType::p256);
    testing_support::WritePem(profile_, "signer", pki.signer);
    profile_.Write("ca.pem", pki.ca.Pem());
    Sign("x", {"-nodetach", "-certfile", "ca.pem"});
    crypt_.SetVerboseLogging(true);
    EXPECT_TRUE(crypt_.VerifyFile(Path("message")));
    EXPECT_THAT(crypt_.LastErrorText(), HasSubstr("Signing certificate(s) not verified."));
    pki.Install(profile_);
    EXPECT_TRUE(crypt_.VerifyFile(Path("message")));
    EXPECT_THAT(crypt_.LastErrorText(), HasSubstr("Signing certificates verified."));
}

}  // namespace
