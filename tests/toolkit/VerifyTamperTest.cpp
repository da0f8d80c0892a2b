// What an attacker can do to a message without the key.

#include <chrono>
#include <functional>
#include <regex>

#include "tests/support/Made.h"
#include "tests/toolkit/MessageParts.h"
#include "tests/toolkit/PeerMessages.h"
#include "tests/toolkit/VerifySupport.h"
#include "toolkit/cms/Message.h"

namespace {

using platform::Bytes;
using testing_support::Attribute;
using testing_support::ElementsOf;
using testing_support::MessageParts;
using testing_support::OpenSslSign;
using testing_support::Verify;
using testing_support::Wrap;
using testing_support::WritePem;
using tests::KeyType;
using tests::Profile;
namespace tag = platform::tag;

class Crafted : public testing::Test {
  protected:
    Crafted() { profile_.Write("content", "pay 100"); }
    Bytes Sign(std::vector<std::string> options = {}) { return SignWith(signer_, std::move(options)); }
    Bytes SignWith(const tests::Certificate& signer, std::vector<std::string> options) {
        WritePem(profile_, "signer", signer);
        options.insert(options.end(), {"-nodetach", "-nosmimecap"});
        return OpenSslSign(profile_, options);
    }
    // Signs exactly these attributes, in this order.
    void SetAttributes(MessageParts& parts, const std::vector<Bytes>& attributes) const {
        const Bytes set = Wrap(tag::kSet, attributes);
        const auto context = tests::Made<EVP_MD_CTX_free>(EVP_MD_CTX_new(), "signature");
        std::size_t size = 200;
        Bytes value(size);
        EVP_DigestSignInit(context.get(), nullptr, EVP_sha256(), nullptr, signer_.PrivateKey().get());
        EVP_DigestSign(context.get(), value.data(), &size, set.data(), set.size());
        value.resize(size);
        parts.signers[0][3] = Wrap(tag::ContextConstructed(0), attributes);
        parts.signers[0].back() = platform::DerWriter().OctetString(value).Take();
    }

