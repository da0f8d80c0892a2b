// Signatures with a timestamp from an authority on loopback, good and bad; what it is asked and how its answers are
// read.

#include <set>

#include "platform/Hash.h"
#include "platform/formats/DerWriter.h"
#include "tests/support/Process.h"
#include "tests/support/TsaServer.h"
#include "tests/toolkit/SignFixture.h"
#include "toolkit/cms/TimestampReply.h"
#include "toolkit/cms/TimestampRequest.h"

namespace {

using namespace tests;
using testing::AllOf, testing::ElementsAre, testing::HasSubstr, testing::MatchesRegex, testing::Not;
using toolkit::cms::DecodeTimestampReply;
using toolkit::cms::TimestampRequest;
using Reply = TsaBehaviour::Reply;

constexpr const char* kContentType = "1.2.840.113549.1.9.3";
constexpr const char* kMessageDigest = "1.2.840.113549.1.9.4";
constexpr const char* kSigningCertificateV2 = "1.2.840.113549.1.9.16.2.47";
constexpr const char* kTimestampToken = "1.2.840.113549.1.9.16.2.14";
constexpr const char* kFailed = "Some or all of the unauthenticated attributes could not be created.";

class TimestampTest : public SignFixture {
  protected:
    bool TrySignWith(const TsaBehaviour& behaviour, toolkit::CkHttpW* http = nullptr) {
        tsa_.Behave(behaviour);
        return TrySign(profile_.Write("document.bin", "content"), Scratch("out.p7m"),
                       {.attributes = UsualAttributes(tsa_.Url()), .http = http});
    }
    // A signature that must not come about: says why and leaves no file.
    void ExpectFailure(const TsaBehaviour& behaviour, const std::string& reason, toolkit::CkHttpW* http = nullptr) {
        EXPECT_FALSE(TrySignWith(behaviour, http)) << reason;
        EXPECT_THAT(log_, AllOf(HasSubstr(reason), HasSubstr(kFailed)));
        EXPECT_FALSE(std::filesystem::exists(Scratch("out.p7m"))) << reason;
    }
    TsaServer tsa_{pki_.tsa, {pki_.ca, pki_.root}};
};

TEST_F(TimestampTest, TokenIsEmbeddedAsItCameAndOthersAcceptAllOfIt) {
    const TsaBehaviour behaviours[] = {
        {},
        {.reply = Reply::grantedWithMods},
        {.genTime = 1'900'000'000'123'000, .fractionDigits = 3},
        {.signatureHash = "SHA512", .contentType = "text/html"},
    };
    for (const TsaBehaviour& behaviour : behaviours) {
        for (const std::string hash : {"sha256", "sha1", "sha384", "sha512", "no such hash"}) {
            tsa_.Behave(behaviour);
            const auto message = Sign("content\r\n", {.attributes = UsualAttributes(tsa_.Url(), hash)});
            const auto signer = ReadSigner(message);
            EXPECT_THAT(signer.isSigned.Types(), ElementsAre(kContentType, kMessageDigest, kSigningCertificateV2));
            ASSERT_THAT(signer.isUnsigned.Types(), ElementsAre(kTimestampToken)) << log_;
            EXPECT_EQ(Verdict("ours", message), "");
            EXPECT_EQ(Verdict("openssl", message), "");
            // Without signingTime the attributes stand in DER order by themselves.
            if (HasProgram("certtool")) {
                EXPECT_EQ(Verdict("certtool", message), "");
            }
            profile_.Write("token.der", platform::AsText(signer.isUnsigned.Value(kTimestampToken)));
            profile_.Write("value.bin", platform::AsText(signer.signature));
            const auto stamp = RunProgram({"openssl", "ts", "-verify", "-in", "token.der", "-token_in", "-data",
                                           "value.bin", "-CAfile", "root.pem"},
                                          {.folder = profile_.Folder()});
            EXPECT_EQ(stamp.status, 0) << stamp.Summary();
        }
    }
    const TsaServer elliptic(Issue({.subject = {{"CN", "EC TSA"}},
                                    .key = TestKey(KeyType::p256, 5),
                                    .extendedKeyUsage = "critical,timeStamping"},
                                   pki_.ca),
                             {pki_.ca});
    const auto message = Sign("content", {.attributes = UsualAttributes(elliptic.Url())});
    EXPECT_THAT(ReadSigner(message).isUnsigned.Types(), ElementsAre(kTimestampToken)) << log_;
    EXPECT_EQ(Verdict("ours", message), "");
}

TEST_F(TimestampTest, RequestIsPostedOverTheSignatureValue) {
    const auto signer = ReadSigner(Sign("content", {.attributes = UsualAttributes(tsa_.Url(), "sha1")}));
    ASSERT_EQ(tsa_.Requests().size(), 1u);
    const HttpRequest request = tsa_.Requests().front();
    EXPECT_EQ(request.method, "POST");
    EXPECT_EQ(request.headers.at("content-type"), "application/timestamp-query");
    EXPECT_EQ(request.Credentials(), std::nullopt);
    EXPECT_THAT(Shape(platform::AsBytes(request.body)),
                MatchesRegex("S.int 01 S.S.1.3.14.3.2.26 tag 5 0. tag 4 20. int [0-9A-F]{24} boolean FF."));
    EXPECT_THAT(Hex(platform::AsBytes(request.body)),
                HasSubstr(Hex(platform::Digest(platform::HashAlgorithm::sha1, signer.signature))));

    // Neither nonce nor certificates unless they are asked for; and then a token without them is right.
    const std::string bare =
        R"({"messageDigest":true,"contentType":true,"timestampToken":{"enabled":true,"tsaUrl":")" + tsa_.Url() + "\"}}";
    const auto plain = ReadSigner(Sign("content", {.attributes = bare}));
    EXPECT_THAT(plain.isUnsigned.Types(), ElementsAre(kTimestampToken)) << log_;
    EXPECT_EQ(Shape(platform::AsBytes(tsa_.Requests().back().body)),
              "S(int 01 S(S(2.16.840.1.101.3.4.2.1 tag 5 0) tag 4 32) boolean 00)");
}

TEST_F(TimestampTest, WhatIsNoGoodTokenFailsTheSignature) {
    const std::string refused = "Timestamp server reply does not indicate success.";
    ExpectFailure({.reply = Reply::rejected, .failure = TS_INFO_UNACCEPTED_POLICY, .statusText = "няма да стане"},
                  refused);
    EXPECT_THAT(log_, AllOf(HasSubstr("rejection"), HasSubstr("unacceptedPolicy"), HasSubstr("няма да стане")));
    ExpectFailure({.reply = Reply::waiting}, refused);
    EXPECT_THAT(log_, HasSubstr("waiting"));
    const std::pair<TsaBehaviour, const char*> cases[] = {
        {{.reply = Reply::garbage}, "not a timestamp response"},
        {{.reply = Reply::empty}, "not a timestamp response"},
        {{.reply = Reply::wrongImprint}, "its imprint is another one"},
        {{.reply = Reply::wrongNonce}, "its nonce is another one"},
        {{.reply = Reply::noNonce}, "its nonce is another one"},
        {{.reply = Reply::noCertificates}, "holds no certificates although they were requested"},
        {{.reply = Reply::brokenSignature}, "signature of the timestamp token does not verify"},
        {{.httpStatus = 500}, "httpStatus: 500"},
        {{.drop = true}, "The HTTP exchange failed."},
    };
    for (const auto& [behaviour, reason] : cases)
        ExpectFailure(behaviour, reason);
    tsa_.Behave({.reply = Reply::otherPolicy});
    std::string attributes = UsualAttributes(tsa_.Url());
    attributes.insert(attributes.find("\"addNonce\""), R"("policyOid":"1.2.3.4",)");
    EXPECT_FALSE(TrySign(Scratch("document.bin"), Scratch("out.p7m"), {.attributes = attributes}));
    EXPECT_THAT(log_, HasSubstr("issued under another policy than the one requested"));
}

TEST_F(TimestampTest, AddressThatLeadsNowhereFailsTheSignature) {
    const auto input = profile_.Write("document.bin", "content");
    const std::string closed = HttpServer([](const HttpRequest&) { return HttpAnswer{}; }).Url("/tsa");
    for (const std::string& url : {closed, std::string("ftp://localhost/tsa"), std::string("no url at all")}) {
        EXPECT_FALSE(TrySign(input, Scratch("o"), {.attributes = UsualAttributes(url)})) << url;
        EXPECT_THAT(log_, AllOf(HasSubstr("The HTTP exchange failed."), HasSubstr(kFailed)));
    }
    EXPECT_FALSE(TrySign(input, Scratch("o"), {.attributes = R"({"timestampToken":{"enabled":true}})"}));
    EXPECT_THAT(log_, HasSubstr("timestampToken.tsaUrl is missing.  (The SigningAttributes property must include a "
                                "timestampToken.tsaUrl member.)"));
    EXPECT_FALSE(std::filesystem::exists(Scratch("o")));
}

TEST_F(TimestampTest, SlowAuthorityIsGivenUp) {
    toolkit::CkHttpW http;
    http.Shared()->SetTimeout(std::chrono::seconds(1));
    const auto start = std::chrono::steady_clock::now();
    ExpectFailure({.delay = std::chrono::seconds(20)}, "did not answer in time", &http);
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(10));
}

