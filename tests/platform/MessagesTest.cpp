// What the message service reads of other people's messages and says about their signatures.

#include "platform/Messages.h"

#include <algorithm>

#include "platform/Files.h"
#include "platform/Hash.h"
#include "platform/cms/ContentDigests.h"
#include "tests/platform/MessageFixture.h"
#include "tests/toolkit/MessageParts.h"

namespace {

using namespace platform;
using testing_support::ElementsOf;
using testing_support::MessageParts;
using testing_support::Wrap;
using tests::BytesSource;
using tests::Judge;
using tests::Read;

class Messages : public tests::MessageFixture {};

std::string ContentOf(const CryptMsg& message) {
    return std::string(AsText(CryptMsgGetParam(message, CMSG_CONTENT_PARAM).value_or(Bytes{})));
}

TEST_F(Messages, AttachedAndDetachedSignaturesInDerAndBerAreGood) {
    const auto signer = MakeSigner("signer", tests::KeyType::rsa2048);
    const Bytes content = CopyOf(AsBytes("pay 100"));
    for (const bool stream : {false, true}) {
        std::vector<std::string> options{"-nodetach"};
        if (stream) options.emplace_back("-stream");
        const auto attached = Read(Sign(options));
        EXPECT_EQ(CryptMsgGetParam(attached, CMSG_TYPE_PARAM), CMSG_SIGNED);
        EXPECT_EQ(CryptMsgGetParam(attached, CMSG_INNER_CONTENT_TYPE_PARAM), "1.2.840.113549.1.7.1");
        EXPECT_EQ(ContentOf(attached), "pay 100");
        EXPECT_EQ(CryptMsgGetContentSize(attached), 7U);
        EXPECT_EQ(Judge(attached).status, ERROR_SUCCESS) << stream;
        EXPECT_TRUE(std::ranges::equal(Judge(attached).certificate.Encoded(), signer.Der()));
        EXPECT_EQ(CryptMsgGetParam(attached, CMSG_COMPUTED_HASH_PARAM), Digest(HashAlgorithm::sha256, content));
    }
    const auto detached = Read(Sign({}), &content);
    EXPECT_EQ(Judge(detached).status, ERROR_SUCCESS);
    EXPECT_FALSE(CryptMsgGetContentSize(detached).has_value());
    EXPECT_EQ(GetLastError(), ERROR_SUCCESS);
    EXPECT_EQ(ContentOf(detached), "");
    const Bytes other = CopyOf(AsBytes("pay 900"));
    EXPECT_EQ(Judge(Read(File("message"), &other)).status, CRYPT_E_HASH_VALUE);
    EXPECT_EQ(Judge(Read(File("message"))).status, CRYPT_E_HASH_VALUE) << "nobody gave the data";
    // Content that stands inside a message opened as detached is not what the signature is checked against.
    EXPECT_EQ(Judge(Read(Sign({"-nodetach"}), &other)).status, CRYPT_E_HASH_VALUE);
}

TEST_F(Messages, EachKindOfSignatureIsReadAsItsSignerMadeIt) {
    struct Case {
        tests::KeyType key;
        std::vector<std::string> options;
    };
    const std::vector<Case> cases{
        {tests::KeyType::rsa2048, {"-noattr"}},
        {tests::KeyType::rsa2048, {"-keyid", "-md", "sha512"}},
        {tests::KeyType::rsa2048, {"-keyopt", "rsa_padding_mode:pss", "-md", "sha384"}},
        {tests::KeyType::rsa2048, {"-econtent_type", "1.2.840.113549.1.9.16.1.4"}},
        {tests::KeyType::p256, {"-cades"}},
        {tests::KeyType::p384, {"-md", "sha1", "-stream"}},
    };
    for (const auto& one : cases) {
        SCOPED_TRACE(one.options.front());
        MakeSigner("signer", one.key);
        auto options = one.options;
        options.emplace_back("-nodetach");
        EXPECT_EQ(Judge(Read(Sign(options))).status, ERROR_SUCCESS);
    }
}

TEST_F(Messages, PiecesOfAnySizeMakeTheSameMessage) {
    MakeSigner("signer");
    // Larger than what is kept in memory while it comes in, and of a size that no buffer shares.
    std::string content(20'000'003, 'x');
    profile_.Write("content", content);
    const Bytes attached = Sign({"-nodetach", "-stream"});
    const Bytes detached = Sign({});
    for (const std::size_t size : {std::size_t{1'000'003}, std::size_t{7'777'777}}) {
        auto message = CryptMsgOpenToDecode(tests::kMessageEncoding, 0);
        for (std::size_t at = 0; at < attached.size(); at += size) {
            const auto piece = ByteView(attached).subspan(at, std::min(size, attached.size() - at));
            ASSERT_TRUE(CryptMsgUpdate(message, piece, false));
        }
        EXPECT_FALSE(CryptMsgGetParam(message, CMSG_TYPE_PARAM).has_value());
        EXPECT_EQ(GetLastError(), CRYPT_E_MSG_ERROR);
        ASSERT_TRUE(CryptMsgUpdate(message, ByteView(), true));
        EXPECT_EQ(CryptMsgGetContentSize(message), content.size());
        EXPECT_EQ(Judge(message).status, ERROR_SUCCESS);
        EXPECT_FALSE(CryptMsgUpdate(message, ByteView(), true)) << "the message has ended";
    }
    auto message = CryptMsgOpenToDecode(tests::kMessageEncoding, CMSG_DETACHED_FLAG);
    for (std::size_t at = 0; at < detached.size(); ++at) {
        ASSERT_TRUE(CryptMsgUpdate(message, ByteView(detached).subspan(at, 1), at + 1 == detached.size()));
    }
    ASSERT_TRUE(CryptMsgUpdate(message, AsBytes(content).first(5), false));
    EXPECT_EQ(Judge(message).status, CRYPT_E_HASH_VALUE) << "the data are not complete";
    ASSERT_TRUE(CryptMsgUpdate(message, AsBytes(content).subspan(5), true));
    EXPECT_EQ(Judge(message).status, ERROR_SUCCESS);
}

// Counts what is read of the content; changes or ends when told.
class WatchedSource final : public ByteSource {
  public:
    explicit WatchedSource(Bytes bytes) : bytes_(std::move(bytes)) {}
    [[nodiscard]] std::uint64_t Size() const override { return bytes_.size(); }
    std::optional<ByteView> View(std::uint64_t offset, std::size_t, std::uint64_t most) override {
        if (offset >= end) {
            SetLastError(ERROR_HANDLE_EOF);
            return std::nullopt;
        }
        const auto size = static_cast<std::size_t>(std::min<std::uint64_t>({most, bytes_.size() - offset, 4096}));
        read += size;
        return ByteView(bytes_).subspan(static_cast<std::size_t>(offset), size);
    }
    std::uint64_t read = 0, end = UINT64_MAX;

