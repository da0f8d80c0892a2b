// A message that was damaged in every place in which it can be.

#include "tests/platform/MessageFixture.h"
#include "tests/toolkit/MessageParts.h"

namespace {

using namespace platform;
using tests::Judge;
using tests::Read;

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
        vouched.push_back(testing_support::ElementsOf(signer.certificate.Info().SubjectPublicKeyInfo).at(1));
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
