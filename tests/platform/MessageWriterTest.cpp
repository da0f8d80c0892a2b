// Messages that are written again: what was signed keeps its bytes, and other people's programs take the result.

#include <algorithm>

#include "platform/cms/SignedDataWriter.h"
#include "tests/platform/MessageFixture.h"
#include "tests/support/LastError.h"
#include "tests/support/PemFile.h"

namespace {

using namespace platform;
using tests::Judge;
using tests::Read;

bool Holds(const Bytes& whole, ByteView part) {
    return !part.empty() && std::search(whole.begin(), whole.end(), part.begin(), part.end()) != whole.end();
}

class MessageWriter : public tests::MessageFixture {
  protected:
    // The content in a certain form to be found again.
    MessageWriter() : tests::MessageFixture(std::string(100'000, 'c') + "end") {}

    void ExpectOpenSslVerifies(const Bytes& message, const std::vector<std::string>& more, std::size_t signers = 1) {
        profile_.Write("written", AsText(message));
        std::vector<std::string> command{"openssl", "cms",     "-verify", "-noverify",   "-binary", "-inform",    "DER",
                                         "-in",     "written", "-out",    "content.out", "-signer", "signers.out"};
        command.insert(command.end(), more.begin(), more.end());
        Run(command);
        EXPECT_EQ(File("content.out"), File("content"));
        EXPECT_EQ(tests::ReadPemFile(profile_.Folder() / "signers.out").size(), signers);
    }
};

TEST_F(MessageWriter, AnAttachedSignatureBecomesADetachedOneWithTheSameSignerInfo) {
    MakeSigner("signer", tests::KeyType::rsa2048);
    const Bytes content = File("content");
    for (const std::vector<std::string>& options : {std::vector<std::string>{"-nodetach"},
                                                    {"-nodetach", "-stream", "-keyid"},
                                                    {"-nodetach", "-keyopt", "rsa_padding_mode:pss"},
                                                    {"-nodetach", "-noattr", "-md", "sha1"},
                                                    {"-nodetach", "-econtent_type", "1.2.3.4"}}) {
        SCOPED_TRACE(options.back());
        const auto attached = Read(Sign(options));
        CMSG_SIGNED_ENCODE_INFO info;
        info.rgSigners.push_back(CryptMsgGetParam(attached, CMSG_CMS_SIGNER_INFO_PARAM).value());
        const auto type = CryptMsgGetParam(attached, CMSG_INNER_CONTENT_TYPE_PARAM).value();
        const auto write = [&](std::uint32_t flags) {
            auto message = CryptMsgOpenToEncode(tests::kMessageEncoding, flags, CMSG_SIGNED, info, type);
            EXPECT_FAILS(CryptMsgGetParam(message, CMSG_ENCODED_MESSAGE), CRYPT_E_MSG_ERROR) << "no content yet";
            EXPECT_TRUE(CryptMsgUpdate(message, content, true));
            return CryptMsgGetParam(message, CMSG_ENCODED_MESSAGE).value_or(Bytes{});
        };
        const Bytes detached = write(CMSG_DETACHED_FLAG);
        EXPECT_TRUE(Holds(detached, info.rgSigners[0].Encoded));
        EXPECT_LT(detached.size(), 1500U) << "neither content nor certificates";
        ExpectOpenSslVerifies(detached, {"-content", "content", "-certfile", "signer.pem"});
        EXPECT_EQ(Judge(Read(detached, &content)).status, CRYPT_E_SIGNER_NOT_FOUND);

        info.rgCertEncoded = {CryptMsgGetParam(attached, CMSG_CERT_PARAM, 0).value()};
        const Bytes whole = write(0);
        ExpectOpenSslVerifies(whole, {});
        EXPECT_EQ(Judge(Read(whole)).status, ERROR_SUCCESS);
    }
}

TEST_F(MessageWriter, WhatIsNoSignerIsRefused) {
    CMSG_SIGNED_ENCODE_INFO broken;
    broken.rgSigners.emplace_back().Encoded = {tag::kSequence, 0};
    const auto open = [](std::uint32_t type, const CMSG_SIGNED_ENCODE_INFO& info, std::string_view inner) {
        return CryptMsgOpenToEncode(tests::kMessageEncoding, 0, type, info, inner);
    };
    EXPECT_FAILS(open(CMSG_SIGNED, broken, "1.2.3"), CRYPT_E_BAD_ENCODE);
    EXPECT_FAILS(open(CMSG_SIGNED, {}, "no number"), CRYPT_E_BAD_ENCODE);
    EXPECT_FAILS(open(CMSG_ENVELOPED, {}, "1.2.3"), CRYPT_E_UNEXPECTED_MSG_TYPE);
}

// The second signer's SignerInfo comes from a message of its own over the same content.
TEST_F(MessageWriter, AFurtherSignerLeavesTheFirstOnesBytesAlone) {
    MakeSigner("signer", tests::KeyType::rsa2048);
    MakeSigner("second", tests::KeyType::p256);
    for (const auto& options : {std::vector<std::string>{"-nodetach"}, {"-nodetach", "-stream"}}) {
        const Bytes first = Sign(options);
        const auto second = Read(Sign({"-nodetach", "-md", "sha1", "-keyid"}, "second")), read = Read(first);
        const auto parts = CryptMsgGetSignedParts(read), added = CryptMsgGetSignedParts(second);
        ASSERT_TRUE(parts && added);
        MemorySource source(first);
        auto joined = cms::PartsOf(source, parts->message);
        ASSERT_TRUE(joined.has_value());
        cms::AddSigner(*joined, added->signers.at(0));
        for (const auto& message : {second, read})
            cms::AddCertificate(*joined, CryptMsgGetParam(message, CMSG_CERT_PARAM, 0).value());
        Bytes written;
        const auto take = [&](ByteView piece) {
            written.insert(written.end(), piece.begin(), piece.end());
            return true;
        };
        ASSERT_EQ(cms::WriteSignedData(*joined, take), cms::WriteOutcome::ok);
        EXPECT_TRUE(Holds(written, parts->signers.at(0).encoded));
        const auto& content = parts->message.encapContentInfo;
        EXPECT_TRUE(Holds(written, ByteView(first).subspan(content.offset, content.end - content.offset)));
        ExpectOpenSslVerifies(written, {}, 2);
        const auto both = Read(written);
        EXPECT_EQ(CryptMsgGetParam(both, CMSG_CERT_COUNT_PARAM), 2U) << "each certificate once";
        for (const std::uint32_t signer : {0U, 1U})
            EXPECT_EQ(Judge(both, signer).status, ERROR_SUCCESS);
        EXPECT_EQ(CryptMsgGetParam(both, CMSG_CMS_SIGNER_INFO_PARAM, 1).value().dwVersion, 3U);
        EXPECT_EQ(CryptMsgGetSignedParts(both).value().message.version, 3) << "as a signer of version 3 demands";
    }
}

}  // namespace
