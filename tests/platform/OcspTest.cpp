// What responders answer to a chain's questions.

#include <gmock/gmock.h>

#include <future>
#include <thread>

#include "tests/support/OcspResponder.h"
#include "tests/support/OnlineWorld.h"
#include "tests/support/Process.h"

namespace {

using namespace platform;
using namespace tests;
using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::HasSubstr;
using Status = OcspSpec::Status;

const std::int64_t kNow = std::time(nullptr);
constexpr ErrorCode kSilent = CRYPT_E_REVOCATION_OFFLINE, kNobody = CRYPT_E_NO_REVOCATION_CHECK;

// Who signs, and what.
struct Responder {
    Certificate signer;
    OcspSpec spec = {};
};

CertificateSpec DelegateSpec() {
    CertificateSpec spec = PersonSpec("Responder", 6);
    spec.extendedKeyUsage = "OCSPSigning";
    return spec;
}
// The same with one thing changed.
template <typename Value>
CertificateSpec DelegateSpec(Value CertificateSpec::*what, const std::type_identity_t<Value>& value) {
    CertificateSpec spec = DelegateSpec();
    spec.*what = value;
    return spec;
}

class Ocsp : public testing::Test {
  protected:
    void Serve(const Responder& responder) {
        online_.server.Serve("/ocsp", [responder, issuer = online_.ca](const HttpRequest& request) {
            const Bytes answer = AnswerOcsp(AsBytes(request.body), issuer, responder.signer, responder.spec);
            return HttpAnswer{.contentType = "application/ocsp-response", .body = std::string(AsText(answer))};
        });
    }
    Profile profile_;  // the caches of a test are its own
    OnlineWorld online_{{}, {"/ocsp"}};
};

TEST_F(Ocsp, EachAnswerGetsItsVerdict) {
    const Certificate &ca = online_.ca, &root = online_.root;
    const auto delegate = [](const Certificate& issuer, const CertificateSpec& spec = DelegateSpec(),
                             const char* hash = "SHA256") {
        return Responder{Issue(spec, issuer), {.withSigner = true, .hash = hash}};
    };
    using S = CertificateSpec;
    const struct {
        const char* name;
        Responder responder;
        ErrorCode expected;
    } cases[] = {
        {"good", {ca}, 0},
        {"good by key", {ca, {.byKey = true}}, 0},
        {"good without a nonce", {ca, {.nonce = OcspSpec::Nonce::none}}, 0},
        {"another nonce", {ca, {.nonce = OcspSpec::Nonce::other}}, kSilent},
        {"revoked", {ca, {.status = Status::revoked}}, CRYPT_E_REVOKED},
        {"unknown", {ca, {.status = Status::unknown}}, kNobody},
        {"try later", {ca, {.responseStatus = 3}}, kSilent},
        {"another serial", {ca, {.about = Issue(PersonSpec("Other", 2), ca)}}, kSilent},
        {"signature broken", {ca, {.breakSignature = true}}, kSilent},
        {"critical extension", {ca, {.criticalExtension = true}}, kSilent},
        {"outdated", {ca, {.thisUpdate = kNow - 2 * kDay, .nextUpdate = kNow - 3600}}, kSilent},
        {"outdated within the tolerance", {ca, {.thisUpdate = kNow - 2 * kDay, .nextUpdate = kNow - 120}}, 0},
        {"from the future", {ca, {.thisUpdate = kNow + 3600}}, kSilent},
        {"ends before it begins", {ca, {.thisUpdate = kNow - 10, .nextUpdate = kNow - 20}}, kSilent},
        {"without end, young", {ca, {.nextUpdate = std::nullopt}}, 0},
        {"without end, old", {ca, {.thisUpdate = kNow - 8 * kDay, .nextUpdate = std::nullopt}}, kSilent},
        {"delegate", delegate(ca), 0},
        {"delegate of the root", delegate(root), kSilent},
        {"no usage", delegate(ca, DelegateSpec(&S::extendedKeyUsage, "")), kSilent},
        {"any usage", delegate(ca, DelegateSpec(&S::extendedKeyUsage, "anyExtendedKeyUsage")), kSilent},
        {"may not sign", delegate(ca, DelegateSpec(&S::keyUsage, "keyEncipherment")), kSilent},
        {"expired delegate", delegate(ca, DelegateSpec(&S::notAfter, kNow - 60)), kSilent},
        {"forged delegate", delegate(ca, DelegateSpec(&S::signWith, TestKey(KeyType::p256, 9))), kSilent},
        {"signed with MD5", delegate(ca, DelegateSpec(&S::key, TestKey(KeyType::rsa2048)), "MD5"), kSilent},
        {"delegate that nobody knows", {Issue(DelegateSpec(), ca)}, kSilent},
        {"the certificate itself", {online_.leaf, {.withSigner = true}}, kSilent},
        {"the root", {root, {.withSigner = true}}, kSilent},
    };
    for (const auto& [name, responder, expected] : cases) {
        Serve(responder);
        EXPECT_EQ(online_.FreshVerdict(profile_), expected) << name;
    }
}

TEST_F(Ocsp, ACertificateDoesNotVouchForItselfEvenAsAResponder) {
    online_.leaf = Issue(DelegateSpec(&CertificateSpec::ocspUrls, {online_.server.Url("/ocsp")}), online_.ca);
    Serve({online_.leaf, {.withSigner = true}});
    EXPECT_EQ(online_.Verdict(), kSilent);
}

TEST_F(Ocsp, ARevokedDelegateCountsOnlyIfNobodyShallAsk) {
    const std::vector<Extension> noCheck = {{"1.3.6.1.5.5.7.48.1.5", false, {5, 0}}};
    for (const auto& spec : {DelegateSpec(), DelegateSpec(&CertificateSpec::extra, noCheck)}) {
        const Certificate signer = Issue(spec, online_.ca);
        // A list of some reasons alone, which tells nothing of the leaf.
        CrlSpec listing{.revoked = {{signer.Serial(), kNow - kDay, 1}}};
        listing.extra.push_back({"2.5.29.28", true, {0x30, 4, 0x83, 2, 5, 0x60}});
        online_.world.AddCrl(MakeCrl(online_.ca, listing));
        Serve({signer, {.withSigner = true}});
        EXPECT_EQ(online_.Verdict(), spec.extra.empty() ? kSilent : 0U);
    }
}

TEST_F(Ocsp, NonsenseIsNoAnswer) {
    for (const HttpAnswer& answer :
         {HttpAnswer{.body = "<html>"}, {}, {.drop = true}, {.status = 500, .body = "sorry"}}) {
        online_.server.Serve("/ocsp", answer);
        EXPECT_EQ(online_.Verdict(), kSilent);
    }
}

TEST_F(Ocsp, WhatAResponderDoesNotTellTheNextOneAndTheCrlDo) {
    OnlineWorld online({"/crl"}, {"/dead", "/ocsp"});
    online.server.Serve("/crl", MakeCrl(online.ca, online.Listing()));
    const std::pair<Status, ErrorCode> cases[] = {{Status::unknown, CRYPT_E_REVOKED}, {Status::good, 0}};
    for (const auto& [status, expected] : cases) {
        online.server.Serve("/ocsp", [status = status, &online](const HttpRequest& request) {
            const Bytes answer = AnswerOcsp(AsBytes(request.body), online.ca, online.ca, {.status = status});
            return HttpAnswer{.body = std::string(AsText(answer))};
        });
        EXPECT_EQ(online.FreshVerdict(profile_), expected);
    }
    EXPECT_THAT(online.server.Asked(), ElementsAre("/dead", "/ocsp", "/crl", "/dead", "/ocsp"));
}

TEST_F(Ocsp, QuestionsDifferInTheirNonce) {
    std::vector<Bytes> nonces;
    online_.server.Serve("/ocsp", [&](const HttpRequest& request) {
        EXPECT_EQ(request.method, "POST");
        EXPECT_EQ(request.headers.at("content-type"), "application/ocsp-request");
        nonces.push_back(NonceOf(AsBytes(request.body)));
        return HttpAnswer{.status = 503};
    });
    EXPECT_EQ(online_.Verdict(), kSilent);
    EXPECT_EQ(online_.Verdict(), kSilent);
    ASSERT_EQ(nonces.size(), 2U);
    EXPECT_FALSE(nonces[0].empty());
    EXPECT_NE(nonces[0], nonces[1]);
}

// --- Another maker's responder ---

TEST_F(Ocsp, AnotherMakersResponderUnderstandsAndIsUnderstood) {
    const Certificate &ca = online_.ca, signer = Issue(DelegateSpec(), ca);
    constexpr const char* kValid = "V\t360101000000Z\t\t";
    constexpr const char* kRevoked = "R\t360101000000Z\t260101000000Z,keyCompromise\t";
    const std::pair<const char*, ErrorCode> cases[] = {{kValid, 0}, {kRevoked, CRYPT_E_REVOKED}, {nullptr, kNobody}};
    for (const auto& [line, expected] : cases) {
        const std::uint16_t port = HttpServer(nullptr).Port();  // free by now
        CertificateSpec spec = PersonSpec("Person", 2);
        spec.ocspUrls = {"http://127.0.0.1:" + std::to_string(port) + "/"};
        online_.leaf = Issue(spec, ca);
        const std::string end = online_.leaf.SerialHex() + "\tunknown\t/CN=Person\n";
        const std::vector<std::string> command = {
            "openssl",   "ocsp",
            "-port",     std::to_string(port),
            "-index",    profile_.Write("index.txt", line != nullptr ? line + end : ""),
            "-CA",       profile_.Write("ca.pem", ca.Pem()),
            "-rsigner",  profile_.Write("signer.pem", signer.Pem()),
            "-rkey",     profile_.Write("signer.key", signer.KeyPem()),
            "-nrequest", "1",
            "-text"};
        auto responder = std::async(std::launch::async, [&] { return RunProgram(command, {.timeout = 30s}); });
        ErrorCode verdict = kSilent;  // until it listens
        for (int i = 0; i < 200 && verdict == kSilent; ++i) {
            verdict = online_.Verdict();
            if (verdict == kSilent) std::this_thread::sleep_for(50ms);
        }
        const ProcessResult result = responder.get();
        EXPECT_EQ(verdict, expected) << result.Summary();
        EXPECT_THAT(result.output, HasSubstr("Serial Number: " + online_.leaf.SerialHex()));
        EXPECT_THAT(result.output, HasSubstr("OCSP Nonce"));
    }
}

}  // namespace
