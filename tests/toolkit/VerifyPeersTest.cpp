// Messages as other programs make them today: each is good, and none of them is after a change.

#include <iterator>
#include <sstream>

#include "tests/support/Corpora.h"
#include "tests/support/GpgSm.h"
#include "tests/toolkit/MessageParts.h"
#include "tests/toolkit/PeerMessages.h"
#include "tests/toolkit/VerifySupport.h"

namespace {

using platform::Bytes;
using testing_support::ElementsOf;
using testing_support::MessageParts;
using testing_support::OpenSslSign;
using testing_support::RunIn;
using testing_support::Verify;
using testing_support::WritePem;
using tests::KeyType;
using tests::Profile;

class VerifyPeers : public testing::Test {
  protected:
    VerifyPeers() { profile_.Write("content", platform::AsText(kContent)); }

    // The attached message in the file "message" is good and gives its content.
    toolkit::cms::Findings ExpectGood() const {
        auto verdict = Verify(testing_support::FileIn(profile_, "message"));
        EXPECT_TRUE(verdict.valid) << verdict.log;
        EXPECT_EQ(verdict.content, kContent);
        return std::move(verdict.findings);
    }
    // The detached one is good over this content and no other.
    void ExpectGoodDetached() const {
        const Bytes message = testing_support::FileIn(profile_, "message");
        Bytes content = kContent;
        EXPECT_TRUE(Verify(message, {}, &content).valid);
        content.back() ^= 1;
        EXPECT_FALSE(Verify(message, {}, &content).valid);
    }

