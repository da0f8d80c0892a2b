// What the message service reads of other people's messages and says about their signatures.

#include "platform/Messages.h"

#include <algorithm>

#include "platform/Files.h"
#include "platform/Hash.h"
#include "platform/cms/ContentDigests.h"
#include "tests/platform/DerPieces.h"
#include "tests/platform/MessageFixture.h"
#include "tests/support/LastError.h"
#include "tests/toolkit/MessageParts.h"

namespace {

using namespace platform;
using testing_support::ElementsOf;
using testing_support::MessageParts;
using testing_support::Wrap;
using tests::Joined;
using tests::Judge;
using tests::Read;

class Messages : public tests::MessageFixture {};

// ContentInfo around anything.
Bytes Typed(std::string_view type, const Bytes& content) {
    return Wrap(tag::kSequence, {DerWriter().Oid(type).Take(), Wrap(tag::ContextConstructed(0), {content})});
}
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
        const Bytes signature = Sign({detached ? "-binary" : "-nodetach"});
        ASSERT_TRUE(!detached || CryptMsgUpdate(message, signature, true));
        const auto source = std::make_shared<WatchedSource>(detached ? File("content") : signature);
        ASSERT_TRUE(CryptMsgUpdate(message, source));
        for (const auto& [end, status] :
             {std::pair(std::uint64_t{50'000}, ERROR_HANDLE_EOF), {UINT64_MAX, ERROR_SUCCESS}}) {
            source->end = end;
            EXPECT_EQ(Judge(message).status, status) << detached;
        }
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
    const Bytes plain = make({"-data_create"});
    const std::pair<Bytes, std::uint32_t> types[] = {
        {plain, CMSG_DATA},
        {make({"-encrypt", "signer.pem"}), CMSG_ENVELOPED},
        {Typed("1.2.840.113549.1.7.4", Wrap(tag::kSequence, {{2, 1, 1}})), CMSG_SIGNED_AND_ENVELOPED},  // long unused
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
    EXPECT_TRUE(Read(Joined({good, {0, 0, '\r', '\n'}})));
    EXPECT_FAILS(Read({}), CRYPT_E_ASN1_EOD);
    EXPECT_FAILS(Read(AsBytes("-----BEGIN PKCS7-----")), CRYPT_E_ASN1_BADTAG);
    EXPECT_FAILS(Read(Joined({good, {'x'}})), CRYPT_E_BAD_ENCODE);
    EXPECT_FAILS(Read(Typed("1.2.3", {tag::kNull, 0})), CRYPT_E_UNEXPECTED_MSG_TYPE);
    MessageParts noOctets(good);
    noOctets.fields[2] = Wrap(tag::kSequence, {ElementsOf(noOctets.fields[2]).at(0),
                                               Wrap(tag::ContextConstructed(0), {Wrap(tag::kSequence, {})})});
    EXPECT_FAILS(Read(noOctets.Assemble()), CRYPT_E_BAD_ENCODE) << "data that are no octets";
    MessageParts huge(good);
    huge.certificates.clear();
    Bytes nulls(std::size_t{18} << 20);
    for (std::size_t i = 0; i < nulls.size(); i += 2)
        nulls[i] = tag::kNull;
    huge.fields.push_back(Joined({{tag::ContextConstructed(0), 0x80}, nulls, {0, 0}}));
    EXPECT_FAILS(Read(huge.Assemble()), ERROR_FILE_INVALID) << "certificates of 18 MiB";
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

// --- Damaged in every place in which it can be ---

class MessageTamper : public tests::MessageFixture {};

// What a signature vouches for, as the message says it: content, attributes, and the signer's key.
std::vector<Bytes> VouchedBy(const CryptMsg& message) {
    std::vector<Bytes> vouched{CryptMsgGetParam(message, CMSG_CONTENT_PARAM).value_or(Bytes())};
    for (const auto& attribute : CryptMsgGetParam(message, CMSG_SIGNER_AUTH_ATTR_PARAM).value_or(CRYPT_ATTRIBUTES{})) {
        vouched.push_back(CopyOf(AsBytes(attribute.pszObjId)));
        vouched.insert(vouched.end(), attribute.rgValue.begin(), attribute.rgValue.end());
    }
    // Without the algorithm beside it, which nobody but the certificate's issuer signed.
    if (const auto signer = Judge(message); signer.certificate)
        vouched.push_back(ElementsOf(signer.certificate.Info().SubjectPublicKeyInfo).at(1));
    return vouched;
}

// The message, or what it is a signature over, with each of its bits turned. Answers how often it stayed good.
template <typename Reader>
int FlipEveryBit(Bytes bytes, Reader read) {
    const auto genuine = VouchedBy(read(bytes));
    int good = 0;
    for (std::size_t bit = 0; bit < bytes.size() * 8; ++bit) {
        bytes[bit / 8] ^= static_cast<std::uint8_t>(1U << (bit % 8));
        const CryptMsg message = read(bytes);
        if (Judge(message).status == ERROR_SUCCESS) {
            ++good;
            EXPECT_EQ(VouchedBy(message), genuine) << "bit " << bit;
        }
        bytes[bit / 8] ^= static_cast<std::uint8_t>(1U << (bit % 8));
    }
    return good;
}

TEST_F(MessageTamper, NoFlippedBitChangesWhatAGoodSignatureVouchesFor) {
    MakeSigner("signer", tests::KeyType::rsa2048);
    const Bytes content = File("content");
    for (const std::string form : {"-nosmimecap", "-noattr"}) {
        const Bytes attached = Sign({form, "-nodetach"}), detached = Sign({form});
        // Versions, hints where to look, the certificate's own signature: nobody signed them.
        EXPECT_GT(FlipEveryBit(attached, [](const Bytes& bytes) { return Read(bytes); }), 0);
        EXPECT_GT(FlipEveryBit(detached, [&](const Bytes& bytes) { return Read(bytes, &content); }), 0);
        EXPECT_EQ(FlipEveryBit(content, [&](const Bytes& bytes) { return Read(detached, &bytes); }), 0);
    }
}

TEST_F(MessageTamper, NoCutMessageIsRead) {
    MakeSigner("signer");
    for (const auto& options : {std::vector<std::string>{"-nodetach"}, {"-nodetach", "-stream"}}) {
        const Bytes whole = Sign(options);
        for (std::size_t size = 0; size < whole.size(); ++size) {
            SetLastError(ERROR_SUCCESS);
            ASSERT_FALSE(Read(ByteView(whole).first(size))) << size;
            ASSERT_NE(GetLastError(), ERROR_SUCCESS) << size;
        }
    }
}

}  // namespace
