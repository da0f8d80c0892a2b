// Signatures with a timestamp from an authority on loopback, good and bad.

#include "platform/Hash.h"
#include "platform/formats/Der.h"
#include "tests/support/Process.h"
#include "tests/support/TsaServer.h"
#include "tests/toolkit/SignFixture.h"

namespace {

using namespace tests;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;
using Reply = TsaBehaviour::Reply;

constexpr const char* kContentType = "1.2.840.113549.1.9.3";
constexpr const char* kMessageDigest = "1.2.840.113549.1.9.4";
constexpr const char* kSigningCertificateV2 = "1.2.840.113549.1.9.16.2.47";
constexpr const char* kTimestampToken = "1.2.840.113549.1.9.16.2.14";
constexpr const char* kFailed = "Some or all of the unauthenticated attributes could not be created.";

class TimestampTest : public SignFixture {
  protected:
    TimestampTest() : tsa_(pki_.tsa, {pki_.ca, pki_.root}) { profile_.Write("root.pem", pki_.root.Pem()); }

    bool TrySignWith(TsaBehaviour behaviour, toolkit::CkHttpW* http = nullptr) {
        tsa_.Behave(std::move(behaviour));
        return TrySign(profile_.Write("document.bin", "content"), Scratch("out.p7m"),
                       {.attributes = UsualAttributes(tsa_.Url()), .http = http});
    }
    // A signature that must not come about: says why and leaves no file.
    void ExpectFailure(TsaBehaviour behaviour, const std::string& reason, toolkit::CkHttpW* http = nullptr) {
        EXPECT_FALSE(TrySignWith(std::move(behaviour), http)) << reason;
        EXPECT_THAT(log_, HasSubstr(reason));
        EXPECT_THAT(log_, HasSubstr(kFailed));
        EXPECT_FALSE(std::filesystem::exists(Scratch("out.p7m"))) << reason;
    }
    TsaServer tsa_;
};

TEST_F(TimestampTest, TokenIsEmbeddedAsItCameAndOthersAcceptAllOfIt) {
    const TsaBehaviour behaviours[] = {
        {},
        {.reply = Reply::grantedWithMods},
        {.genTime = 1'900'000'000'123'000, .fractionDigits = 3},
        {.signatureHash = "SHA512", .contentType = "text/html"},
    };
    for (const TsaBehaviour& behaviour : behaviours) {
        for (const std::string hash : {"sha256", "sha1", "sha512", "no such hash"}) {
            tsa_.Behave(behaviour);
            const auto message = Sign("content\r\n", {.attributes = UsualAttributes(tsa_.Url(), hash)});
            const auto signer = ReadSigner(message);
            EXPECT_THAT(signer.signedTypes, ElementsAre(kContentType, kMessageDigest, kSigningCertificateV2));
            ASSERT_THAT(signer.unsignedTypes, ElementsAre(kTimestampToken)) << log_;

            toolkit::CkCrypt2W ours;
            ours.put_CmsOptions(u"{\"ValidateTimestampTokens\":true}");
            EXPECT_TRUE(ours.Implementation().VerifyFile(message)) << Narrow(ours.lastErrorText());

            const Bytes token = AttributeValue(signer.unsignedAttributes, kTimestampToken);
            const auto tokenFile = profile_.Write("token.der", platform::AsText(token));
            const auto value = profile_.Write("value.bin", platform::AsText(signer.signature));
            const auto stamp = RunProgram({"openssl", "ts", "-verify", "-in", tokenFile.string(), "-token_in", "-data",
                                           value.string(), "-CAfile", Scratch("root.pem").string()});
            EXPECT_EQ(stamp.status, 0) << stamp.Summary();
            const auto whole =
                RunProgram({"openssl", "cms", "-verify", "-binary", "-inform", "DER", "-in", message.string(),
                            "-CAfile", Scratch("root.pem").string(), "-purpose", "any", "-out", "/dev/null"});
            EXPECT_EQ(whole.status, 0) << whole.Summary();
            if (HasProgram("certtool")) {
                // Without signingTime the attributes stand in DER order by themselves.
                const auto certtool = RunProgram({"certtool", "--p7-verify", "--inder", "--infile", message.string(),
                                                  "--load-ca-certificate", Scratch("root.pem").string()});
                EXPECT_EQ(certtool.status, 0) << certtool.Summary();
            }
        }
    }
}

TEST_F(TimestampTest, RequestIsPostedOverTheSignatureValue) {
    const auto signer = ReadSigner(Sign("content", {.attributes = UsualAttributes(tsa_.Url(), "sha1")}));
    ASSERT_EQ(tsa_.Requests().size(), 1u);
    const HttpRequest request = tsa_.Requests().front();
    EXPECT_EQ(request.method, "POST");
    EXPECT_EQ(request.headers.at("content-type"), "application/timestamp-query");
    EXPECT_EQ(request.Credentials(), std::nullopt);

    auto fields = platform::DerReader(platform::AsBytes(request.body)).Enter(platform::tag::kSequence).value();
    fields.Next().value();  // version
    auto imprint = fields.Enter(platform::tag::kSequence).value();
    EXPECT_EQ(imprint.Enter(platform::tag::kSequence).value().Oid(), "1.3.14.3.2.26");
    const auto digest = imprint.Next().value().contents;
    EXPECT_EQ(Hex(digest), Hex(platform::Digest(platform::HashAlgorithm::sha1, signer.signature)));
    EXPECT_EQ(fields.Next(platform::tag::kInteger).value().contents.size(), 12u);
    EXPECT_EQ(Hex(fields.Next(platform::tag::kBoolean).value().contents), "FF");

    // Neither nonce nor certificates unless they are asked for; and then a token without them is right.
    const std::string bare =
        R"({"messageDigest":true,"contentType":true,"timestampToken":{"enabled":true,"tsaUrl":")" + tsa_.Url() + "\"}}";
    const auto plain = ReadSigner(Sign("content", {.attributes = bare}));
    EXPECT_THAT(plain.unsignedTypes, ElementsAre(kTimestampToken)) << log_;
    EXPECT_EQ(Shape(platform::AsBytes(tsa_.Requests().back().body)),
              "S(int 01 S(S(2.16.840.1.101.3.4.2.1 null) octets 32) boolean 00)");
}

TEST_F(TimestampTest, WhatIsNoGoodTokenFailsTheSignature) {
    const std::string refused = "Timestamp server reply does not indicate success.";
    ExpectFailure({.reply = Reply::rejected, .failure = TS_INFO_UNACCEPTED_POLICY, .statusText = "няма да стане"},
                  refused);
    EXPECT_THAT(log_, HasSubstr("rejection"));
    EXPECT_THAT(log_, HasSubstr("unacceptedPolicy"));
    EXPECT_THAT(log_, HasSubstr("няма да стане"));
    ExpectFailure({.reply = Reply::waiting}, refused);
    EXPECT_THAT(log_, HasSubstr("waiting"));

    ExpectFailure({.reply = Reply::garbage}, "not a timestamp response");
    ExpectFailure({.reply = Reply::empty}, "not a timestamp response");
    ExpectFailure({.reply = Reply::wrongImprint}, "its imprint is another one");
    ExpectFailure({.reply = Reply::wrongNonce}, "its nonce is another one");
    ExpectFailure({.reply = Reply::noNonce}, "its nonce is another one");
    ExpectFailure({.reply = Reply::noCertificates}, "holds no certificates although they were requested");
    ExpectFailure({.reply = Reply::brokenSignature}, "signature of the timestamp token does not verify");
    ExpectFailure({.httpStatus = 500}, "httpStatus: 500");
    ExpectFailure({.httpStatus = 404}, "httpStatus: 404");
    ExpectFailure({.drop = true}, "The HTTP exchange failed.");
}

TEST_F(TimestampTest, AddressThatLeadsNowhereFailsTheSignature) {
    const auto input = profile_.Write("document.bin", "content");
    std::string closed;
    {
        closed = HttpServer([](const HttpRequest&) { return HttpAnswer{}; }).Url("/tsa");
    }
    for (const std::string& url : {closed, std::string("ftp://localhost/tsa"), std::string("no url at all")}) {
        EXPECT_FALSE(TrySign(input, Scratch("o"), {.attributes = UsualAttributes(url)})) << url;
        EXPECT_THAT(log_, HasSubstr("The HTTP exchange failed."));
        EXPECT_THAT(log_, HasSubstr(kFailed));
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
    constexpr const char* kPassword = "s3cret-pass";
    TsaBehaviour guarded;
    guarded.credentials = std::string("ivan:").append(kPassword);

    toolkit::CkHttpW right;
    right.put_BasicAuth(true);
    right.put_Login(u"ivan");
    right.put_Password(u"s3cret-pass");
    EXPECT_TRUE(TrySignWith(guarded, &right)) << log_;
    EXPECT_THAT(log_, Not(HasSubstr(kPassword)));
    std::filesystem::remove(Scratch("out.p7m"));

    toolkit::CkHttpW off;
    off.put_Login(u"ivan");
    off.put_Password(u"s3cret-pass");
    ExpectFailure(guarded, "httpStatus: 401", &off);
    EXPECT_EQ(tsa_.Requests().back().Credentials(), std::nullopt);

    toolkit::CkHttpW wrong;
    wrong.put_BasicAuth(true);
    wrong.put_Login(u"ivan");
    wrong.put_Password(u"wrong-pass");
    ExpectFailure(guarded, "httpStatus: 401", &wrong);
    EXPECT_THAT(log_, Not(HasSubstr("wrong-pass")));
}

TEST_F(TimestampTest, ClientOutlivesTheObjectItCameFrom) {
    TsaBehaviour guarded;
    guarded.credentials = "ivan:pass";
    tsa_.Behave(guarded);
    toolkit::CkCertW certificate;
    ASSERT_TRUE(certificate.LoadByThumbprint(Wide(pki_.signer.Thumbprint()).c_str(), u"hex"));
    toolkit::CkCrypt2W crypt;
    crypt.SetSigningCert(certificate);
    crypt.put_SigningAttributes(Wide(UsualAttributes(tsa_.Url())).c_str());
    {
        toolkit::CkHttpW http;
        http.put_BasicAuth(true);
        http.put_Login(u"ivan");
        http.put_Password(u"pass");
        crypt.SetTsaHttpObj(http);
    }
    const auto input = profile_.Write("document.bin", "content");
    EXPECT_TRUE(crypt.CreateP7S(Wide(input.string()).c_str(), Wide(Scratch("o").string()).c_str()))
        << Narrow(crypt.lastErrorText());
}

TEST_F(TimestampTest, AuthorityWithAnEllipticCurveKeyIsAccepted) {
    const Certificate authority = Issue(
        {.subject = {{"CN", "EC TSA"}}, .key = TestKey(KeyType::p256, 5), .extendedKeyUsage = "critical,timeStamping"},
        pki_.ca);
    const TsaServer server(authority, {pki_.ca});
    const auto signer = ReadSigner(Sign("content", {.attributes = UsualAttributes(server.Url())}));
    EXPECT_THAT(signer.unsignedTypes, ElementsAre(kTimestampToken)) << log_;
}

}  // namespace
