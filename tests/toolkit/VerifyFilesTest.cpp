// The operations on files and buffers: what they read, what they write and what they say.

#include <algorithm>

#include "tests/toolkit/MessageParts.h"
#include "tests/toolkit/PeerMessages.h"
#include "tests/toolkit/VerifySupport.h"
#include "toolkit/ClsBinData.h"
#include "toolkit/ClsCrypt2.h"
#include "toolkit/ClsJsonObject.h"
#include "toolkit/cms/Findings.h"

namespace {

using platform::Bytes;
using tests::KeyType;
using toolkit::ClsCrypt2;

bool Says(const ClsCrypt2& crypt, std::string_view text) {
    return crypt.LastErrorText().find(text) != std::string::npos;
}

class VerifyFiles : public testing::Test {
  protected:
    VerifyFiles() {
        testing_support::WritePem(profile_, "signer", tests::Issue({.key = tests::TestKey(KeyType::p256)}));
    }
    std::filesystem::path Path(const char* name) const { return profile_.Folder() / name; }
    // Signs `text` into the file "message".
    Bytes Sign(std::string_view text, const std::vector<std::string>& options = {"-nodetach"}) {
        profile_.Write("content", text);
        return testing_support::OpenSslSign(profile_, options);
    }

    tests::Profile profile_;
    ClsCrypt2 crypt_;
};

TEST_F(VerifyFiles, ContentComesOutOfEveryFormOfAGoodMessage) {
    const std::string large(3'000'000, 'x');
    for (const std::string& text : {std::string("x"), large, std::string()}) {
        for (const auto& form :
             {std::vector<std::string>{"-nodetach"}, {"-nodetach", "-stream"}, {"-nodetach", "-outform", "PEM"}}) {
            if (text.empty() && form.size() > 1) continue;  // openssl does not write these
            Sign(text, form);
            EXPECT_TRUE(crypt_.VerifyP7M(Path("message"), Path("out"))) << crypt_.LastErrorText();
            EXPECT_EQ(tests::ReadFile(Path("out")), text);
            EXPECT_TRUE(crypt_.VerifyFile(Path("message"))) << crypt_.LastErrorText();
            std::filesystem::remove(Path("out"));
        }
    }
    // The output may be the input.
    Sign("x");
    EXPECT_TRUE(crypt_.VerifyP7M(Path("message"), Path("message")));
    EXPECT_EQ(tests::ReadFile(Path("message")), "x");
}

TEST_F(VerifyFiles, TextBeyondMemoryGoesThroughATemporaryFileThatVanishes) {
    const std::string large(20'000'000, 'x');
    Sign(large, {"-nodetach", "-outform", "PEM"});
    EXPECT_TRUE(crypt_.VerifyP7M(Path("message"), Path("out"))) << crypt_.LastErrorText();
    EXPECT_EQ(tests::ReadFile(Path("out")), large);
    for (const auto& entry : std::filesystem::recursive_directory_iterator(profile_.Folder())) {
        EXPECT_FALSE(entry.path().filename().string().starts_with("message-")) << entry.path();
    }
}

TEST_F(VerifyFiles, TamperedContentNeverStandsUnderTheOutputsName) {
    Bytes message = Sign(std::string(5'000'000, 'x'));
    message[2'500'000] ^= 1;
    profile_.Write("message", platform::AsText(message));
    const auto folderSize = [&] { return std::distance(std::filesystem::directory_iterator(profile_.Folder()), {}); };
    for (const bool exists : {false, true}) {
        if (exists) profile_.Write("out", "old");
        int calls = 0;
        crypt_.SetProgress([&](std::uint64_t done, std::uint64_t total) {
            ++calls;
            EXPECT_LE(done, total);
            EXPECT_EQ(std::filesystem::exists(Path("out")), exists);
            if (exists) {
                EXPECT_EQ(tests::ReadFile(Path("out")), "old");
            }
        });
        const auto before = folderSize();
        EXPECT_FALSE(crypt_.VerifyP7M(Path("message"), Path("out")));
        EXPECT_GT(calls, 2);
        EXPECT_EQ(folderSize(), before);
        EXPECT_TRUE(Says(crypt_, "SHA256 message digest does not match."));
        EXPECT_TRUE(Says(crypt_, "One more more digests did not match."));
    }
    EXPECT_EQ(tests::ReadFile(Path("out")), "old");
}

TEST_F(VerifyFiles, ABufferIsReplacedByItsContentOnlyWhenTheSignatureIsGood) {
    const Bytes message = Sign("data");
    Bytes tampered = message;
    const auto content = std::search(tampered.begin(), tampered.end(), std::begin("data"), std::end("data") - 1);
    ASSERT_NE(content, tampered.end());
    *content ^= 1;
    toolkit::ClsBinData data;
    data.Replace(tampered);
    EXPECT_FALSE(crypt_.OpaqueVerifyBd(data));
    EXPECT_EQ(platform::CopyOf(data.Content()), tampered);
    data.Replace(message);
    EXPECT_TRUE(crypt_.OpaqueVerifyBd(data)) << crypt_.LastErrorText();
    EXPECT_EQ(platform::AsText(data.Content()), "data");
    data.Replace({});
    EXPECT_FALSE(crypt_.OpaqueVerifyBd(data));
    EXPECT_TRUE(Says(crypt_, "No input data to verify"));
}

TEST_F(VerifyFiles, WhatCannotBeReadOrWrittenIsToldAndLeavesNothing) {
    profile_.Write("empty", "");
    profile_.Write("garbage", "\x30\x82\xFF\xFF garbage");
    std::filesystem::create_directory(Path("folder"));
    struct Case {
        const char* input;
        const char* text;
    };
    for (const auto& [input, text] :
         {Case{"missing", "Failed to open the file."}, Case{"folder", "Failed to open the file."},
          Case{"empty", "No input data to verify"}, Case{"garbage", "Failed to create PKCS7 from DER."},
          Case{"signer.pem", "Input file contains only 7bit bytes"}}) {
        EXPECT_FALSE(crypt_.VerifyP7M(Path(input), Path("out"))) << input;
        EXPECT_TRUE(Says(crypt_, text)) << input << crypt_.LastErrorText();
        EXPECT_FALSE(std::filesystem::exists(Path("out"))) << input;
        EXPECT_EQ(crypt_.LastJsonData(), nullptr) << input;
    }
    Sign("x");
    EXPECT_FALSE(crypt_.VerifyP7M(Path("message"), Path("nowhere") / "out"));
    EXPECT_TRUE(Says(crypt_, "Failed to create the output file."));
}

TEST_F(VerifyFiles, DetachedSignaturesAreJudgedFromBuffersAndFiles) {
    const Bytes signature = Sign("data", {});
    const Bytes content = platform::CopyOf(platform::AsBytes("data"));
    EXPECT_EQ(crypt_.LastJsonData(), nullptr) << "nothing was verified yet";
    EXPECT_TRUE(crypt_.VerifyBytes(content, signature));
    EXPECT_TRUE(Says(crypt_, "Digest of authenticated attributes DER matches."));
    ASSERT_NE(crypt_.LastJsonData(), nullptr);
    EXPECT_EQ(crypt_.LastFindings()->contentDigests.at(platform::HashAlgorithm::sha256),
              platform::Digest(platform::HashAlgorithm::sha256, content));
    EXPECT_FALSE(crypt_.VerifyBytes(content, {}));
    EXPECT_TRUE(Says(crypt_, "Signature is empty"));
    EXPECT_EQ(crypt_.LastJsonData(), nullptr) << "the last result is cleared";
    EXPECT_FALSE(crypt_.VerifyBytes({}, signature));
    EXPECT_TRUE(Says(crypt_, "No input data to verify"));
    EXPECT_FALSE(crypt_.VerifyBytes(content, Bytes{0x30, 0x0B, 6, 9, 0x2A, 0x86, 0x48, 0x86, 0xF7, 0x0D, 1, 7, 1}));
    EXPECT_TRUE(Says(crypt_, "Cannot verify detached signature -- not a PKCS7 SignedData object."));

    EXPECT_TRUE(crypt_.VerifyDetachedFile(Path("content"), Path("message")));
    profile_.Write("content", "date");
    EXPECT_FALSE(crypt_.VerifyDetachedFile(Path("content"), Path("message")));
    EXPECT_NE(crypt_.LastJsonData(), nullptr) << "a bad signature has a tree too";
    EXPECT_FALSE(crypt_.VerifyDetachedFile(Path("missing"), Path("message")));
    EXPECT_FALSE(crypt_.VerifyFile(Path("message"))) << "there is no content in it";
    // An empty document is a document.
    Sign("", {});
    EXPECT_TRUE(crypt_.VerifyDetachedFile(Path("content"), Path("message"))) << crypt_.LastErrorText();
}

TEST_F(VerifyFiles, TrustIsOnlyRemarkedUpon) {
    const tests::StandardPki pki(KeyType::p256);
    testing_support::WritePem(profile_, "signer", pki.signer);
    profile_.Write("ca.pem", pki.ca.Pem());
    Sign("x", {"-nodetach", "-certfile", (Path("ca.pem")).string()});
    crypt_.SetVerboseLogging(true);
    EXPECT_TRUE(crypt_.VerifyFile(Path("message")));
    EXPECT_TRUE(Says(crypt_, "Signing certificate(s) not verified.")) << crypt_.LastErrorText();
    pki.Install(profile_);
    EXPECT_TRUE(crypt_.VerifyFile(Path("message")));
    EXPECT_TRUE(Says(crypt_, "Signing certificates verified.")) << crypt_.LastErrorText();
}

}  // namespace