    static inline const Bytes kContent = platform::CopyOf(platform::AsBytes("Договор №1\r\nтекст\n"));
    Profile profile_;
};

TEST_F(VerifyPeers, OpenSslMessagesAreGoodAndGiveTheirContent) {
    for (const auto& row : tests::TestData("toolkit/openssl-messages.tsv")) {
        SCOPED_TRACE(row[0] + " " + row[1]);
        const auto key = tests::TestKey(testing_support::KeyTypeNamed(row[0]));
        WritePem(profile_, "signer", tests::Issue({.subject = {{"CN", "Подписващ"}}, .key = key}));
        std::istringstream words(row[1]);
        const std::vector<std::string> options{std::istream_iterator<std::string>(words), {}};
        auto attach = options;
        attach.emplace_back("-nodetach");
        OpenSslSign(profile_, attach);
        const auto signers = ExpectGood().signers;
        ASSERT_EQ(signers.size(), 1U);
        EXPECT_EQ(signers[0].digestAlgName, row[2]);
        EXPECT_EQ(signers[0].signingAlgName, row[3]);
        EXPECT_EQ(signers[0].issuerCN, "Подписващ");

        const Bytes detached = OpenSslSign(profile_, options);
        ExpectGoodDetached();
        // (Streaming makes openssl attach the content in any case.)
        EXPECT_EQ(Verify(detached).valid, row[1] == "-stream");
    }
}

TEST_F(VerifyPeers, SignersWithDifferentDigestsMustAllPass) {
    WritePem(profile_, "signer", tests::Issue({.subject = {{"CN", "A"}}, .key = tests::TestKey(KeyType::p256)}));
    WritePem(profile_, "second", tests::Issue({.subject = {{"CN", "B"}}, .key = tests::TestKey(KeyType::rsa2048)}));
    MessageParts merged(OpenSslSign(profile_, {"-nodetach"}));
    const MessageParts other(OpenSslSign(profile_, {"-nodetach", "-md", "sha512"}, "second"));
    merged.signers.push_back(other.signers.at(0));
    merged.certificates.push_back(other.certificates.at(0));
    // The second digest need not be announced.
    EXPECT_TRUE(Verify(merged.Assemble()).valid);
    merged.fields[1] = testing_support::Wrap(platform::tag::kSet,
                                             {ElementsOf(merged.fields[1]).at(0), ElementsOf(other.fields[1]).at(0)});
    const auto good = Verify(merged.Assemble());
    EXPECT_TRUE(good.valid) << good.log;
    ASSERT_EQ(good.findings.signers.size(), 2U);
    EXPECT_EQ(good.findings.contentDigests.size(), 2U);
    // One broken signature value is enough, whichever of the two it is.
    for (std::size_t index = 0; index < 2; ++index) {
        MessageParts parts = merged;
        parts.signers[index].back().back() ^= 1;
        const auto bad = Verify(parts.Assemble());
        EXPECT_FALSE(bad.valid);
        EXPECT_NE(bad.findings.signers[0].passed, bad.findings.signers[1].passed);
    }
}

TEST_F(VerifyPeers, OtherToolsMessagesAreGood) {
    if (!tests::HasProgram("certtool")) GTEST_SKIP() << "no certtool";
    WritePem(profile_, "signer", tests::Issue({.subject = {{"CN", "Peer"}}}));
    const auto sign = [this](const std::vector<std::string>& options) {
        std::vector<std::string> command{
            "certtool", "--p7-include-cert", "--load-certificate", "signer.pem", "--load-privkey", "signer.key",
            "--infile", "content",           "--outfile",          "message"};
        command.insert(command.end(), options.begin(), options.end());
        ASSERT_TRUE(RunIn(profile_, command));
    };
    for (const char* time : {"--p7-time", "--p7-include-cert"}) {
        sign({"--p7-sign", time, "--outder"});
        ExpectGood();
        sign({"--p7-detached-sign", time});
        ExpectGoodDetached();
    }
}

tests::Certificate Root() {
    return tests::Issue({.subject = {{"CN", "Root"}}, .key = tests::TestKey(KeyType::rsa2048, 1), .ca = true});
}

TEST_F(VerifyPeers, MessagesFromAKeyringAreGood) {
    if (!tests::GpgSm::Available()) GTEST_SKIP() << "no gpgsm";
    const auto root = Root();
    const tests::GpgSm keyring(profile_, root, tests::Issue({.subject = {{"CN", "Peer"}}}, root));
    const std::pair<const char*, const char*> cases[] = {
        {"SHA1", "--no-armor"}, {"SHA256", "--armor"}, {"SHA512", "--base64"}};
    for (const auto& [digest, form] : cases) {
        SCOPED_TRACE(digest);
        ASSERT_TRUE(keyring.Run({"--digest-algo", digest, form, "--output", "message", "--sign", "content"}));
        EXPECT_TRUE(ExpectGood().useConstructedOctets);
        ASSERT_TRUE(keyring.Run({"--digest-algo", digest, form, "--output", "message", "--detach-sign", "content"}));
        ExpectGoodDetached();
    }
}

TEST_F(VerifyPeers, MessagesFromACertificateDatabaseAreGood) {
    if (!tests::HasProgram("cmsutil") || !tests::HasProgram("pk12util")) GTEST_SKIP() << "no cmsutil";
    const auto root = Root();
    const auto signer = tests::Issue({.subject = {{"CN", "Peer"}, {"emailAddress", "peer@example.bg"}},
                                      .keyUsage = "digitalSignature,keyEncipherment"},
                                     root);
    profile_.Write("root.pem", root.Pem());
    const Bytes pfx = tests::MakePfx({.certificates = {signer}, .password = "x", .friendlyName = "peer"});
    profile_.Write("signer.p12", platform::AsText(pfx));
    const std::string database = "sql:" + profile_.Folder().string();
    for (const std::vector<std::string>& command : {
             std::vector<std::string>{"certutil", "-N", "-d", database, "--empty-password"},
             {"pk12util", "-i", "signer.p12", "-d", database, "-W", "x"},
             {"certutil", "-A", "-n", "root", "-t", "CT,C,C", "-a", "-i", "root.pem", "-d", database},
             {"cmsutil", "-S", "-d", database, "-N", "peer", "-H", "SHA256", "-i", "content", "-o", "message"},
         })
        ASSERT_TRUE(RunIn(profile_, command));
    EXPECT_TRUE(ExpectGood().useConstructedOctets);
}

}  // namespace
