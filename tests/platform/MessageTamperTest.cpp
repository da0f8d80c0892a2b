// Messages that were damaged in every place in which they can be.

#include <algorithm>
#include <set>

#include "tests/platform/MessageFixture.h"
#include "tests/toolkit/MessageParts.h"

namespace {

using namespace platform;
using tests::Judge;
using tests::Read;

class MessageTamper : public tests::MessageFixture {
  protected:
    MessageTamper() : tests::MessageFixture("pay 100") {}
};

// What a signature vouches for, as the message says it.
struct Vouched {
    std::optional<Bytes> content;
    std::vector<Bytes> attributes;
    Bytes key;
    friend bool operator==(const Vouched&, const Vouched&) = default;
};

Vouched VouchedOf(const CryptMsg& message) {
    Vouched vouched;
    vouched.content = CryptMsgGetParam(message, CMSG_CONTENT_PARAM);
    for (const auto& attribute : CryptMsgGetParam(message, CMSG_SIGNER_AUTH_ATTR_PARAM).value_or(CRYPT_ATTRIBUTES{})) {
        vouched.attributes.push_back(CopyOf(AsBytes(attribute.pszObjId)));
        vouched.attributes.insert(vouched.attributes.end(), attribute.rgValue.begin(), attribute.rgValue.end());
    }
    if (const auto signer = Judge(message); signer.certificate) {
        // Without the algorithm beside it, which nobody but the certificate's issuer signed.
        vouched.key = testing_support::ElementsOf(signer.certificate.Info().SubjectPublicKeyInfo).at(1);
    }
    return vouched;
}

template <typename Reader>
void FlipEveryBit(Bytes bytes, const Vouched& genuine, Reader read) {
    int good = 0;
    for (std::size_t at = 0; at < bytes.size() * 8; ++at) {
        const auto mask = static_cast<std::uint8_t>(1U << (at % 8));
        bytes[at / 8] ^= mask;
        SetLastError(ERROR_SUCCESS);
        const CryptMsg message = read(bytes);
        const auto status = Judge(message).status;
        if (!message) {
            EXPECT_NE(status, ERROR_SUCCESS) << at;
        } else if (status == ERROR_SUCCESS) {
            ++good;
            EXPECT_EQ(VouchedOf(message), genuine) << "bit " << at;
        }
        bytes[at / 8] ^= mask;
    }
    // Versions, hints where to look, the certificate's own signature: nobody signed them.
    EXPECT_GT(good, 0);
}

TEST_F(MessageTamper, NoFlippedBitChangesWhatAGoodSignatureVouchesFor) {
    MakeSigner("signer", tests::KeyType::rsa2048);
    const Bytes content = File("content");
    for (const auto& options : std::vector<std::vector<std::string>>{{"-nosmimecap"}, {"-noattr"}}) {
        auto attachedOptions = options;
        attachedOptions.emplace_back("-nodetach");
        const Bytes attached = Sign(attachedOptions);
        FlipEveryBit(attached, VouchedOf(Read(attached)), [](const Bytes& bytes) { return Read(bytes); });
        const Bytes detached = Sign(options);
        const auto vouched = VouchedOf(Read(detached, &content));
        FlipEveryBit(detached, vouched, [&](const Bytes& bytes) { return Read(bytes, &content); });
        Bytes data = content;
        for (std::size_t bit = 0; bit < data.size() * 8; ++bit) {
            data[bit / 8] ^= static_cast<std::uint8_t>(1U << (bit % 8));
            EXPECT_NE(Judge(Read(detached, &data)).status, ERROR_SUCCESS) << bit;
            data[bit / 8] ^= static_cast<std::uint8_t>(1U << (bit % 8));
        }
    }
}

TEST_F(MessageTamper, NoCutMessageIsRead) {
    MakeSigner("signer");
    const std::set<ErrorCode> codes{CRYPT_E_ASN1_EOD, CRYPT_E_ASN1_BADTAG, CRYPT_E_BAD_ENCODE};
    for (const auto& options : std::vector<std::vector<std::string>>{{"-nodetach"}, {"-nodetach", "-stream"}}) {
        const Bytes whole = Sign(options);
        for (std::size_t size = 0; size < whole.size(); ++size) {
            SetLastError(ERROR_SUCCESS);
            ASSERT_FALSE(Read(ByteView(whole).first(size))) << size;
            EXPECT_TRUE(codes.contains(GetLastError())) << size << ' ' << GetLastError();
        }
    }
}

}  // namespace
