// What the message service reads of other people's messages and says about their signatures.

#include "platform/Messages.h"

#include "platform/Files.h"
#include "platform/Hash.h"
#include "tests/platform/MessageFixture.h"

namespace {

using namespace platform;
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
}

}  // namespace