    Profile profile_;
    const tests::CertificateSpec spec_{
        .subject = {{"CN", "Signer"}}, .serial = {7}, .key = tests::TestKey(KeyType::p256)};
    const tests::Certificate signer_ = tests::Issue(spec_);
};

TEST_F(Crafted, SignaturesThatProveNothingAreBad) {
    using namespace toolkit::cms::oid;
    using platform::TRUST_E_BAD_DIGEST, platform::CRYPT_E_HASH_VALUE, platform::CRYPT_E_NO_SIGNER,
        platform::CRYPT_E_SIGNER_NOT_FOUND;
    const auto set = [](std::size_t field, std::string_view oid) {
        return [=](MessageParts& parts) {
            parts.signers[0].at(field) = platform::DerWriter().AlgorithmWithNull(oid).Take();
        };
    };
    const auto content = [](std::string_view type, std::string_view text) {
        return [=](MessageParts& parts) { parts.SetContent(type, platform::AsBytes(text)); };
    };
    const auto contentOfAttributes = [](MessageParts& parts) {
        Bytes attributes = parts.signers[0].at(3);
        attributes[0] = tag::kSet;
        parts.signers[0].erase(parts.signers[0].begin() + 3);
        parts.SetContent(kData, attributes);
    };
    const auto noAttributes = [](MessageParts& parts) { parts.signers[0][3] = Wrap(tag::ContextConstructed(0), {}); };
    const auto noSigners = [](MessageParts& parts) { parts.signers.clear(); };
    const auto noCertificates = [](MessageParts& parts) { parts.certificates.clear(); };
    const tests::Certificate rsa = tests::Issue({});
    const Bytes usual = Sign(), bare = Sign({"-noattr"}), rsaUsual = SignWith(rsa, {}),
                rsaBare = SignWith(rsa, {"-noattr"});
    const char* const value = "does not match the decrypted digest";
    const struct {
        const char* name;
        Bytes message;
        std::function<void(MessageParts&)> change;
        const char* reason;
        platform::ErrorCode service = TRUST_E_BAD_DIGEST;  // what the host's message service says of the signer
    } cases[] = {
        {"attributes as content", usual, contentOfAttributes, "The content is itself a set of signed attributes"},
        {"other data", usual, content(kData, "pay 900"), "message digest does not match", CRYPT_E_HASH_VALUE},
        {"other data without attributes", rsaBare, content(kData, "pay 900"), value},
        {"another type without attributes", bare, content(kTstInfo, "pay 100"), "needs signed attributes"},
        {"another digest than inside the signature", rsaBare, set(2, "1.3.14.3.2.26"), value},
        {"an unknown digest", rsaUsual, set(2, "1.2.3.4"), "Unsupported PKCS7 digest"},
        {"an unknown signature", rsaUsual, set(4, "1.2.3.4"), ""},
        {"an empty set of attributes", usual, noAttributes, "Failed to create PKCS7 from DER.", CRYPT_E_NO_SIGNER},
        {"no signers", usual, noSigners, "The message has no signers.", CRYPT_E_NO_SIGNER},
        {"no certificate", usual, noCertificates, "Cannot find the signing certificate.", CRYPT_E_SIGNER_NOT_FOUND},
    };
    for (const auto& [name, message, change, reason, service] : cases) {
        MessageParts parts(message);
        ASSERT_TRUE(Verify(parts.Assemble()).valid);
        change(parts);
        const auto verdict = Verify(parts.Assemble());
        EXPECT_FALSE(verdict.valid) << name;
        EXPECT_NE(verdict.log.find(reason), std::string::npos) << name << verdict.log;
        EXPECT_EQ(verdict.serviceStatus.empty() ? CRYPT_E_NO_SIGNER : verdict.serviceStatus[0], service) << name;
    }
}

// Others of the same issuer and serial number: with another key; and, where the signature names its certificate, with
// the same key but other rights, or just another signature of the issuer.
TEST_F(Crafted, ACertificateWithTheSameIssuerAndSerialDoesNotConfuse) {
    auto otherKey = spec_, otherRights = spec_;
    otherKey.key = tests::TestKey(KeyType::p256, 1);
    otherRights.keyUsage = "critical,keyAgreement";
    const Bytes signer = signer_.Der();
    Bytes otherByte = signer;
    otherByte.back() ^= 1;
    const char* const reference = "The signing certificate reference is to another certificate.";
    const std::pair<Bytes, const char*> decoys[] = {
        {tests::Issue(otherKey).Der(), "does not match the decrypted digest"},
        {tests::Issue(otherRights).Der(), reference},
        {otherByte, reference}};
    MessageParts parts(Sign({"-cades"}));
    for (const auto& [decoy, reason] : decoys) {
        for (const auto& certificates : {std::vector{decoy, signer, signer}, {signer, decoy}}) {
            parts.certificates = certificates;
            const auto verdict = Verify(parts.Assemble());
            EXPECT_TRUE(verdict.valid) << verdict.log;
            EXPECT_EQ(platform::CopyOf(verdict.findings.signers.at(0).certificate.Encoded()), signer);
        }
        parts.certificates = {decoy};
        const auto verdict = Verify(parts.Assemble());
        EXPECT_FALSE(verdict.valid);
        EXPECT_NE(verdict.log.find(reason), std::string::npos) << verdict.log;
        EXPECT_EQ(verdict.serviceStatus, std::vector{platform::TRUST_E_BAD_DIGEST});
    }
}

TEST_F(Crafted, DecoysDoNotMakeAMessageSlowToRefuse) {
    auto decoySpec = spec_;
    decoySpec.key = tests::TestKey(KeyType::p256, 1);
    MessageParts parts(Sign());
    // Different certificates with one and the same identifier, for as many signers as are read.
    parts.certificates.clear();
    for (std::int64_t i = 0; i < 400; ++i) {
        decoySpec.notAfter = 1'900'000'000 + i;
        parts.certificates.push_back(tests::Issue(decoySpec).Der());
    }
    parts.signers.resize(1000, parts.signers.front());
    const auto start = std::chrono::steady_clock::now();
    EXPECT_FALSE(Verify(parts.Assemble()).valid);
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(10));
    // The same certificate many times is one.
    parts.signers.resize(1);
    parts.certificates.assign(100, signer_.Der());
    EXPECT_TRUE(Verify(parts.Assemble()).valid);
}

