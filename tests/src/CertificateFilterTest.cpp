#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "crypt/CryptCertificate.h"
#include "platform/Text.h"
#include "src/certificates/Request.h"
#include "tests/support/Pki.h"

namespace {

using certificates::Gather;
using certificates::ReadRequest;
using testing::ElementsAre;
using testing::IsEmpty;
using tests::Certificate;
using tests::Issue;
using tests::kDay;
using tests::KeyType;
using tests::TestKey;

std::string Lower(std::string text) {
    for (char& c : text)
        c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return text;
}

class CertificateFilterTest : public testing::Test {
  protected:
    const std::time_t now_ = std::time(nullptr);
    tests::Profile profile_;
    const Certificate ca_ = Issue({.subject = {{"CN", "CA"}}, .key = TestKey(KeyType::p256), .ca = true});
    const Certificate issued_ = Issue({.subject = {{"CN", "issued"}}, .key = TestKey(KeyType::p256, 1)}, ca_);
    const Certificate bare_ = Issue({.subject = {{"CN", "bare"}},
                                     .key = TestKey(KeyType::p256, 2),
                                     .subjectKeyId = false,
                                     .authorityKeyId = false});
    const Certificate expired_ =
        Issue({.subject = {{"CN", "expired"}}, .notBefore = now_ - 9 * kDay, .notAfter = now_ - kDay}, ca_);
    const Certificate future_ = Issue({.subject = {{"CN", "future"}}, .notBefore = now_ + kDay}, ca_);
    const std::string file_ =
        profile_.Write("all.pem", expired_.Pem() + issued_.Pem() + bare_.Pem() + future_.Pem()).string();

    static std::string AuthIdOf(const Certificate& certificate) {
        return platform::ToUtf8(tessaly::CryptCertificate(platform::ByteView(certificate.Der())).GetAuthorityKeyId());
    }
    static certificates::GatheredCertificates GatherJson(const std::string& json) {
        const auto request = ReadRequest(platform::ToWide(json).c_str());
        EXPECT_TRUE(request.has_value()) << json;
        return Gather(*request);
    }
    static std::vector<std::string> NamesIn(const certificates::GatheredCertificates& gathered) {
        EXPECT_EQ(gathered.failure, u"");
        std::vector<std::string> names;
        for (const auto& certificate : platform::CertEnumCertificatesInStore(gathered.certificates.store))
            names.push_back(platform::ToUtf8(tessaly::CryptCertificate(certificate, true).GetSubjectName()));
        return names;
    }
    // The names that stay of the file, with these further members of the request.
    [[nodiscard]] std::vector<std::string> Kept(const std::string& members) const {
        return NamesIn(GatherJson(R"({"Filename":")" + file_ + "\"" + members + "}"));
    }
};

TEST_F(CertificateFilterTest, JudgesByTheFourLists) {
    const std::string issued = issued_.Thumbprint(), bare = bare_.Thumbprint(), authId = AuthIdOf(issued_);
    ASSERT_EQ(authId.size(), 40U);
    std::string colons = issued;
    colons.insert(2, ":");
    struct Case {
        const char* what;
        std::string members;
        std::vector<std::string> kept;
    };
    const Case cases[] = {
        {"what is valid now, in the file's order", "", {"issued", "bare"}},
        {"letter case does not matter", R"(,"ThumbprintInclude":[")" + Lower(issued) + R"("])", {"issued"}},
        {"colons do, and so does all else",
         R"(,"ThumbprintInclude":[")" + colons + R"("," )" + issued + R"(",")" + issued + R"(\n",")" +
             issued.substr(0, 39) + R"(",")" + issued + R"(\u0000","\ud800"])",
         {}},
        {"exclude one", R"(,"ThumbprintExclude":["AA",")" + Lower(issued) + R"("])", {"bare"}},
        {"excluding beats including",
         R"(,"ThumbprintInclude":[")" + issued + R"("],"ThumbprintExclude":[")" + issued + R"("])",
         {}},
        {"by authority", R"(,"AuthIdInclude":[")" + Lower(authId) + R"("])", {"issued"}},
        {"not by authority", R"(,"AuthIdExclude":[")" + authId + R"("])", {"bare"}},
        {"excluding the authority beats including the certificate",
         R"(,"AuthIdExclude":[")" + authId + R"("],"ThumbprintInclude":[")" + issued + R"("])",
         {}},
        {"either include is enough",
         R"(,"AuthIdInclude":[")" + authId + R"("],"ThumbprintInclude":[")" + bare + R"("])",
         {"issued", "bare"}},
        {"an empty entry stands for no authority", R"(,"AuthIdInclude":[""])", {"bare"}},
        {"empty arrays keep all", R"(,"AuthIdInclude":[],"ThumbprintInclude":[])", {"issued", "bare"}},
        {"what is no array is no list",
         R"(,"ThumbprintInclude":")" + issued + R"(","ThumbprintExclude":{"0":")" + issued + R"("},"AuthIdExclude":7)",
         {"issued", "bare"}},
        {"an expired one is not brought back", R"(,"ThumbprintInclude":[")" + expired_.Thumbprint() + R"("])", {}},
    };
    for (const auto& [what, members, kept] : cases)
        EXPECT_EQ(Kept(members), kept) << what;
}

TEST_F(CertificateFilterTest, JoinsFileAndStoreAndHoldsEachOnce) {
    tests::InstallCertificate(profile_, "Others", issued_);
    tests::InstallCertificate(profile_, "Others", ca_);
    EXPECT_THAT(Kept(R"(,"Store":"Others")"), ElementsAre("issued", "bare", "CA"));
    EXPECT_THAT(NamesIn(GatherJson(R"({"Store":"Others","ThumbprintExclude":[")" + ca_.Thumbprint() + "\"]}")),
                ElementsAre("issued"));
}

TEST_F(CertificateFilterTest, HoldsTheLaterOfTwoWithOneSerialNumber) {
    const auto make = [&](const char* name, std::int64_t from) {
        return Issue({.subject = {{"CN", name}}, .serial = {1, 2}, .notBefore = from, .key = TestKey(KeyType::p256)},
                     ca_);
    };
    const auto older = make("older", now_ - 3 * kDay), newer = make("newer", now_ - 2 * kDay);
    const auto file = profile_.Write("two.pem", older.Pem() + newer.Pem() + older.Pem()).string();
    EXPECT_THAT(NamesIn(GatherJson(R"({"Filename":")" + file + "\"}")), ElementsAre("newer"));
}

TEST_F(CertificateFilterTest, TellsASourceWithoutCertificatesFromOneThatIsFilteredOut) {
    const auto only = profile_.Write("expired.pem", expired_.Pem()).string();
    EXPECT_THAT(NamesIn(GatherJson(R"({"Filename":")" + only + "\"}")), IsEmpty());
    EXPECT_EQ(GatherJson(R"({"Store":"../MY"})").failure, u"Cannot open certificate store.\n");
    EXPECT_EQ(GatherJson(R"({"Filename":")" + only + R"(","Store":"Nobody"})").failure,
              u"Cannot open certificate store.\n")
        << "the second source fails the whole";
    const auto missing = GatherJson(R"({"Filename":"/nonexistent/a.cer"})").failure;
    EXPECT_TRUE(missing.starts_with(u"Cannot open file.\nMsg: ")) << platform::ToUtf8(missing);
    EXPECT_TRUE(missing.ends_with(u"\nError 0x2") || missing.ends_with(u"\nError 0x3")) << platform::ToUtf8(missing);
}

}  // namespace
