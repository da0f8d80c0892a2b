// What the decoder tells of messages: counts, signers, times, comments, timestamps.

#include "crypt/CryptMessage.h"

#include <gtest/gtest.h>

#include "platform/Hash.h"
#include "platform/formats/DerWriter.h"
#include "tests/platform/MessageFixture.h"
#include "tests/toolkit/MessageParts.h"

namespace {

using namespace platform;
using tessaly::CryptMessageDecode;
using testing_support::Attribute;
using testing_support::MessageParts;
using testing_support::Wrap;

constexpr const char* kTime = "1.2.840.113549.1.9.5";
constexpr const char* kToken = "1.2.840.113549.1.9.16.2.14";
constexpr const char* kComment = "1.3.6.1.4.1.23021";
constexpr const char* kOtherComment = "1.3.6.1.4.1.4448.0.3.0";
constexpr const char* kReference = "1.2.840.113549.1.9.16.2.47";

Bytes Text(std::uint8_t tag, std::string_view text) {
    return DerWriter().Text(tag, text).Take();
}

class CryptMessages : public tests::MessageFixture {
  protected:
    CryptMessages() { MakeSigner("signer"); }

    // Reads a message that is one.
    static void Open(CryptMessageDecode& decoder, const Bytes& message) {
        ASSERT_TRUE(decoder.OpenToDecode(0) && decoder.Update(message, true));
    }
    // A decoder over a message with these attributes, whose signature nobody asks after here. No signed ones: absent.
    CryptMessageDecode With(const std::vector<Bytes>& isSigned, const std::vector<Bytes>& others = {}) {
        if (message_.empty()) message_ = Sign({"-nodetach"});
        MessageParts parts(message_);
        auto& signer = parts.signers.at(0);
        signer.erase(signer.begin() + 3);
        if (!isSigned.empty()) signer.insert(signer.begin() + 3, Wrap(tag::ContextConstructed(0), isSigned));
        if (!others.empty()) signer.push_back(Wrap(tag::ContextConstructed(1), others));
        CryptMessageDecode decoder;
        Open(decoder, parts.Assemble());
        return decoder;
    }

