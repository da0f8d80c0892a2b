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
using testing_support::MessageParts;
using testing_support::Wrap;

class CryptMessages : public tests::MessageFixture {
  protected:
    CryptMessages() { MakeSigner("signer"); }

    static Bytes AttributeOf(std::string_view oid, const std::vector<Bytes>& values) {
        DerWriter out;
        out.Sequence([&] {
            out.Oid(oid);
            out.Set([&] {
                for (const auto& value : values)
                    out.Raw(value);
            });
        });
        return out.Take();
    }
    static Bytes Text(std::uint8_t tag, std::string_view text) {
        DerWriter out;
        out.Text(tag, text);
        return out.Take();
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
        EXPECT_TRUE(decoder.OpenToDecode(0) && decoder.Update(parts.Assemble(), true));
        return decoder;
    }

    Bytes message_;
};

constexpr const char* kTime = "1.2.840.113549.1.9.5";
constexpr const char* kToken = "1.2.840.113549.1.9.16.2.14";
constexpr const char* kComment = "1.3.6.1.4.1.23021";
constexpr const char* kOtherComment = "1.3.6.1.4.1.4448.0.3.0";
constexpr const char* kReference = "1.2.840.113549.1.9.16.2.47";

TEST_F(CryptMessages, TwoSignersWithTheirHashesAndOneDigest) {
    MakeSigner("other", tests::KeyType::rsa2048);
    MessageParts parts(Sign({"-nodetach", "-md", "sha1"}));
    const MessageParts second(Sign({"-nodetach", "-md", "sha256"}, "other"));  // an algorithm that nobody announces
    parts.signers.push_back(second.signers.at(0));
    parts.certificates.push_back(second.certificates.at(0));
    CryptMessageDecode decoder;
    ASSERT_TRUE(decoder.OpenToDecode(0));
    ASSERT_TRUE(decoder.Update(parts.Assemble(), true));
    EXPECT_EQ(decoder.GetSignerCount(), 2U);
    EXPECT_TRUE(decoder.HasContent());
    EXPECT_EQ(AsText(decoder.GetContent()), "pay 100");
    std::vector<std::u16string> subjects, hashes;
    for (std::uint32_t i = 0; i < 2; ++i) {
        tessaly::CryptOID algorithm;
        ASSERT_TRUE(decoder.GetHashAlgorithm(i, algorithm));
        hashes.push_back(algorithm.Name());
        const auto certificate = decoder.GetSignerCertificate(i);
        ASSERT_TRUE(certificate);
        subjects.push_back(certificate->GetSubjectName());
        EXPECT_EQ(CertEnumCertificatesInStore(certificate->Context().Store()).size(), 2U)
            << "a chain looks for issuers among the message's certificates";
        EXPECT_TRUE(
            decoder.Control(CMSG_CTRL_VERIFY_SIGNATURE_EX, {.dwSignerIndex = i, .pvSigner = certificate->Context()}));
    }
    EXPECT_EQ(subjects, (std::vector<std::u16string>{u"signer", u"other"}));
    EXPECT_EQ(hashes, (std::vector<std::u16string>{u"sha1", u"sha256"}));
    EXPECT_EQ(decoder.GetDigest(), tessaly::HexText(Digest(HashAlgorithm::sha1, AsBytes("pay 100"))));
    for (const std::uint32_t index : {2U, 3U}) {
        EXPECT_FALSE(decoder.GetSignerCertificate(index));
        EXPECT_EQ(decoder.lastError, CRYPT_E_INVALID_INDEX);
        EXPECT_EQ(decoder.GetSigningTime(index), 0);
        EXPECT_EQ(decoder.GetComment(index), u"");
        EXPECT_FALSE(decoder.IsCades(index) || decoder.HasTimestamp(index));
    }
}

TEST_F(CryptMessages, ADetachedOneHasNoContentAndABundleNoSigner) {
    CryptMessageDecode detached;
    ASSERT_TRUE(detached.OpenToDecode(0) && detached.Update(Sign({}), true));
    EXPECT_FALSE(detached.HasContent());
    EXPECT_TRUE(detached.GetContent().empty());
    EXPECT_EQ(detached.lastError, CRYPT_E_NOT_FOUND);
    EXPECT_EQ(detached.GetDigest(), u"");
    EXPECT_TRUE(detached.GetSignerCertificate(0)) << "told without the data";
    Run({"openssl", "crl2pkcs7", "-nocrl", "-certfile", "signer.pem", "-outform", "DER", "-out", "bundle"});
    CryptMessageDecode bundle;
    ASSERT_TRUE(bundle.OpenToDecode(0) && bundle.Update(File("bundle"), true));
    EXPECT_EQ(bundle.GetSignerCount(), 0U);
    EXPECT_EQ(bundle.lastError, CRYPT_E_NO_SIGNER);
    EXPECT_FALSE(bundle.GetSignerCertificate(0));
    CryptMessageDecode broken;
    ASSERT_TRUE(broken.OpenToDecode(0));
    EXPECT_FALSE(broken.Update(AsBytes("no message"), true));
    EXPECT_EQ(broken.lastError, CRYPT_E_ASN1_BADTAG);
    EXPECT_EQ(broken.GetSignerCount(), 0U);
    EXPECT_FALSE(broken.OpenToDecode(99));
}

