// Timestamp tokens on signatures, and the tree that tells of them.

#include "tests/support/Corpora.h"
#include "tests/support/TsaServer.h"
#include "tests/toolkit/MessageParts.h"
#include "tests/toolkit/PeerMessages.h"
#include "tests/toolkit/VerifySupport.h"
#include "toolkit/ClsJsonObject.h"
#include "toolkit/cms/FindingsJson.h"

namespace {

using platform::Bytes;
using testing_support::Attribute;
using testing_support::ElementsOf;
using testing_support::MessageParts;
using testing_support::Verify;
using testing_support::Wrap;
using tests::KeyType;
using Reply = tests::TsaBehaviour::Reply;
namespace tag = platform::tag;

constexpr std::string_view kToken = "1.2.840.113549.1.9.16.2.14";

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
    static Bytes Token(const tests::TsaBehaviour& behaviour = {}, bool wantCertificates = true) {
        constexpr auto hash = platform::HashAlgorithm::sha256;
        const Bytes signature = MessageParts(*message).signers[0].back();
        platform::DerWriter request;
        request.Sequence([&] {
            request.Integer(1);
            request.Sequence([&] {
                request.AlgorithmWithNull(platform::OidOf(hash));
                request.OctetString(platform::Digest(hash, platform::DerReader(signature).Next()->contents));
            });
            if (wantCertificates) request.Boolean(true);
        });
        return ElementsOf(authority->Reply(request.View(), behaviour)).at(1);
    }

    static MessageParts Stamped(const std::vector<Bytes>& tokens) {
        MessageParts parts(*message);
        parts.signers[0].push_back(Wrap(tag::ContextConstructed(1), {Attribute(kToken, tokens)}));
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
    const std::string token = "pkcs7.verify.signerInfo[0].unauthAttr.\"1.2.840.113549.1.9.16.2.14\".";
    for (const auto& row : tests::TestData("toolkit/timestamp-tree.tsv"))
        EXPECT_EQ(json.StringOf(row[0].starts_with("pkcs7.") ? row[0] : token + row[0]), row[1]) << row[0];
    EXPECT_GE(std::stol(json.StringOf(token + "tstInfo.serialNumber").value_or("0"), nullptr, 16), 1000);
    EXPECT_FALSE(json.HasMember("pkcs7.verify.useConstructedOctets"));
}

TEST_F(VerifyTimestamp, AFaultCountsOnlyWhereTimestampsAreValidated) {
    platform::DerWriter otherMessage;
    otherMessage.Sequence([&] {
        otherMessage.Oid("1.2.840.113549.1.7.1");
        otherMessage.Nested(tag::ContextConstructed(0), [&] { otherMessage.OctetString({}); });
    });
    const Bytes broken = Token({.reply = Reply::brokenSignature});
    const struct {
        const char* name;
        std::vector<Bytes> tokens;
        const char* reason;
    } cases[] = {
        {"imprint of something else",
         {Token({.reply = Reply::wrongImprint})},
         "imprint hash does not match the hash of the signature."},
        {"broken", {broken}, "The timestamp token's signature does not verify."},
        {"no certificate", {Token({}, false)}, "Cannot find the signing certificate."},
        {"no message", {{5, 0}}, "Failed to create PKCS7 from DER."},
        {"message of another kind", {otherMessage.Take()}, "The timestamp token is not a CMS SignedData."},
        {"signature that is no token", {*message}, "The timestamp token holds no TSTInfo."},
        {"no value", {}, ""},
        {"second of two broken", {Token(), broken}, "The timestamp token's signature does not verify."},
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
        parts.signers[0].resize(6);
        parts.signers[0].push_back(Wrap(tag::ContextConstructed(1), {Attribute(kToken, {token})}));
        token = parts.Assemble();
    }
    const auto verdict = Verify(Stamped({token}).Assemble(), {.validateTimestamps = true});
    EXPECT_TRUE(verdict.valid) << verdict.log;
    const auto& outer = verdict.findings.signers[0].unsignedAttributes.at(0).timestamps;
    ASSERT_TRUE(outer.size() == 1 && outer[0].verify);
    const auto& inner = outer[0].verify->signers.at(0).unsignedAttributes.at(0);
    EXPECT_EQ(inner.oid, kToken);
    EXPECT_TRUE(inner.timestamps.empty());
}

}  // namespace
