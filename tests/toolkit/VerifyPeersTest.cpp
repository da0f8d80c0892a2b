// Messages as other programs make them today: each is good, and none of them is after a change.

#include "tests/support/GpgSm.h"
#include "tests/toolkit/MessageParts.h"
#include "tests/toolkit/PeerMessages.h"
#include "tests/toolkit/VerifySupport.h"

namespace {

using platform::Bytes;
using testing_support::OpenSslSign;
using testing_support::RunIn;
using testing_support::Verify;
using testing_support::WritePem;
using tests::KeyType;
using tests::Profile;

const std::string kText = "Договор №1\r\nтекст\n";

TEST(VerifyPeers, OpenSslMessagesAreGoodAndGiveTheirContent) {
    const char* const pss = "RSASSA-PSS";
    const struct {
        KeyType key;
        std::vector<std::string> options;
        std::string digest = "sha256", signature = "RSA-PKCSV-1_5";
    } cases[] = {
        {KeyType::rsa2048, {}},
        {KeyType::rsa3072, {}},
        {KeyType::rsa4096, {}},
        {KeyType::rsa2048, {"-noattr"}},
        {KeyType::rsa2048, {"-keyid"}},
        {KeyType::rsa2048, {"-cades"}},
        {KeyType::rsa2048, {"-nosmimecap"}},
        {KeyType::rsa2048, {"-stream"}},
        {KeyType::rsa2048, {"-outform", "PEM"}},
        {KeyType::rsa2048, {"-md", "md5"}, "md5"},
        {KeyType::rsa2048, {"-md", "sha1"}, "sha1"},
        {KeyType::rsa2048, {"-md", "sha384"}, "sha384"},
        {KeyType::rsa2048, {"-md", "sha512"}, "sha512"},
        {KeyType::rsa2048, {"-keyopt", "rsa_padding_mode:pss"}, "sha256", pss},
        {KeyType::rsa2048,
         {"-md", "sha384", "-keyopt", "rsa_padding_mode:pss", "-keyopt", "rsa_mgf1_md:sha256", "-keyopt",
          "rsa_pss_saltlen:17"},
         "sha384",
         pss},
        {KeyType::rsa2048,
         {"-md", "sha1", "-keyopt", "rsa_padding_mode:pss", "-keyopt", "rsa_pss_saltlen:20"},
         "sha1",
         pss},
        {KeyType::p256, {}, "sha256", "ECDSA-SHA256"},
        {KeyType::p384, {"-md", "sha384"}, "sha384", "ECDSA-SHA384"},
        {KeyType::p256, {"-md", "sha1"}, "sha1", "ECDSA-SHA1"},
        {KeyType::p256, {"-noattr"}, "sha256", "ECDSA-SHA256"},
        {KeyType::dsa2048, {}, "sha256", "DSA-SHA256"},
    };
    const Profile profile;
    profile.Write("content", kText);
    for (const auto& [key, options, digest, signature] : cases) {
        SCOPED_TRACE(testing::PrintToString(options));
        WritePem(profile, "signer", tests::Issue({.subject = {{"CN", "Подписващ"}}, .key = tests::TestKey(key)}));
        auto attach = options;
        attach.emplace_back("-nodetach");
        const auto verdict = Verify(OpenSslSign(profile, attach));
        EXPECT_TRUE(verdict.valid) << verdict.log;
        EXPECT_EQ(platform::AsText(verdict.content), kText);
        ASSERT_EQ(verdict.findings.signers.size(), 1U);
        EXPECT_EQ(verdict.findings.signers[0].digestAlgName, digest);
        EXPECT_EQ(verdict.findings.signers[0].signingAlgName, signature);
        EXPECT_EQ(verdict.findings.signers[0].issuerCN, "Подписващ");

        const Bytes detached = OpenSslSign(profile, options);
        Bytes content = platform::CopyOf(platform::AsBytes(kText));
        EXPECT_TRUE(Verify(detached, {}, &content).valid);
        content.back() ^= 1;
        EXPECT_FALSE(Verify(detached, {}, &content).valid);
        // (Streaming makes openssl attach the content in any case.)
        EXPECT_EQ(Verify(detached).valid, options == std::vector<std::string>{"-stream"});
    }
}

TEST(VerifyPeers, SignersWithDifferentDigestsMustAllPass) {
    const Profile profile;
    WritePem(profile, "signer", tests::Issue({.subject = {{"CN", "A"}}, .key = tests::TestKey(KeyType::p256)}));
    WritePem(profile, "second", tests::Issue({.subject = {{"CN", "B"}}, .key = tests::TestKey(KeyType::rsa2048)}));
    profile.Write("content", kText);
    testing_support::MessageParts merged(OpenSslSign(profile, {"-nodetach"}));
    const testing_support::MessageParts other(OpenSslSign(profile, {"-nodetach", "-md", "sha512"}, "second"));
    merged.signers.push_back(other.signers.at(0));
    merged.certificates.push_back(other.certificates.at(0));
    merged.fields[1] = testing_support::Wrap(platform::tag::kSet, {testing_support::ElementsOf(merged.fields[1]).at(0),
                                                                   testing_support::ElementsOf(other.fields[1]).at(0)});
    const Bytes both = merged.Assemble();
    const auto good = Verify(both);
    EXPECT_TRUE(good.valid) << good.log;
    ASSERT_EQ(good.findings.signers.size(), 2U);
    EXPECT_EQ(good.findings.contentDigests.size(), 2U);
    // One broken signature value is enough, whichever of the two it is.
    for (std::size_t index = 0; index < 2; ++index) {
        testing_support::MessageParts parts(both);
        parts.signers[index].back().back() ^= 1;
        const auto bad = Verify(parts.Assemble());
        EXPECT_FALSE(bad.valid);
        EXPECT_NE(bad.findings.signers[0].passed, bad.findings.signers[1].passed);
    }
    // The second digest need not be announced.
    testing_support::MessageParts parts(both);
    parts.fields[1] = {platform::tag::kSet, 0};
    EXPECT_TRUE(Verify(parts.Assemble()).valid);
}

TEST(VerifyPeers, OtherToolsMessagesAreGood) {
    const Profile profile;
    WritePem(profile, "signer", tests::Issue({.subject = {{"CN", "Peer"}}}));
    profile.Write("content", kText);
    const Bytes content = platform::CopyOf(platform::AsBytes(kText));
    if (!tests::HasProgram("certtool")) GTEST_SKIP() << "no certtool";
    for (const char* time : {"--p7-time", "--p7-include-cert"}) {
        ASSERT_TRUE(RunIn(profile,
                          {"certtool", "--p7-sign", time, "--p7-include-cert", "--load-certificate", "signer.pem",
                           "--load-privkey", "signer.key", "--infile", "content", "--outder", "--outfile", "message"}));
        const auto attached = Verify(testing_support::FileIn(profile, "message"));
        EXPECT_TRUE(attached.valid) << attached.log;
        EXPECT_EQ(attached.content, content);
        ASSERT_TRUE(RunIn(
            profile, {"certtool", "--p7-detached-sign", time, "--p7-include-cert", "--load-certificate", "signer.pem",
                      "--load-privkey", "signer.key", "--infile", "content", "--outfile", "message"}));
        EXPECT_TRUE(Verify(testing_support::FileIn(profile, "message"), {}, &content).valid);
    }
}

TEST(VerifyPeers, MessagesFromAKeyringAreGood) {
    if (!tests::GpgSm::Available()) GTEST_SKIP() << "no gpgsm";
    Profile profile;
    const auto root =
        tests::Issue({.subject = {{"CN", "Root"}}, .key = tests::TestKey(KeyType::rsa2048, 1), .ca = true});
    const tests::GpgSm keyring(profile, root, tests::Issue({.subject = {{"CN", "Peer"}}}, root));
    profile.Write("content", kText);
    Bytes content = platform::CopyOf(platform::AsBytes(kText));
    const std::pair<const char*, const char*> cases[] = {
        {"SHA1", "--no-armor"}, {"SHA256", "--armor"}, {"SHA512", "--base64"}};
    for (const auto& [digest, form] : cases) {
        SCOPED_TRACE(digest);
        ASSERT_TRUE(keyring.Run({"--digest-algo", digest, form, "--output", "message", "--sign", "content"}));
        Bytes message = testing_support::FileIn(profile, "message");
        const auto attached = Verify(message);
        EXPECT_TRUE(attached.valid) << attached.log;
        EXPECT_EQ(attached.content, content);
        EXPECT_TRUE(attached.findings.useConstructedOctets);
        ASSERT_TRUE(keyring.Run({"--digest-algo", digest, form, "--output", "message", "--detach-sign", "content"}));
        message = testing_support::FileIn(profile, "message");
        EXPECT_TRUE(Verify(message, {}, &content).valid);
        content.back() ^= 1;
        EXPECT_FALSE(Verify(message, {}, &content).valid);
        content.back() ^= 1;
    }
}

TEST(VerifyPeers, MessagesFromACertificateDatabaseAreGood) {
    if (!tests::HasProgram("cmsutil") || !tests::HasProgram("pk12util")) GTEST_SKIP() << "no cmsutil";
    const Profile profile;
    const auto root =
        tests::Issue({.subject = {{"CN", "Root"}}, .key = tests::TestKey(KeyType::rsa2048, 1), .ca = true});
    const auto signer = tests::Issue({.subject = {{"CN", "Peer"}, {"emailAddress", "peer@example.bg"}},
                                      .keyUsage = "digitalSignature,keyEncipherment"},
                                     root);
    profile.Write("root.pem", root.Pem());
    const Bytes pfx = tests::MakePfx({.certificates = {signer}, .password = "x", .friendlyName = "peer"});
    profile.Write("signer.p12", platform::AsText(pfx));
    profile.Write("content", kText);
    const std::string database = "sql:" + profile.Folder().string();
    ASSERT_TRUE(RunIn(profile, {"certutil", "-N", "-d", database, "--empty-password"}));
    ASSERT_TRUE(RunIn(profile, {"pk12util", "-i", "signer.p12", "-d", database, "-W", "x"}));
    ASSERT_TRUE(
        RunIn(profile, {"certutil", "-A", "-n", "root", "-t", "CT,C,C", "-a", "-i", "root.pem", "-d", database}));
    ASSERT_TRUE(RunIn(
        profile, {"cmsutil", "-S", "-d", database, "-N", "peer", "-H", "SHA256", "-i", "content", "-o", "message"}));
    const auto verdict = Verify(testing_support::FileIn(profile, "message"));
    EXPECT_TRUE(verdict.valid) << verdict.log;
    EXPECT_EQ(platform::AsText(verdict.content), kText);
    EXPECT_TRUE(verdict.findings.useConstructedOctets);
}

}  // namespace