    Bytes message_;
};

TEST_F(CryptMessages, TwoSignersWithTheirHashesAndOneDigest) {
    MakeSigner("other", tests::KeyType::rsa2048);
    MessageParts parts(Sign({"-nodetach", "-md", "sha1"}));
    const MessageParts second(Sign({"-nodetach", "-md", "sha256"}, "other"));  // an algorithm that nobody announces
    parts.signers.push_back(second.signers.at(0));
    parts.certificates.push_back(second.certificates.at(0));
    CryptMessageDecode decoder;
    Open(decoder, parts.Assemble());
    EXPECT_EQ(decoder.GetSignerCount(), 2U);
    EXPECT_TRUE(decoder.HasContent());
    EXPECT_EQ(AsText(decoder.GetContent()), "pay 100");
    const std::pair<std::u16string, std::u16string> signers[] = {{u"signer", u"sha1"}, {u"other", u"sha256"}};
    for (std::uint32_t i = 0; i < 2; ++i) {
        tessaly::CryptOID algorithm;
        const auto certificate = decoder.GetSignerCertificate(i);
        ASSERT_TRUE(certificate && decoder.GetHashAlgorithm(i, algorithm));
        EXPECT_EQ(std::pair(certificate->GetSubjectName(), algorithm.Name()), signers[i]);
        EXPECT_EQ(CertEnumCertificatesInStore(certificate->Context().Store()).size(), 2U)
            << "a chain looks for issuers among the message's certificates";
        EXPECT_TRUE(
            decoder.Control(CMSG_CTRL_VERIFY_SIGNATURE_EX, {.dwSignerIndex = i, .pvSigner = certificate->Context()}));
    }
    EXPECT_EQ(decoder.GetDigest(), tessaly::HexText(Digest(HashAlgorithm::sha1, AsBytes("pay 100"))));
    EXPECT_FALSE(decoder.GetSignerCertificate(2));
    EXPECT_EQ(decoder.lastError, CRYPT_E_INVALID_INDEX);
    EXPECT_EQ(decoder.GetSigningTime(2), 0);
    EXPECT_EQ(decoder.GetComment(2), u"");
    EXPECT_FALSE(decoder.IsCades(2) || decoder.HasTimestamp(2));
}

TEST_F(CryptMessages, ADetachedOneHasNoContentAndABundleNoSigner) {
    CryptMessageDecode detached, bundle, broken;
    Open(detached, Sign({}));
    EXPECT_FALSE(detached.HasContent());
    EXPECT_TRUE(detached.GetContent().empty());
    EXPECT_EQ(detached.lastError, CRYPT_E_NOT_FOUND);
    EXPECT_EQ(detached.GetDigest(), u"");
    EXPECT_TRUE(detached.GetSignerCertificate(0)) << "told without the data";
    Run({"openssl", "crl2pkcs7", "-nocrl", "-certfile", "signer.pem", "-outform", "DER", "-out", "bundle"});
    Open(bundle, File("bundle"));
    EXPECT_EQ(bundle.GetSignerCount(), 0U);
    EXPECT_EQ(bundle.lastError, CRYPT_E_NO_SIGNER);
    EXPECT_FALSE(bundle.GetSignerCertificate(0));
    ASSERT_TRUE(broken.OpenToDecode(0));
    EXPECT_FALSE(broken.Update(AsBytes("no message"), true));
    EXPECT_EQ(broken.lastError, CRYPT_E_ASN1_BADTAG);
    EXPECT_EQ(broken.GetSignerCount(), 0U);
    EXPECT_FALSE(broken.OpenToDecode(99));
}

TEST_F(CryptMessages, TheSigningTimeIsReadInEveryFormThatSignersWrite) {
    const auto utc = [](std::string_view text) { return Attribute(kTime, {Text(tag::kUtcTime, text)}); };
    const auto general = [](std::string_view text) { return Attribute(kTime, {Text(tag::kGeneralizedTime, text)}); };
    constexpr std::int64_t kMoment = 1709288100;
    const std::pair<std::vector<Bytes>, std::int64_t> cases[] = {
        {{utc("240301101500Z")}, kMoment},
        {{utc("2403011015Z")}, kMoment},
        {{general("20240301101500.75Z")}, kMoment},
        {{general("20240301121500+0200")}, kMoment},
        {{utc("500101000000Z")}, -631152000},  // 1950
        // What does not decode, or has no value, is passed over for the next one.
        {{Attribute(kTime, {}), utc("241301101500Z"), utc("240301101500Z")}, kMoment},
        {{utc("garbage")}, 0},
        {{Attribute(kReference, {Text(tag::kUtcTime, "240301101500Z")})}, 0},
        {{}, 0},
    };
    for (const auto& [attributes, moment] : cases)
        EXPECT_EQ(With(attributes).GetSigningTime(0), moment) << (attributes.empty() ? "" : tests::Hex(attributes[0]));
}

TEST_F(CryptMessages, TimestampsAndReferencesAreSeenWhereTheyCount) {
    const Bytes text = Text(tag::kOctetString, "text"), token = Attribute(kToken, {text}),
                reference = Attribute(kReference, {text}), older = Attribute("1.2.840.113549.1.9.16.2.12", {text});
    EXPECT_TRUE(With({reference}, {token}).HasTimestamp(0));
    EXPECT_TRUE(With({token}).HasTimestamp(0));
    EXPECT_FALSE(With({reference}).HasTimestamp(0));
    EXPECT_FALSE(With({}, {token}).HasTimestamp(0)) << "without signed attributes nothing is looked for";
    EXPECT_TRUE(With({older, reference}).IsCades(0));
    EXPECT_FALSE(With({older}).IsCades(0));
    EXPECT_FALSE(With({token}, {reference}).IsCades(0)) << "not signed";
}

TEST_F(CryptMessages, CommentsOfBothIdentifiersAreDecoded) {
    // "6162" as wide characters without a header: each reads as an element of its own.
    const auto comment = [](std::string_view digits, const char* oid = kComment) {
        Bytes wide;
        for (const char c : digits)
            wide.insert(wide.end(), {static_cast<std::uint8_t>(c), 0});
        return Attribute(oid, {wide});
    };
    const std::pair<std::vector<Bytes>, std::u16string> cases[] = {
        {{comment("6162")}, u"ab"},
        {{comment("6162", kOtherComment)}, u"ab"},
        // Bytes above 0x7F were written as eight digits; they stay the four characters that they say.
        {{comment("FFFFFFd1")}, u"\u00FF\u00FF\u00FF\u00D1"},
        {{comment("61627")}, u"ab\u0007"},  // a last digit stands for itself
        // The first that has a value decides, whichever of the two it is.
        {{Attribute(kComment, {}), comment("63", kOtherComment), comment("64")}, u"c"},
        {{comment("63", kTime)}, u""},
        {{}, u""},
    };
    for (const auto& [attributes, text] : cases)
        EXPECT_EQ(With(attributes).GetComment(0), text);
}

TEST_F(CryptMessages, AnotherMessageTakesThePlaceOfTheFirst) {
    CryptMessageDecode decoder;
    Open(decoder, Sign({"-nodetach"}));
    ASSERT_TRUE(decoder.GetSignerCertificate(0));
    MakeSigner("other", tests::KeyType::rsa2048);
    Open(decoder, Sign({"-nodetach"}, "other"));
    ASSERT_TRUE(decoder.GetSignerCertificate(0));
    EXPECT_EQ(decoder.GetSignerCertificate(0)->GetSubjectName(), u"other") << "not among the first one's certificates";
    EXPECT_FALSE(decoder.Attach({}));
    EXPECT_EQ(decoder.GetSignerCount(), 0U);
    EXPECT_EQ(decoder.lastError, ERROR_INVALID_HANDLE);
}

}  // namespace
