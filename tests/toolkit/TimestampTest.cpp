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
    for (const char* words : {"rejection", "unacceptedPolicy", "няма да стане"})
        EXPECT_THAT(log_, HasSubstr(words));
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
        {{.httpStatus = 404}, "httpStatus: 404"},
        {{.drop = true}, "The HTTP exchange failed."},
    };
    for (const auto& [behaviour, reason] : cases)
        ExpectFailure(behaviour, reason);
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
    const TsaBehaviour guarded{.credentials = "ivan:s3cret-pass"};
    const auto http = [](bool basic, const char16_t* password) {
        auto made = std::make_unique<toolkit::CkHttpW>();
        made->put_BasicAuth(basic);
        made->put_Login(u"ivan");
        made->put_Password(password);
        return made;
    };
    EXPECT_TRUE(TrySignWith(guarded, http(true, u"s3cret-pass").get())) << log_;
    EXPECT_THAT(log_, Not(HasSubstr("s3cret-pass")));
    std::filesystem::remove(Scratch("out.p7m"));
    ExpectFailure(guarded, "httpStatus: 401", http(false, u"s3cret-pass").get());
    EXPECT_EQ(tsa_.Requests().back().Credentials(), std::nullopt);
    ExpectFailure(guarded, "httpStatus: 401", http(true, u"wrong-pass").get());
    EXPECT_THAT(log_, Not(HasSubstr("wrong-pass")));

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

TEST_F(TimestampTest, AuthorityWithAnEllipticCurveKeyIsAccepted) {
    const Certificate authority = Issue(
        {.subject = {{"CN", "EC TSA"}}, .key = TestKey(KeyType::p256, 5), .extendedKeyUsage = "critical,timeStamping"},
        pki_.ca);
    const TsaServer server(authority, {pki_.ca});
    const auto signer = ReadSigner(Sign("content", {.attributes = UsualAttributes(server.Url())}));
    EXPECT_THAT(signer.unsignedTypes, ElementsAre(kTimestampToken)) << log_;
}

}  // namespace
