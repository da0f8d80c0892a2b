// What is sent to a timestamp authority, and how its answers are read.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <set>

#include "platform/formats/DerWriter.h"
#include "tests/support/Process.h"
#include "tests/toolkit/SignFixture.h"
#include "toolkit/cms/TimestampReply.h"
#include "toolkit/cms/TimestampRequest.h"

namespace {

using namespace tests;
using testing::ElementsAre;
using testing::HasSubstr;
using toolkit::cms::DecodeTimestampReply;
using toolkit::cms::TimestampRequest;

TEST(TimestampRequest, HasTheFieldsInTheirOrder) {
    TimestampRequest request;
    request.imprint = Bytes(32, 7);
    EXPECT_EQ(Shape(EncodeTimestampRequest(request)),
              "S(int 01 S(S(2.16.840.1.101.3.4.2.1 null) octets 32) boolean 00)");
    request = {.hash = platform::HashAlgorithm::sha1,
               .imprint = Bytes(20, 7),
               .policyOid = "1.2.3.4",
               .nonce = Bytes(12, 0x11),
               .certReq = true};
    const Bytes full = EncodeTimestampRequest(request);
    EXPECT_EQ(Shape(full),
              "S(int 01 S(S(1.3.14.3.2.26 null) octets 20) 1.2.3.4 int 111111111111111111111111 boolean FF)");
    request.policyOid = "policy";
    EXPECT_TRUE(EncodeTimestampRequest(request).empty());

    const auto peer = RunProgram({"openssl", "ts", "-query", "-in", "/dev/stdin", "-text"},
                                 {.input = std::string(platform::AsText(full))});
    EXPECT_THAT(peer.output, HasSubstr("Nonce: 0x111111111111111111111111")) << peer.Summary();
    EXPECT_THAT(peer.output, HasSubstr("Certificate required: yes"));
}

TEST(TimestampRequest, NonceIsAPositiveNumberOfTwelveBytes) {
    std::set<std::string> seen;
    for (int i = 0; i < 3000; ++i) {
        const Bytes nonce = toolkit::cms::MakeTimestampNonce();
        ASSERT_EQ(nonce.size(), 12u);
        ASSERT_TRUE(nonce.front() >= 1 && nonce.front() <= 0x7F);
        ASSERT_TRUE(seen.insert(Hex(nonce)).second);
    }
}

// PKIStatusInfo and, if given, something in the place of the token.
Bytes Reply(std::uint64_t status, const Bytes& failInfo, bool withToken) {
    platform::DerWriter out;
    out.Sequence([&] {
        out.Sequence([&] {
            out.Integer(status);
            out.Sequence([&] { out.Text(platform::tag::kUtf8String, "не сега"); });
            if (!failInfo.empty()) out.Value(platform::tag::kBitString, failInfo);
        });
        if (withToken) out.Sequence([&] { out.Integer(5); });
    });
    return out.Take();
}

TEST(TimestampReply, TellsStatusReasonsAndToken) {
    const auto granted = DecodeTimestampReply(Reply(1, {}, true));
    ASSERT_TRUE(granted);
    EXPECT_TRUE(granted->Granted());
    EXPECT_THAT(granted->token, ElementsAre(0x30, 3, 2, 1, 5));

    // badAlg, timeNotAvailable, unacceptedPolicy and a bit that nobody defined.
    const auto refused = DecodeTimestampReply(Reply(2, {4, 0x80, 0x03, 0x10}, false));
    ASSERT_TRUE(refused);
    EXPECT_FALSE(refused->Granted());
    EXPECT_TRUE(refused->token.empty());
    EXPECT_THAT(refused->failures, ElementsAre("badAlg", "timeNotAvailable", "unacceptedPolicy", "bit 19"));
    EXPECT_THAT(refused->texts, ElementsAre("не сега"));

    for (const std::int64_t status : {-1, 6})
        EXPECT_EQ(toolkit::cms::PkiStatusName(status), "unknown");
}

TEST(TimestampReply, RefusesWhatIsCutOrNotAReply) {
    const Bytes whole = Reply(0, {0, 0x80}, true);
    ASSERT_TRUE(DecodeTimestampReply(whole));
    for (std::size_t size = 0; size < whole.size(); ++size)
        EXPECT_FALSE(DecodeTimestampReply(platform::ByteView(whole).first(size))) << size;
    Bytes longer = whole;
    longer.push_back(0);
    EXPECT_FALSE(DecodeTimestampReply(longer));
    EXPECT_FALSE(DecodeTimestampReply(platform::AsBytes("<html>no such page</html>")));
}

}  // namespace