// A signer who puts odd things into the signed attributes and signs them properly.
TEST_F(Crafted, SignedAttributesThatContradictThemselvesAreRefused) {
    const auto digestOf = [](std::string_view text, std::size_t size) {
        Bytes digest = platform::Digest(platform::HashAlgorithm::sha256, platform::AsBytes(text));
        digest.resize(size);
        return platform::DerWriter().OctetString(digest).Take();
    };
    const auto time = [](std::string_view text) { return platform::DerWriter().Text(tag::kUtcTime, text).Take(); };
    const auto type = [](std::string_view oid) { return platform::DerWriter().Oid(oid).Take(); };
    using namespace toolkit::cms::oid;
    const Bytes right = Attribute(kMessageDigest, {digestOf("pay 100", 32)}),
                data = Attribute(kContentType, {type(kData)});
    const struct {
        const char* name;
        std::vector<Bytes> attributes;
        bool valid = false;
    } cases[] = {
        {"proper", {data, right, Attribute(kSigningTime, {time("260101000000Z")})}, true},
        {"time with a zone", {data, right, Attribute(kSigningTime, {time("2601010000+0200")})}, true},
        {"of an unknown type twice", {data, right, Attribute("1.2.3.4", {time("x")}), Attribute("1.2.3.4", {})}, true},
        {"two digests", {data, right, Attribute(kMessageDigest, {digestOf("pay 900", 32)})}},
        {"two digests in one", {data, Attribute(kMessageDigest, {digestOf("pay 100", 32), digestOf("x", 32)})}},
        {"the same digest twice", {data, right, right}},
        {"a digest cut short", {data, Attribute(kMessageDigest, {digestOf("pay 100", 31)})}},
        {"a digest with more behind it", {data, Attribute(kMessageDigest, {digestOf("pay 100", 33)})}},
        {"no digest", {data, Attribute(kMessageDigest, {})}},
        {"an empty digest", {data, Attribute(kMessageDigest, {digestOf("", 0)})}},
        {"digest alone", {right}},
        {"two types", {data, Attribute(kContentType, {type(kTstInfo)}), right}},
        {"another type", {Attribute(kContentType, {type(kTstInfo)}), right}},
        {"two times", {data, right, Attribute(kSigningTime, {time("260101000000Z"), time("360101000000Z")})}},
        {"text behind the time", {data, right, Attribute(kSigningTime, {time("260101000000Z\n 1. valid")})}},
    };
    MessageParts parts(Sign());
    for (const auto& [name, attributes, valid] : cases) {
        SetAttributes(parts, attributes);
        const auto verdict = Verify(parts.Assemble());
        EXPECT_EQ(verdict.valid, valid) << name << verdict.log;
        EXPECT_TRUE(verdict.findings.signers.at(0).signatureGood) << name << ": refused for another reason";
    }
}

TEST_F(Crafted, AttributesAreGoodAsStoredOrInDerOrder) {
    MessageParts parts(Sign());
    auto attributes = ElementsOf(parts.signers[0].at(3));
    ASSERT_GE(attributes.size(), 3U);
    // OpenSSL signs DER order; a writer that stores another order signed the same.
    std::swap(attributes.front(), attributes.back());
    auto twice = attributes, less = attributes;
    twice.push_back(attributes.front());
    less.pop_back();
    for (const auto& stored : {attributes, twice, less}) {
        parts.signers[0][3] = Wrap(tag::ContextConstructed(0), stored);
        EXPECT_EQ(Verify(parts.Assemble()).valid, stored == attributes) << stored.size();
    }
}

TEST_F(Crafted, OnlyPaddingMayStandBehindTheMessage) {
    const Bytes message = Sign();
    const std::pair<Bytes, bool> cases[] = {{{0, 0, 0}, true}, {{'\r', '\n'}, true}, {Bytes(9000, 0), true},
                                            {{1}, false},      {{0, 0, 'x'}, false}, {message, false}};
    for (const auto& [behind, valid] : cases) {
        Bytes all = message;
        all.insert(all.end(), behind.begin(), behind.end());
        EXPECT_EQ(Verify(all).valid, valid) << behind.size();
    }
}

TEST_F(Crafted, EveryTextFormOfAMessageIsTheSameMessage) {
    Sign();
    const auto base64 =
        tests::RunProgram({"openssl", "base64", "-in", "message"}, {.folder = profile_.Folder()}).output;
    const std::string crlf = std::regex_replace(base64, std::regex("\n"), "\r\n");
    const std::string cms = "-----BEGIN CMS-----\n" + base64 + "-----END CMS-----";
    for (const auto& text :
         {base64, crlf, "-----BEGIN PKCS7-----\n" + base64 + "-----END PKCS7-----\n", cms,
          "Signed by: me\n" + cms + "\nbye (!)\n", "Content-Type: application/pkcs7-mime; name=x\n\n" + base64})
        EXPECT_TRUE(Verify(platform::AsBytes(text)).valid) << text;
    for (const auto& text : {"*" + base64, base64.substr(0, base64.size() - 30), base64 + "=\nAAAA"})
        EXPECT_FALSE(Verify(platform::AsBytes(text)).valid) << text;
}

