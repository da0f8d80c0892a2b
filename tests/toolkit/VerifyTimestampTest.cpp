// Timestamp tokens on signatures, and the tree that tells of them.

#include "tests/support/TsaServer.h"
#include "tests/toolkit/MessageParts.h"
#include "tests/toolkit/PeerMessages.h"
#include "tests/toolkit/VerifySupport.h"
#include "toolkit/ClsJsonObject.h"
#include "toolkit/cms/FindingsJson.h"

namespace {

using platform::Bytes;
using testing_support::ElementsOf;
using testing_support::MessageParts;
using testing_support::Verify;
using testing_support::Wrap;
using tests::KeyType;
using Reply = tests::TsaBehaviour::Reply;
namespace tag = platform::tag;

constexpr std::string_view kToken = "1.2.840.113549.1.9.16.2.14";
const std::string kPath = "pkcs7.verify.signerInfo[i].unauthAttr.\"1.2.840.113549.1.9.16.2.14\".";

class VerifyTimestamp : public testing::Test {
  protected:
    static void SetUpTestSuite() {
        const tests::Profile profile;
        const tests::StandardPki pki(KeyType::p256);
        testing_support::WritePem(profile, "signer", pki.signer);
        profile.Write("content", "text");
        message = new Bytes(testing_support::OpenSslSign(profile, {"-nodetach"}));
        authority = new tests::TsaServer(pki.tsa, {pki.ca});
        tsaCertificate = new Bytes(pki.tsa.Der());
    }
    static void TearDownTestSuite() {
        delete message;
        delete authority;
        delete tsaCertificate;
    }

    // The token for the message's signature value.
    static Bytes Token(const tests::TsaBehaviour& behaviour = {}, bool wantCertificates = true,
                       platform::HashAlgorithm hash = platform::HashAlgorithm::sha256) {
        const MessageParts parts(*message);
        const auto signature = platform::DerReader(parts.signers[0].back()).Next();
        platform::DerWriter request;
        request.Sequence([&] {
            request.Integer(1);
            request.Sequence([&] {
                request.AlgorithmWithNull(platform::OidOf(hash));
                request.OctetString(platform::Digest(hash, signature->contents));
            });
            if (wantCertificates) request.Boolean(true);
        });
        const auto fields = ElementsOf(authority->Reply(request.View(), behaviour));
        return fields.at(1);
    }

    static MessageParts Stamped(const std::vector<Bytes>& tokens) {
        MessageParts parts(*message);
        platform::DerWriter attribute;
        attribute.Sequence([&] { attribute.Oid(kToken).Raw(Wrap(tag::kSet, tokens)); });
        parts.signers[0].push_back(Wrap(tag::ContextConstructed(1), {attribute.Take()}));
        return parts;
    }

