// What responders answer to a chain's questions.

#include <future>
#include <thread>

#include "tests/platform/OnlineFixture.h"

namespace {

using namespace platform;
using namespace tests;
using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::HasSubstr;
using Status = OcspSpec::Status;
using S = CertificateSpec;

class Ocsp : public OnlineFixture {
  protected:
    OnlineWorld online_{{}, {"/ocsp"}};
};

CertificateSpec DelegateSpec() {
    CertificateSpec spec = PersonSpec("Responder", 6);
    spec.extendedKeyUsage = "OCSPSigning";
    return spec;
}
// The same with one thing changed.
template <typename Value>
CertificateSpec DelegateSpec(Value S::*what, const std::type_identity_t<Value>& value) {
    CertificateSpec spec = DelegateSpec();
    spec.*what = value;
    return spec;
}

TEST_F(Ocsp, EachAnswerGetsItsVerdict) {
    const Certificate &ca = online_.ca, &root = online_.root;
    struct Case {
        const char* name;
        Certificate signer;
        OcspSpec spec;
        ErrorCode expected = kSilent;
    };
    const auto delegate = [&](const char* name, const CertificateSpec& spec, const char* hash = "SHA256") {
        return Case{name, Issue(spec, ca), {.withSigner = true, .hash = hash}};
    };
    const Case cases[] = {
        {"good", ca, {}, 0},
        {"good by key", ca, {.byKey = true}, 0},
        {"good without a nonce", ca, {.nonce = OcspSpec::Nonce::none}, 0},
        {"another nonce", ca, {.nonce = OcspSpec::Nonce::other}},
        {"revoked", ca, {.status = Status::revoked}, CRYPT_E_REVOKED},
        {"unknown", ca, {.status = Status::unknown}, kNobody},
        {"try later", ca, {.responseStatus = 3}},
        {"another serial", ca, {.about = Issue(PersonSpec("Other", 2), ca)}},
        {"signature broken", ca, {.breakSignature = true}},
        {"critical extension", ca, {.criticalExtension = true}},
        {"outdated", ca, {.thisUpdate = kNow - 2 * kDay, .nextUpdate = kNow - 3600}},
        {"outdated within the tolerance", ca, {.thisUpdate = kNow - 2 * kDay, .nextUpdate = kNow - 120}, 0},
        {"from the future", ca, {.thisUpdate = kNow + 3600}},
        {"ends before it begins", ca, {.thisUpdate = kNow - 10, .nextUpdate = kNow - 20}},
        {"without end, young", ca, {.nextUpdate = std::nullopt}, 0},
        {"without end, old", ca, {.thisUpdate = kNow - 8 * kDay, .nextUpdate = std::nullopt}},
        {"delegate", Issue(DelegateSpec(), ca), {.withSigner = true}, 0},
        {"delegate of the root", Issue(DelegateSpec(), root), {.withSigner = true}},
        {"delegate that nobody knows", Issue(DelegateSpec(), ca), {}},
        {"the certificate itself", online_.leaf, {.withSigner = true}},
        {"the root", root, {.withSigner = true}},
        delegate("no usage", DelegateSpec(&S::extendedKeyUsage, "")),
        delegate("any usage", DelegateSpec(&S::extendedKeyUsage, "anyExtendedKeyUsage")),
        delegate("may not sign", DelegateSpec(&S::keyUsage, "keyEncipherment")),
        delegate("expired delegate", DelegateSpec(&S::notAfter, kNow - 60)),
        delegate("forged delegate", DelegateSpec(&S::signWith, TestKey(KeyType::p256, 9))),
        delegate("signed with MD5", DelegateSpec(&S::key, TestKey(KeyType::rsa2048)), "MD5"),
    };
    for (const auto& [name, signer, spec, expected] : cases) {
        ServeOcsp(online_, signer, spec);
        EXPECT_EQ(online_.FreshVerdict(profile_), expected) << name;
    }
}

TEST_F(Ocsp, ACertificateDoesNotVouchForItselfEvenAsAResponder) {
    online_.leaf = Issue(DelegateSpec(&S::ocspUrls, {online_.server.Url("/ocsp")}), online_.ca);
    ServeOcsp(online_, online_.leaf, {.withSigner = true});
    EXPECT_EQ(online_.Verdict(), kSilent);
}

TEST_F(Ocsp, ARevokedDelegateCountsOnlyIfNobodyShallAsk) {
    const std::vector<Extension> noCheck = {{"1.3.6.1.5.5.7.48.1.5", false, {5, 0}}};
    for (const auto& spec : {DelegateSpec(), DelegateSpec(&S::extra, noCheck)}) {
        const Certificate signer = Issue(spec, online_.ca);
        // A list of some reasons alone, which tells nothing of the leaf.
        online_.world.AddCrl(MakeCrl(online_.ca, {.revoked = {{signer.Serial(), kNow - kDay, 1}},
                                                  .extra = {{"2.5.29.28", true, {0x30, 4, 0x83, 2, 5, 0x60}}}}));
        ServeOcsp(online_, signer, {.withSigner = true});
        EXPECT_EQ(online_.Verdict(), spec.extra.empty() ? kSilent : 0U);
    }
}

// The list lies only where the responder's certificate says.
TEST_F(Ocsp, ADelegateIsLookedUpInTheListThatItNames) {
    const Certificate signer = Issue(DelegateSpec(&S::crlUrls, {online_.server.Url("/of-delegates")}), online_.ca);
    ServeOcsp(online_, signer, {.withSigner = true});
    const auto verdict = [&](const CrlSpec& spec) {
        online_.server.Serve("/of-delegates", MakeCrl(online_.ca, spec));
        return online_.FreshVerdict(profile_);
    };
    // Lists of some reasons alone, which tell nothing of the leaf.
    const std::vector<Extension> partial = {{"2.5.29.28", true, {0x30, 4, 0x83, 2, 5, 0x60}}};
    EXPECT_EQ(online_.FreshVerdict(profile_), 0U) << "nobody serves the list";
    EXPECT_EQ(verdict({.extra = partial}), 0U);
    EXPECT_EQ(verdict({.revoked = {{signer.Serial(), kNow - kDay, 1}}, .extra = partial}), kSilent);
    EXPECT_EQ(online_.Verdict(), kSilent) << "from the cache";
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
    for (const auto& [status, expected] : {std::pair(Status::unknown, CRYPT_E_REVOKED), {Status::good, 0U}}) {
        ServeOcsp(online, online.ca, {.status = status});
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
    for (int i = 0; i < 2; ++i)
        EXPECT_EQ(online_.Verdict(), kSilent);
    ASSERT_EQ(nonces.size(), 2U);
    EXPECT_FALSE(nonces[0].empty());
    EXPECT_NE(nonces[0], nonces[1]);
}

TEST_F(Ocsp, AnotherMakersResponderUnderstandsAndIsUnderstood) {
    const Certificate &ca = online_.ca, signer = Issue(DelegateSpec(), ca);
    constexpr const char* kValid = "V\t360101000000Z\t\t";
    constexpr const char* kRevoked = "R\t360101000000Z\t260101000000Z,keyCompromise\t";
    const std::pair<const char*, ErrorCode> cases[] = {{kValid, 0}, {kRevoked, CRYPT_E_REVOKED}, {nullptr, kNobody}};
    for (const auto& [line, expected] : cases) {
        const std::string port = std::to_string(HttpServer(nullptr).Port());  // free by now
        CertificateSpec spec = PersonSpec("Person", 2);
        spec.ocspUrls = {"http://127.0.0.1:" + port + "/"};
        online_.leaf = Issue(spec, ca);
        const std::string end = online_.leaf.SerialHex() + "\tunknown\t/CN=Person\n";
        profile_.Write("index", line != nullptr ? line + end : "");
        profile_.Write("ca.pem", ca.Pem());
        profile_.Write("all.pem", signer.Pem() + signer.KeyPem());
        auto responder = std::async(std::launch::async, [&] {
            return RunProgram({"openssl", "ocsp", "-port", port, "-index", "index", "-CA", "ca.pem", "-rsigner",
                               "all.pem", "-nrequest", "1", "-text"},
                              {.folder = profile_.Folder(), .timeout = 30s});
        });
        ErrorCode verdict = kSilent;  // until it listens
        for (int i = 0; i < 200 && (verdict = online_.Verdict()) == kSilent; ++i)
            std::this_thread::sleep_for(50ms);
        const ProcessResult result = responder.get();
        EXPECT_EQ(verdict, expected) << result.Summary();
        EXPECT_THAT(result.output, HasSubstr("Serial Number: " + online_.leaf.SerialHex()));
        EXPECT_THAT(result.output, HasSubstr("OCSP Nonce"));
    }
}

}  // namespace