// Headers of ContentInfo and SignedData up to encapContentInfo, all of indefinite length, then what is given.
Bytes Hostile(const Bytes& content) {
    Bytes bytes{0x30, 0x80, 6, 9, 0x2A, 0x86, 0x48, 0x86, 0xF7, 0x0D, 1, 7, 2, 0xA0, 0x80, 0x30, 0x80, 2, 1, 1, 0x31, 0,
                0x30, 0x80, 6, 9, 0x2A, 0x86, 0x48, 0x86, 0xF7, 0x0D, 1, 7, 1, 0xA0, 0x80};
    bytes.insert(bytes.end(), content.begin(), content.end());
    return bytes;
}

TEST(VerifyHostile, SizesAndDepthsEndInARefusalAtOnce) {
    const auto times = [](Bytes start, int count, const Bytes& piece) {
        while (count-- > 0)
            start.insert(start.end(), piece.begin(), piece.end());
        return start;
    };
    const std::pair<const char*, Bytes> cases[] = {
        {"content of 2^63 bytes", Hostile({4, 0x88, 0x80, 0, 0, 0, 0, 0, 0, 0, 1})},
        {"content of 2^64-1 bytes", Hostile({4, 0x88, 255, 255, 255, 255, 255, 255, 255, 255})},
        {"content beyond the end", Hostile({4, 0x84, 0x7F, 0xFF, 0xFF, 0xFF, 1})},
        {"pieces 100,000 deep", Hostile(times({}, 100'000, {0x24, 0x80}))},
        {"half a million empty pieces", Hostile(times({0x24, 0x80}, 500'000, {4, 0}))},
        {"signers half a million deep", times(Hostile({0x24, 0x80, 0, 0, 0, 0, 0, 0}), 500'000, {0x31, 0x80})},
        {"a piece longer than its string", Hostile({0x24, 3, 4, 9, 1, 0, 0})},
        {"a piece of another type", Hostile({0x24, 0x80, 2, 1, 1, 0, 0})},
        {"nothing behind the content", Hostile({4, 1, 'x', 0, 0, 0, 0})},
    };
    for (const auto& [name, bytes] : cases) {
        const auto start = std::chrono::steady_clock::now();
        const auto verdict = Verify(bytes);
        EXPECT_FALSE(verdict.valid) << name;
        EXPECT_NE(verdict.log.find("Failed to create PKCS7 from DER."), std::string::npos) << name;
        EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(5)) << name;
    }
}

TEST(OperationLog, AValueCannotLookLikeFurtherLines) {
    toolkit::OperationLog log;
    log.Value("statusString", "no\r\n[2026-01-01] [info] granted\x1b[2J\x7f");
    EXPECT_EQ(log.Text(), "statusString: no  [2026-01-01] [info] granted [2J \r\n");
}

TEST(Algorithms, SchemesFollowTheIdentifiersAndTheirParameters) {
    using enum platform::HashAlgorithm;
    using enum toolkit::cms::SchemeFault;
    const std::string pss = "1.2.840.113549.1.1.10";
    const struct {
        std::string oid;
        platform::HashAlgorithm hash;
        Bytes parameters;
        toolkit::cms::SchemeFault fault;
    } cases[] = {
        {"1.2.840.10045.4.3.2", sha256, {}, none},
        {"1.2.840.10045.4.3.2", sha1, {}, differentDigests},
        {"1.2.840.10040.4.3", sha256, {}, differentDigests},
        {"1.3.101.112", sha512, {}, needsWholeMessage},
        {"1.2.3", sha256, {}, unknownAlgorithm},
        {pss, sha1, {}, badParameters},  // they are not optional here
        {pss, sha1, {0x30, 0}, none},
        {pss, sha256, {0x30, 0}, differentDigests},
        {pss, sha1, {0x30, 5, 0xA3, 3, 2, 1, 2}, badParameters},     // trailer
        {pss, sha1, {0x30, 5, 0xA2, 3, 2, 1, 0xFF}, badParameters},  // negative
        {pss, sha1, {0x30, 2, 5, 0}, badParameters},                 // unknown field
    };
    for (const auto& [oid, hash, parameters, fault] : cases)
        EXPECT_EQ(toolkit::cms::ChooseScheme({oid, parameters}, hash).fault, fault) << oid;
    const auto defaults = toolkit::cms::ChooseScheme({pss, {0x30, 0}}, sha1).scheme;
    EXPECT_EQ(defaults.saltLength, 20U);
    EXPECT_EQ(defaults.mgf1Hash, sha1);
}

}  // namespace