    static inline Bytes* message = nullptr;
    static inline tests::TsaServer* authority = nullptr;
    static inline Bytes* tsaCertificate = nullptr;
};

TEST_F(VerifyTimestamp, AGoodTokenIsToldInTheTree) {
    const auto verdict = Verify(Stamped({Token({.genTime = 1'709'288'100'251'000, .fractionDigits = 3})}).Assemble(),
                                {.validateTimestamps = true});
    EXPECT_TRUE(verdict.valid) << verdict.log;
    toolkit::ClsJsonObject json;
    json.Load(toolkit::cms::ToJson(verdict.findings));
    json.SetI(0);
    EXPECT_TRUE(json.BoolOf(kPath + "timestampSignatureVerified"));
    EXPECT_TRUE(json.BoolOf(kPath + "timestampTokenValidated"));
    EXPECT_TRUE(json.BoolOf(kPath + "tstInfo.messageImprint.digestMatches"));
    EXPECT_EQ(json.StringOf(kPath + "tstInfo.messageImprint.hashAlg"), "sha256");
    EXPECT_EQ(json.StringOf(kPath + "tstInfo.genTime"), "20240301101500.251Z");
    EXPECT_EQ(json.StringOf(kPath + "tstInfo.tsaPolicyId"), "1.3.6.1.4.1.55555.1.1");
    const auto serial = json.StringOf(kPath + "tstInfo.serialNumber");
    ASSERT_TRUE(serial);
    EXPECT_GE(std::stol(*serial, nullptr, 16), 1000);
    const auto issuer = json.StringOf(kPath + "verify.signerInfo[0].cert.issuerCN");
    ASSERT_TRUE(issuer);
    EXPECT_FALSE(issuer->empty());
    EXPECT_EQ(json.StringOf(kPath + "verify.signerInfo[0].contentType"), "1.2.840.113549.1.9.16.1.4");
    EXPECT_EQ(json.StringOf(kPath + "verify.certs[0].issuerCN"), *issuer);
    EXPECT_EQ(json.StringOf("pkcs7.verify.digestAlgorithms[0]"), "sha256");
    EXPECT_EQ(json.StringOf("pkcs7.verify.signerInfo[0].authAttr.\"1.2.840.113549.1.9.3\".name"), "contentType");
    EXPECT_EQ(json.StringOf("pkcs7.verify.signerInfo[0].signingAlgName"), "ECDSA-SHA256");
    EXPECT_EQ(json.StringOf("pkcs7.verify.signerInfo[0].messageDigest"),
              "mC2ePrmW9VnmM/TRlN7zdh2Qn1o7ZH0ahR/q1nwyydE=");
    EXPECT_FALSE(json.HasMember("pkcs7.verify.useConstructedOctets"));
}

TEST_F(VerifyTimestamp, EveryDigestOfTheImprintIsCompared) {
    using platform::HashAlgorithm;
    for (const auto hash : {HashAlgorithm::sha1, HashAlgorithm::sha384, HashAlgorithm::sha512}) {
        const auto verdict = Verify(Stamped({Token({}, true, hash)}).Assemble(), {.validateTimestamps = true});
        EXPECT_TRUE(verdict.valid) << platform::NameOf(hash) << verdict.log;
    }
}

TEST_F(VerifyTimestamp, AFaultCountsOnlyWhereTimestampsAreValidated) {
    platform::DerWriter otherMessage;
    otherMessage.Sequence([&] {
        otherMessage.Oid("1.2.840.113549.1.7.1");
        otherMessage.Nested(tag::ContextConstructed(0), [&] { otherMessage.OctetString({}); });
    });
    const Bytes otherType = otherMessage.Take(), noMessage{5, 0};
    struct Case {
        const char* name;
        std::vector<Bytes> tokens;
        const char* reason;
    };
    const Case cases[] = {
        {"imprint of something else",
         {Token({.reply = Reply::wrongImprint})},
         "imprint hash does not match the hash of the signature."},
        {"broken", {Token({.reply = Reply::brokenSignature})}, "The timestamp token's signature does not verify."},
        {"no certificate", {Token({}, false)}, "Cannot find the signing certificate."},
        {"no message", {noMessage}, "Failed to create PKCS7 from DER."},
        {"message of another kind", {otherType}, "The timestamp token is not a CMS SignedData."},
        {"signature that is no token", {*message}, "The timestamp token holds no TSTInfo."},
        {"no value", {}, ""},
        {"second of two broken",
         {Token(), Token({.reply = Reply::brokenSignature})},
         "The timestamp token's signature does not verify."},
    };
    for (const auto& [name, tokens, reason] : cases) {
        const Bytes stamped = Stamped(tokens).Assemble();
        const auto strict = Verify(stamped, {.validateTimestamps = true});
        EXPECT_FALSE(strict.valid) << name;
        EXPECT_NE(strict.log.find(reason), std::string::npos) << name << strict.log;
        const auto lenient = Verify(stamped);
        EXPECT_TRUE(lenient.valid) << name << lenient.log;
        EXPECT_EQ(toolkit::cms::ToJson(strict.findings), toolkit::cms::ToJson(lenient.findings)) << name;
    }
}

TEST_F(VerifyTimestamp, TheAuthoritysCertificateMayStandInTheMessageAround) {
    MessageParts parts = Stamped({Token({}, false)});
    parts.certificates.push_back(*tsaCertificate);
    const auto verdict = Verify(parts.Assemble(), {.validateTimestamps = true});
    EXPECT_TRUE(verdict.valid) << verdict.log;
}

TEST_F(VerifyTimestamp, TokensWithinTokensAreNamedAndNotFollowed) {
    Bytes token = Token();
    for (int depth = 0; depth < 20; ++depth) {
        MessageParts parts(token);
        platform::DerWriter attribute;
        attribute.Sequence([&] { attribute.Oid(kToken).Raw(Wrap(tag::kSet, {token})); });
        parts.signers[0].resize(6);
        parts.signers[0].push_back(Wrap(tag::ContextConstructed(1), {attribute.Take()}));
        token = parts.Assemble();
    }
    const auto verdict = Verify(Stamped({token}).Assemble(), {.validateTimestamps = true});
    EXPECT_TRUE(verdict.valid) << verdict.log;
    const auto& outer = verdict.findings.signers[0].unsignedAttributes.at(0).timestamp;
    ASSERT_TRUE(outer && outer->verify);
    const auto& inner = outer->verify->signers.at(0).unsignedAttributes.at(0);
    EXPECT_EQ(inner.oid, kToken);
    EXPECT_EQ(inner.timestamp, nullptr);
}

}  // namespace
