// Content that somebody has digested already is not read again, and nothing else may differ for it.

#include <gtest/gtest.h>

#include "tests/support/Pki.h"
#include "tests/toolkit/PeerMessages.h"
#include "toolkit/ClsBinData.h"
#include "toolkit/ClsCrypt2.h"
#include "toolkit/ClsJsonObject.h"
#include "toolkit/cms/Message.h"

namespace {

using platform::Bytes;
using platform::ByteView;
using toolkit::cms::ContentDigests;

// A message as another service has read it.
class ReadBefore final : public toolkit::cms::ContentReceiver {
  public:
    ReadBefore(ByteView message, const Bytes* data) : data_(data) {
        using enum platform::HashAlgorithm;
        for (const auto algorithm : {md5, sha1, sha256, sha384, sha512})
            EXPECT_TRUE(digests_.Want(algorithm));
        platform::MemorySource source(message);
        readable = ReadSignedData(source, *this, parts_) == toolkit::cms::ReadOutcome::ok;
        if (data != nullptr) digests_.Update(*data);
        digests_.Finish();
    }
    bool Start(const toolkit::cms::SignedDataMessage&) override { return data_ == nullptr; }
    bool Take(ByteView piece) override {
        digests_.Update(piece);
        return true;
    }
    [[nodiscard]] toolkit::cms::DigestedMessage Message() const { return {parts_, digests_, data_ != nullptr}; }

    bool readable = false;

  private:
    const Bytes* data_;
    toolkit::cms::SignedDataMessage parts_;
    toolkit::cms::ContentDigests digests_;
};

struct Answer {
    bool good = false;
    std::string json, log;
};
Answer AnswerOf(const toolkit::ClsCrypt2& crypt, bool good) {
    const auto json = crypt.LastJsonData();
    return {good, json ? json->Emit().value_or("(unemittable)") : "(none)", crypt.LastErrorText()};
}

Answer Whole(const Bytes& message, const Bytes* data) {
    toolkit::ClsCrypt2 crypt;
    if (data != nullptr) {
        crypt.SetCmsOptions(R"({"ValidateTimestampTokens":true})");
        return AnswerOf(crypt, crypt.VerifyBytes(*data, message));
    }
    toolkit::ClsBinData bytes;
    bytes.Replace(Bytes(message));
    return AnswerOf(crypt, crypt.OpaqueVerifyBd(bytes));
}

Answer Digested(const toolkit::cms::DigestedMessage& message) {
    toolkit::ClsCrypt2 crypt;
    if (message.detached) crypt.SetCmsOptions(R"({"ValidateTimestampTokens":true})");
    return AnswerOf(crypt, crypt.VerifyDigested(message));
}

// Whether it is good, by both ways.
bool GoodBothWays(const Bytes& message, const Bytes* data) {
    const ReadBefore read(message, data);
    const auto whole = Whole(message, data);
    if (!read.readable) return false;
    const auto digested = Digested(read.Message());
    EXPECT_EQ(digested.good, whole.good) << whole.log << digested.log;
    EXPECT_EQ(digested.json, whole.json);
    EXPECT_EQ(digested.log.substr(0, digested.log.find("elapsed")), whole.log.substr(0, whole.log.find("elapsed")));
    return whole.good;
}

TEST(VerifyDigested, FindsWhatAWholeReadingFindsInOtherPeoplesMessages) {
    const auto folder = testing_support::Corpora() / "cms";
    if (!std::filesystem::exists(folder)) GTEST_SKIP() << "no corpus beside the source tree";
    int good = 0;
    const Bytes data = testing_support::ReadFile(folder / "pkcs7_data.bin");
    for (const auto& entry : std::filesystem::directory_iterator(folder)) {
        SCOPED_TRACE(entry.path());
        const Bytes message = testing_support::ReadFile(entry.path());
        platform::MemorySource source(message);
        if (message.empty() || toolkit::cms::LooksLikeText(source)) continue;
        good += GoodBothWays(message, nullptr) ? 1 : 0;
        good += GoodBothWays(message, &data) ? 1 : 0;
    }
    EXPECT_GE(good, 20);
}

TEST(VerifyDigested, SeesAChangedContentByItsDigests) {
    const tests::Profile profile;
    testing_support::WritePem(profile, "signer", tests::Issue({.subject = {{"CN", "Иван"}}}));
    profile.Write("content", "The words that count.\n");
    const Bytes message = testing_support::OpenSslSign(profile);
    const Bytes attached = testing_support::OpenSslSign(profile, {"-nodetach"});
    const Bytes data = testing_support::ReadFile(profile.Folder() / "content");
    Bytes other = data;
    other.front() ^= 1;
    EXPECT_TRUE(GoodBothWays(message, &data));
    EXPECT_FALSE(GoodBothWays(message, &other));
    EXPECT_TRUE(GoodBothWays(attached, nullptr));
}

}  // namespace