TEST_F(TimestampTest, CredentialsAreSentOnlyWithBasicAuthAndNeverLogged) {
    const TsaBehaviour guarded{.credentials = "ivan:s3cret-pass"};
    const auto http = [](bool basic, const char16_t* password) {
        auto made = std::make_unique<toolkit::CkHttpW>();
        made->put_BasicAuth(basic);
        made->put_Login(u"ivan");
        made->put_Password(password);
        return made;
    };
    ExpectFailure(guarded, "httpStatus: 401", http(false, u"s3cret-pass").get());
    EXPECT_EQ(tsa_.Requests().back().Credentials(), std::nullopt);
    ExpectFailure(guarded, "httpStatus: 401", http(true, u"wrong-pass").get());
    EXPECT_THAT(log_, Not(HasSubstr("wrong-pass")));
    EXPECT_TRUE(TrySignWith(guarded, http(true, u"s3cret-pass").get())) << log_;
    EXPECT_THAT(log_, Not(HasSubstr("s3cret-pass")));

    // The client outlives the object it came from.
    toolkit::CkCertW certificate;
    ASSERT_TRUE(certificate.LoadByThumbprint(Wide(pki_.signer.Thumbprint()).c_str(), u"hex"));
    toolkit::CkCrypt2W crypt;
    crypt.SetSigningCert(certificate);
    crypt.put_SigningAttributes(Wide(UsualAttributes(tsa_.Url())).c_str());
    crypt.SetTsaHttpObj(*http(true, u"s3cret-pass"));
    const auto input = Wide(Scratch("document.bin").string());
    EXPECT_TRUE(crypt.CreateP7S(input.c_str(), Wide(Scratch("o").string()).c_str())) << Narrow(crypt.lastErrorText());
}