TEST_F(CryptMessages, TheSigningTimeIsReadInEveryFormThatSignersWrite) {
    const auto time = [&](const std::vector<Bytes>& attributes) { return With(attributes).GetSigningTime(0); };
    const auto utc = [](std::string_view text) { return AttributeOf(kTime, {Text(tag::kUtcTime, text)}); };
    const auto general = [](std::string_view text) { return AttributeOf(kTime, {Text(tag::kGeneralizedTime, text)}); };
    constexpr std::int64_t kMoment = 1709288100;
    for (const Bytes& attribute :
         {utc("240301101500Z"), utc("2403011015Z"), general("20240301101500.75Z"), general("20240301121500+0200")})
        EXPECT_EQ(time({attribute}), kMoment);
    EXPECT_EQ(time({utc("500101000000Z")}), -631152000) << "1950";
    // What does not decode, or has no value, is passed over for the next one.
    EXPECT_EQ(time({AttributeOf(kTime, {}), utc("241301101500Z"), utc("240301101500Z")}), kMoment);
    EXPECT_EQ(time({utc("garbage")}), 0);
    EXPECT_EQ(time({AttributeOf(kReference, {Text(tag::kUtcTime, "240301101500Z")})}), 0);
    EXPECT_EQ(time({}), 0);
}

TEST_F(CryptMessages, TimestampsAndReferencesAreSeenWhereTheyCount) {
    const Bytes token = AttributeOf(kToken, {Text(tag::kOctetString, "token")});
    const Bytes reference = AttributeOf(kReference, {Text(tag::kOctetString, "reference")});
    const Bytes older = AttributeOf("1.2.840.113549.1.9.16.2.12", {Text(tag::kOctetString, "reference")});
    EXPECT_TRUE(With({reference}, {token}).HasTimestamp(0));
    EXPECT_TRUE(With({token}).HasTimestamp(0));
    EXPECT_FALSE(With({reference}).HasTimestamp(0));
    EXPECT_FALSE(With({}, {token}).HasTimestamp(0)) << "without signed attributes nothing is looked for";
    EXPECT_TRUE(With({older, reference}).IsCades(0));
    EXPECT_FALSE(With({older}).IsCades(0));
    EXPECT_FALSE(With({token}, {reference}).IsCades(0)) << "not signed";
}

// "6162" as wide characters without a header: each reads as an element of its own.
Bytes WideText(std::string_view text) {
    Bytes wide;
    for (const char c : text) {
        wide.push_back(static_cast<std::uint8_t>(c));
        wide.push_back(0);
    }
    return wide;
}

TEST_F(CryptMessages, CommentsOfBothIdentifiersAreDecoded) {
    const auto comment = [&](const std::vector<Bytes>& attributes) { return With(attributes).GetComment(0); };
    EXPECT_EQ(comment({AttributeOf(kComment, {WideText("6162")})}), u"ab");
    EXPECT_EQ(comment({AttributeOf(kOtherComment, {WideText("6162")})}), u"ab");
    // Bytes above 0x7F were written as eight digits; they stay the four characters that they say.
    EXPECT_EQ(comment({AttributeOf(kComment, {WideText("FFFFFFd1")})}), u"\u00FF\u00FF\u00FF\u00D1");
    EXPECT_EQ(comment({AttributeOf(kComment, {WideText("61627")})}), u"ab\u0007") << "a last digit stands for itself";
    // The first that has a value decides, whichever of the two it is.
    EXPECT_EQ(comment({AttributeOf(kComment, {}), AttributeOf(kOtherComment, {WideText("63")}),
                       AttributeOf(kComment, {WideText("64")})}),
              u"c");
    EXPECT_EQ(comment({AttributeOf(kTime, {WideText("63")})}), u"");
    EXPECT_EQ(comment({}), u"");
}

TEST_F(CryptMessages, AnotherMessageTakesThePlaceOfTheFirst) {
    CryptMessageDecode decoder;
    ASSERT_TRUE(decoder.OpenToDecode(0) && decoder.Update(Sign({"-nodetach"}), true));
    ASSERT_TRUE(decoder.GetSignerCertificate(0));
    MakeSigner("other", tests::KeyType::rsa2048);
    ASSERT_TRUE(decoder.OpenToDecode(0) && decoder.Update(Sign({"-nodetach"}, "other"), true));
    ASSERT_TRUE(decoder.GetSignerCertificate(0));
    EXPECT_EQ(decoder.GetSignerCertificate(0)->GetSubjectName(), u"other") << "not among the first one's certificates";
    EXPECT_FALSE(decoder.Attach({}));
    EXPECT_EQ(decoder.GetSignerCount(), 0U);
    EXPECT_EQ(decoder.lastError, ERROR_INVALID_HANDLE);
}

}  // namespace