  private:
    Bytes bytes_;
};

TEST_F(Messages, TheContentIsReadOnceForAllWhoAsk) {
    MakeSigner("signer");
    const std::size_t size = 1'000'000;
    profile_.Write("content", std::string(size, 'y'));
    const auto source = std::make_shared<WatchedSource>(Sign({"-nodetach", "-md", "sha512"}));
    auto message = CryptMsgOpenToDecode(tests::kMessageEncoding, 0);
    ASSERT_TRUE(CryptMsgUpdate(message, source));
    EXPECT_LT(source->read, 50'000U) << "the structure alone is asked for";
    std::size_t seen = 0;
    // A sink that gives up spoils nothing.
    EXPECT_FALSE(CryptMsgReadContent(message, [&](ByteView) { return false; }));
    EXPECT_EQ(GetLastError(), ERROR_CANCELLED);
    ASSERT_TRUE(CryptMsgReadContent(message, [&](ByteView piece) { return (seen += piece.size()) > 0; }));
    EXPECT_EQ(seen, size);
    source->end = 0;  // what is not known by now cannot be had any more
    EXPECT_EQ(Judge(message).status, ERROR_SUCCESS);
    EXPECT_EQ(CryptMsgGetParam(message, CMSG_COMPUTED_HASH_PARAM).value_or(Bytes{}).size(), 64U);
    const auto parts = CryptMsgGetSignedParts(message);
    ASSERT_TRUE(parts.has_value());
    EXPECT_TRUE(parts->hasContent);
    EXPECT_EQ(parts->digests.Of(HashAlgorithm::sha512).size(), 64U);
}

TEST_F(Messages, ASourceThatEndsEarlyIsNoGoodSignature) {
    MakeSigner("signer");
    profile_.Write("content", std::string(100'000, 'z'));
    for (const bool detached : {false, true}) {
        auto message = CryptMsgOpenToDecode(tests::kMessageEncoding, detached ? CMSG_DETACHED_FLAG : 0);
        std::shared_ptr<WatchedSource> source;
        if (detached) {
            ASSERT_TRUE(CryptMsgUpdate(message, Sign({}), true));
            source = std::make_shared<WatchedSource>(File("content"));
        } else {
            source = std::make_shared<WatchedSource>(Sign({"-nodetach"}));
        }
        ASSERT_TRUE(CryptMsgUpdate(message, source));
        source->end = 50'000;
        EXPECT_EQ(Judge(message).status, ERROR_HANDLE_EOF) << detached;
        source->end = UINT64_MAX;
        EXPECT_EQ(Judge(message).status, ERROR_SUCCESS) << detached;
    }
}

TEST_F(Messages, EveryTypeIsToldAndOnlySignedOnesHaveSigners) {
    MakeSigner("signer", tests::KeyType::rsa2048);
    Run({"openssl", "cms", "-data_create", "-in", "content", "-binary", "-outform", "DER", "-out", "plain"});
    Run({"openssl", "cms", "-digest_create", "-in", "content", "-binary", "-outform", "DER", "-out", "hashed"});
    Run({"openssl", "cms", "-EncryptedData_encrypt", "-secretkey", "000102030405060708090A0B0C0D0E0F", "-aes128", "-in",
         "content", "-binary", "-outform", "DER", "-out", "encrypted"});
    Run({"openssl", "cms", "-encrypt", "-in", "content", "-binary", "-outform", "DER", "-out", "enveloped",
         "signer.pem"});
    DerWriter both;  // nobody writes these any more
    both.Sequence([&] {
        both.Oid("1.2.840.113549.1.7.4");
        both.Nested(tag::ContextConstructed(0), [&] { both.Sequence([&] { both.Integer(1); }); });
    });
    profile_.Write("both", AsText(both.View()));
    const std::vector<std::pair<const char*, std::uint32_t>> types{{"plain", CMSG_DATA},
                                                                   {"enveloped", CMSG_ENVELOPED},
                                                                   {"both", CMSG_SIGNED_AND_ENVELOPED},
                                                                   {"hashed", CMSG_HASHED},
                                                                   {"encrypted", CMSG_ENCRYPTED}};
    for (const auto& [name, type] : types) {
        SCOPED_TRACE(name);
        const Bytes bytes = File(name);
        const auto message = Read(bytes);
        EXPECT_EQ(CryptMsgGetParam(message, CMSG_TYPE_PARAM), type);
        EXPECT_FALSE(CryptMsgGetParam(message, CMSG_SIGNER_COUNT_PARAM).has_value());
        EXPECT_EQ(GetLastError(), CRYPT_E_UNEXPECTED_MSG_TYPE);
        EXPECT_EQ(Judge(message).status, CRYPT_E_UNEXPECTED_MSG_TYPE);
        EXPECT_FALSE(Read(ByteView(bytes).first(bytes.size() - 1)));
        EXPECT_EQ(GetLastError(), CRYPT_E_ASN1_EOD);
    }
    EXPECT_EQ(ContentOf(Read(File("plain"))), "pay 100");
}

TEST_F(Messages, WhatIsNoMessageSaysWhy) {
    MakeSigner("signer");
    const Bytes good = Sign({"-nodetach"});
    const auto failure = [](ByteView bytes) { return Read(bytes) ? ERROR_SUCCESS : GetLastError(); };
    EXPECT_EQ(failure({}), CRYPT_E_ASN1_EOD);
    EXPECT_EQ(failure(AsBytes("-----BEGIN PKCS7-----")), CRYPT_E_ASN1_BADTAG);
    Bytes padded = good, followed = good;
    padded.insert(padded.end(), {0, 0, '\r', '\n'});
    EXPECT_EQ(failure(padded), ERROR_SUCCESS);
    followed.push_back('x');
    EXPECT_EQ(failure(followed), CRYPT_E_BAD_ENCODE);
    DerWriter other;
    other.Sequence([&] {
        other.Oid("1.2.3");
        other.Nested(tag::ContextConstructed(0), [&] { other.Null(); });
    });
    EXPECT_EQ(failure(other.View()), CRYPT_E_UNEXPECTED_MSG_TYPE);
    MessageParts noOctets(good);
    noOctets.fields[2] = Wrap(tag::kSequence, {ElementsOf(noOctets.fields[2]).at(0),
                                               Wrap(tag::ContextConstructed(0), {Wrap(tag::kSequence, {})})});
    EXPECT_EQ(failure(noOctets.Assemble()), CRYPT_E_BAD_ENCODE) << "data that are no octets";
    MessageParts huge(good);
    huge.certificates.clear();
    Bytes endless{tag::ContextConstructed(0), 0x80};
    for (int i = 0; i < 9 << 20; ++i)
        endless.insert(endless.end(), {tag::kNull, 0});
    endless.insert(endless.end(), {0, 0});
    huge.fields.push_back(std::move(endless));
    EXPECT_EQ(failure(huge.Assemble()), ERROR_FILE_INVALID) << "certificates of 18 MiB";
    EXPECT_FALSE(CryptMsgOpenToDecode(X509_ASN_ENCODING, 0));
    EXPECT_FALSE(CryptMsgUpdate({}, ByteView(), true));
    EXPECT_EQ(GetLastError(), ERROR_INVALID_HANDLE);
}

TEST_F(Messages, ABundleWithoutSignersGivesItsCertificatesAndLists) {
    const auto root = tests::Issue({.subject = {{"CN", "Root"}}, .ca = true});
    const auto leaf = tests::Issue({.subject = {{"CN", "Leaf"}}}, root);
    profile_.Write("certificates.pem", leaf.Pem() + root.Pem());
    profile_.Write("list.pem", tests::PemOf("X509 CRL", tests::MakeCrl(root)));
    Run({"openssl", "crl2pkcs7", "-in", "list.pem", "-certfile", "certificates.pem", "-outform", "DER", "-out",
         "bundle"});
    const auto bundle = Read(File("bundle"));
    EXPECT_EQ(CryptMsgGetParam(bundle, CMSG_SIGNER_COUNT_PARAM), 0U);
    EXPECT_EQ(CryptMsgGetParam(bundle, CMSG_CERT_COUNT_PARAM), 2U);
    EXPECT_EQ(CryptMsgGetParam(bundle, CMSG_CERT_PARAM, 1), root.Der());
    EXPECT_EQ(CryptMsgGetParam(bundle, CMSG_CRL_COUNT_PARAM), 1U);
    EXPECT_FALSE(CryptMsgGetParam(bundle, CMSG_CRL_PARAM, 1).has_value());
    EXPECT_EQ(GetLastError(), CRYPT_E_INVALID_INDEX);
    const auto store = CertOpenMessageStore(bundle);
    EXPECT_EQ(CertEnumCertificatesInStore(store).size(), 2U);
    EXPECT_EQ(CertEnumCRLsInStore(store).size(), 1U);
    EXPECT_EQ(Judge(bundle).status, CRYPT_E_NO_SIGNER);
}

TEST_F(Messages, TheSignersCertificateIsTheOneWhoseKeySigned) {
    const auto signer = tests::Issue({.subject = {{"CN", "Signer"}}, .serial = {7}});
    const auto impostor =
        tests::Issue({.subject = {{"CN", "Signer"}}, .serial = {7}, .key = tests::TestKey(tests::KeyType::rsa2048, 1)});
    WriteSigner("signer", signer);
    MessageParts parts(Sign({"-nodetach"}));
    parts.certificates = {impostor.Der(), signer.Der(), signer.Der()};
    const auto both = Read(parts.Assemble());
    EXPECT_EQ(Judge(both).status, ERROR_SUCCESS);
    EXPECT_TRUE(std::ranges::equal(Judge(both).certificate.Encoded(), signer.Der()));
    // Whoever insists on the other one learns that it did not sign.
    const auto wrong = CertCreateCertificateContext(impostor.Der());
    EXPECT_FALSE(CryptMsgControl(both, 0, CMSG_CTRL_VERIFY_SIGNATURE_EX, {.pvSigner = wrong}));
    EXPECT_EQ(GetLastError(), TRUST_E_BAD_DIGEST);
    EXPECT_FALSE(CryptMsgControl(both, 0, CMSG_CTRL_VERIFY_SIGNATURE_EX, {}));
    EXPECT_EQ(GetLastError(), ERROR_INVALID_PARAMETER);
    EXPECT_FALSE(CryptMsgControl(both, 0, CMSG_CTRL_VERIFY_SIGNATURE_EX, {.dwSignerIndex = 1, .pvSigner = wrong}));
    EXPECT_EQ(GetLastError(), CRYPT_E_INVALID_INDEX);

    parts.certificates = {impostor.Der()};
    EXPECT_EQ(Judge(Read(parts.Assemble())).status, TRUST_E_BAD_DIGEST);
    parts.certificates.clear();
    const auto alone = Read(parts.Assemble());
    EXPECT_FALSE(Judge(alone).certificate);
    EXPECT_EQ(Judge(alone).status, CRYPT_E_SIGNER_NOT_FOUND);
    // It may lie elsewhere.
    const auto elsewhere = CertOpenMemoryStore();
    CertAddCertificateContextToStore(elsewhere, CertCreateCertificateContext(signer.Der()), CERT_STORE_ADD_ALWAYS);
    const auto found = CryptMsgGetAndVerifySigner(alone, 0, {CertOpenMessageStore(alone), elsewhere});
    EXPECT_EQ(found.value().status, ERROR_SUCCESS);
}

TEST_F(Messages, ACertificateThatDiffersInOneByteIsNotTheReferencedOne) {
    MakeSigner("signer", tests::KeyType::rsa2048);
    MessageParts parts(Sign({"-nodetach", "-cades"}));
    const Bytes genuine = parts.certificates.at(0);
    Bytes altered = genuine;
    altered.back() ^= 1;  // in the issuer's signature: the key is the same
    parts.certificates = {altered, genuine};
    EXPECT_TRUE(std::ranges::equal(Judge(Read(parts.Assemble())).certificate.Encoded(), genuine));
    parts.certificates = {altered};
    EXPECT_EQ(Judge(Read(parts.Assemble())).status, TRUST_E_BAD_DIGEST);
}

TEST_F(Messages, AttributesInAnotherOrderThanDerAreStillSigned) {
    MakeSigner("signer");
    MessageParts parts(Sign({"-nodetach"}));
    auto attributes = ElementsOf(parts.signers[0].at(3));
    std::rotate(attributes.begin(), attributes.begin() + 1, attributes.end());
    parts.signers[0][3] = Wrap(tag::ContextConstructed(0), attributes);
    const auto message = Read(parts.Assemble());
    EXPECT_EQ(Judge(message).status, ERROR_SUCCESS);
    const auto read = CryptMsgGetParam(message, CMSG_SIGNER_AUTH_ATTR_PARAM).value_or(CRYPT_ATTRIBUTES{});
    ASSERT_EQ(read.size(), attributes.size());
    EXPECT_EQ(read.back().pszObjId, "1.2.840.113549.1.9.3") << "the order of the message";
}

TEST_F(Messages, SignaturesThatProveNothingAreBad) {
    MakeSigner("signer", tests::KeyType::rsa2048);
    const Bytes withAttributes = Sign({"-nodetach"}), without = Sign({"-nodetach", "-noattr"});
    ASSERT_EQ(Judge(Read(without)).status, ERROR_SUCCESS);
    const auto status = [](const Bytes& message, auto change) {
        MessageParts parts(message);
        change(parts, parts.signers[0]);
        return Judge(Read(parts.Assemble())).status;
    };
    DerWriter sha1, unknown;
    sha1.AlgorithmWithNull(OidOf(HashAlgorithm::sha1));
    unknown.AlgorithmWithNull("1.2.3.4");
    // Another digest algorithm than the one inside the signature, and ones that nobody knows.
    EXPECT_EQ(status(without, [&](auto&, auto& signer) { signer[2] = sha1.Take(); }), TRUST_E_BAD_DIGEST);
    for (const std::size_t field : {2, 4}) {
        EXPECT_EQ(status(withAttributes, [&](auto&, auto& signer) { signer[field] = CopyOf(unknown.View()); }),
                  TRUST_E_BAD_DIGEST);
    }
    // messageDigest doubled, missing, or of other content.
    EXPECT_EQ(status(withAttributes,
                     [](auto&, auto& signer) {
                         auto attributes = ElementsOf(signer[3]);
                         attributes.push_back(attributes.back());
                         signer[3] = Wrap(tag::ContextConstructed(0), attributes);
                     }),
              TRUST_E_BAD_DIGEST);
    EXPECT_EQ(status(withAttributes,
                     [](auto&, auto& signer) {
                         signer[3] = Wrap(tag::ContextConstructed(0), {ElementsOf(signer[3]).at(0)});
                     }),
              TRUST_E_BAD_DIGEST);
    EXPECT_EQ(status(withAttributes,
                     [](auto& parts, auto&) { parts.SetContent("1.2.840.113549.1.7.1", AsBytes("pay 900")); }),
              CRYPT_E_HASH_VALUE);
    // Without attributes the value itself tells.
    EXPECT_EQ(status(without, [](auto& parts, auto&) { parts.SetContent("1.2.840.113549.1.7.1", AsBytes("pay 900")); }),
              TRUST_E_BAD_DIGEST);
    // The signature moved from the attributes to content that is these attributes.
    EXPECT_EQ(status(withAttributes,
                     [](auto& parts, auto& signer) {
                         Bytes attributes = signer[3];
                         attributes[0] = tag::kSet;
                         parts.SetContent("1.2.840.113549.1.7.1", attributes);
                         signer.erase(signer.begin() + 3);
                     }),
              TRUST_E_BAD_DIGEST);
    MessageParts empty(withAttributes);
    empty.signers[0][3] = Wrap(tag::ContextConstructed(0), {});
    EXPECT_FALSE(Read(empty.Assemble()));
    EXPECT_EQ(GetLastError(), CRYPT_E_BAD_ENCODE);
}

}  // namespace