TEST(TimestampRequest, HasTheFieldsInTheirOrder) {
    TimestampRequest request{.hash = platform::HashAlgorithm::sha1,
                             .imprint = Bytes(20, 7),
                             .policyOid = "1.2.3.4",
                             .nonce = Bytes(12, 0x11),
                             .certReq = true};
    const Bytes full = EncodeTimestampRequest(request);
    EXPECT_EQ(Shape(full),
              "S(int 01 S(S(1.3.14.3.2.26 tag 5 0) tag 4 20) 1.2.3.4 int 111111111111111111111111 boolean FF)");
    request.policyOid = "policy";
    EXPECT_TRUE(EncodeTimestampRequest(request).empty());

    const auto peer = RunProgram({"openssl", "ts", "-query", "-in", "/dev/stdin", "-text"},
                                 {.input = std::string(platform::AsText(full))});
    EXPECT_THAT(peer.output, HasSubstr("Nonce: 0x111111111111111111111111")) << peer.Summary();
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

// PKIStatusInfo and, if asked for, something in the place of the token.
Bytes ReplyOf(std::uint64_t status, const Bytes& failInfo, bool withToken) {
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
    const auto granted = DecodeTimestampReply(ReplyOf(1, {}, true)).value();
    EXPECT_TRUE(granted.Granted());
    EXPECT_THAT(granted.token, ElementsAre(0x30, 3, 2, 1, 5));

    // badAlg, timeNotAvailable, unacceptedPolicy and a bit that nobody defined.
    const auto refused = DecodeTimestampReply(ReplyOf(2, {4, 0x80, 0x03, 0x10}, false)).value();
    EXPECT_FALSE(refused.Granted());
    EXPECT_TRUE(refused.token.empty());
    EXPECT_THAT(refused.failures, ElementsAre("badAlg", "timeNotAvailable", "unacceptedPolicy", "bit 19"));
    EXPECT_THAT(refused.texts, ElementsAre("не сега"));
    for (const std::int64_t status : {-1, 6})
        EXPECT_EQ(toolkit::cms::PkiStatusName(status), "unknown");
}

TEST(TimestampReply, RefusesWhatIsCutOrNotAReply) {
    Bytes whole = ReplyOf(0, {0, 0x80}, true);
    ASSERT_TRUE(DecodeTimestampReply(whole));
    for (std::size_t size = 0; size < whole.size(); ++size)
        EXPECT_FALSE(DecodeTimestampReply(platform::ByteView(whole).first(size))) << size;
    whole.push_back(0);
    EXPECT_FALSE(DecodeTimestampReply(whole));
    EXPECT_FALSE(DecodeTimestampReply(platform::AsBytes("<html>no such page</html>")));
}

}  // namespace
