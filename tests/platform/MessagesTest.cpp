// What the message service reads of other people's messages and says about their signatures.

#include "platform/Messages.h"

#include <algorithm>

#include "platform/Files.h"
#include "platform/Hash.h"
#include "platform/cms/ContentDigests.h"
#include "tests/platform/MessageFixture.h"
#include "tests/support/LastError.h"
#include "tests/toolkit/MessageParts.h"

namespace {

using namespace platform;
using testing_support::ElementsOf;
using testing_support::MessageParts;
using testing_support::Wrap;
using tests::Judge;
using tests::Read;

class Messages : public tests::MessageFixture {};

std::string ContentOf(const CryptMsg& message) {
    return std::string(AsText(CryptMsgGetParam(message, CMSG_CONTENT_PARAM).value_or(Bytes{})));
}

TEST_F(Messages, AttachedAndDetachedSignaturesInDerAndBerAreGood) {
    const auto signer = MakeSigner("signer", tests::KeyType::rsa2048);
    const Bytes content = File("content"), other = CopyOf(AsBytes("pay 900"));
    for (const auto& options : {std::vector<std::string>{"-nodetach"}, {"-nodetach", "-stream"}}) {
        const auto attached = Read(Sign(options));
        EXPECT_EQ(CryptMsgGetParam(attached, CMSG_TYPE_PARAM), CMSG_SIGNED);
        EXPECT_EQ(CryptMsgGetParam(attached, CMSG_INNER_CONTENT_TYPE_PARAM), "1.2.840.113549.1.7.1");
        EXPECT_EQ(ContentOf(attached), "pay 100");
        EXPECT_EQ(CryptMsgGetContentSize(attached), 7U);
        EXPECT_EQ(Judge(attached).status, ERROR_SUCCESS);
        EXPECT_EQ(CopyOf(Judge(attached).certificate.Encoded()), signer.Der());
        EXPECT_EQ(CryptMsgGetParam(attached, CMSG_COMPUTED_HASH_PARAM), Digest(HashAlgorithm::sha256, content));
    }
    // Content that stands inside a message opened as detached is not what the signature is checked against.
    EXPECT_EQ(Judge(Read(Sign({"-nodetach"}), &other)).status, CRYPT_E_HASH_VALUE);
    const auto detached = Read(Sign({}), &content);
    EXPECT_EQ(Judge(detached).status, ERROR_SUCCESS);
    EXPECT_FALSE(CryptMsgGetContentSize(detached).has_value());
    EXPECT_EQ(ContentOf(detached), "");
    EXPECT_EQ(Judge(Read(File("message"), &other)).status, CRYPT_E_HASH_VALUE);
    EXPECT_EQ(Judge(Read(File("message"))).status, CRYPT_E_HASH_VALUE) << "nobody gave the data";
}

TEST_F(Messages, PiecesOfAnySizeMakeTheSameMessage) {
    MakeSigner("signer");
    // Larger than what is kept in memory while it comes in, and of a size that no buffer shares.
    profile_.Write("content", std::string(20'000'003, 'x'));
    const auto feed = [](CryptMsg& message, const Bytes& bytes, std::size_t size, bool final) {
        for (std::size_t at = 0; at < bytes.size(); at += size) {
            const auto piece = ByteView(bytes).subspan(at, std::min(size, bytes.size() - at));
            ASSERT_TRUE(CryptMsgUpdate(message, piece, final && at + size >= bytes.size()));
        }
    };
    auto message = CryptMsgOpenToDecode(tests::kMessageEncoding, 0);
    feed(message, Sign({"-nodetach", "-stream"}), 7'777'777, false);
    EXPECT_FAILS(CryptMsgGetParam(message, CMSG_TYPE_PARAM), CRYPT_E_MSG_ERROR);
    ASSERT_TRUE(CryptMsgUpdate(message, ByteView(), true));
    EXPECT_EQ(CryptMsgGetContentSize(message), 20'000'003U);
    EXPECT_EQ(Judge(message).status, ERROR_SUCCESS);
    EXPECT_FALSE(CryptMsgUpdate(message, ByteView(), true)) << "the message has ended";

    message = CryptMsgOpenToDecode(tests::kMessageEncoding, CMSG_DETACHED_FLAG);
    feed(message, Sign({}), 1, true);
    feed(message, File("content"), 9'000'000, false);
    EXPECT_EQ(Judge(message).status, CRYPT_E_HASH_VALUE) << "the data are not complete";
    ASSERT_TRUE(CryptMsgUpdate(message, ByteView(), true));
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
    const auto make = [&](std::vector<std::string> options) {
        options.insert(options.begin(),
                       {"openssl", "cms", "-in", "content", "-binary", "-outform", "DER", "-out", "m"});
        Run(options);
        return File("m");
    };
    DerWriter both;  // nobody writes these any more
    both.Sequence([&] {
        both.Oid("1.2.840.113549.1.7.4");
        both.Nested(tag::ContextConstructed(0), [&] { both.Sequence([&] { both.Integer(1); }); });
    });
    const Bytes plain = make({"-data_create"});
    const std::pair<Bytes, std::uint32_t> types[] = {
        {plain, CMSG_DATA},
        {make({"-encrypt", "signer.pem"}), CMSG_ENVELOPED},
        {CopyOf(both.View()), CMSG_SIGNED_AND_ENVELOPED},
        {make({"-digest_create"}), CMSG_HASHED},
        {make({"-EncryptedData_encrypt", "-secretkey", "000102030405060708090A0B0C0D0E0F", "-aes128"}), CMSG_ENCRYPTED},
    };
    for (const auto& [bytes, type] : types) {
        const auto message = Read(bytes);
        EXPECT_EQ(CryptMsgGetParam(message, CMSG_TYPE_PARAM), type);
        EXPECT_FAILS(CryptMsgGetParam(message, CMSG_SIGNER_COUNT_PARAM), CRYPT_E_UNEXPECTED_MSG_TYPE);
        EXPECT_EQ(Judge(message).status, CRYPT_E_UNEXPECTED_MSG_TYPE);
        EXPECT_FAILS(Read(ByteView(bytes).first(bytes.size() - 1)), CRYPT_E_ASN1_EOD);
    }
    EXPECT_EQ(ContentOf(Read(plain)), "pay 100");
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
    EXPECT_FAILS(CryptMsgUpdate({}, ByteView(), true), ERROR_INVALID_HANDLE);
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
    EXPECT_FAILS(CryptMsgGetParam(bundle, CMSG_CRL_PARAM, 1), CRYPT_E_INVALID_INDEX);
    const auto store = CertOpenMessageStore(bundle);
    EXPECT_EQ(CertEnumCertificatesInStore(store).size(), 2U);
    EXPECT_EQ(CertEnumCRLsInStore(store).size(), 1U);
    EXPECT_EQ(Judge(bundle).status, CRYPT_E_NO_SIGNER);
}

TEST_F(Messages, TheSignersCertificateIsTheOneWhoseKeySigned) {
    const auto signer = MakeSigner("signer"), impostor = tests::Issue({.key = tests::TestKey(tests::KeyType::p256, 1)});
    MessageParts parts(Sign({"-nodetach"}));
    const auto both = Read(parts.Assemble());
    // Whoever insists on another one learns that it did not sign.
    const auto wrong = CertCreateCertificateContext(impostor.Der());
    const std::pair<CMSG_CTRL_VERIFY_SIGNATURE_EX_PARA, ErrorCode> cases[] = {
        {{.pvSigner = wrong}, TRUST_E_BAD_DIGEST},
        {{}, ERROR_INVALID_PARAMETER},
        {{.dwSignerIndex = 1, .pvSigner = wrong}, CRYPT_E_INVALID_INDEX}};
    for (const auto& [para, error] : cases) {
        EXPECT_FAILS(CryptMsgControl(both, 0, CMSG_CTRL_VERIFY_SIGNATURE_EX, para), error);
    }
    // It may lie elsewhere.
    parts.certificates.clear();
    const auto alone = Read(parts.Assemble());
    EXPECT_EQ(Judge(alone).status, CRYPT_E_SIGNER_NOT_FOUND);
    const auto elsewhere = CertOpenMemoryStore();
    CertAddCertificateContextToStore(elsewhere, CertCreateCertificateContext(signer.Der()), CERT_STORE_ADD_ALWAYS);
    const auto found = CryptMsgGetAndVerifySigner(alone, 0, {CertOpenMessageStore(alone), elsewhere});
    EXPECT_EQ(found.value().status, ERROR_SUCCESS);
}

}  // namespace
