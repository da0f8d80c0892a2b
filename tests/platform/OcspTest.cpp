// What responders answer to a chain's questions.

#include <gmock/gmock.h>

#include <thread>

#include "platform/Chains.h"
#include "tests/support/OcspResponder.h"
#include "tests/support/OnlineWorld.h"
#include "tests/support/Process.h"

namespace {

using namespace platform;
using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using tests::Certificate;
using tests::CertificateSpec;
using tests::HttpAnswer;
using tests::HttpRequest;
using tests::Issue;
using tests::kDay;
using tests::MakeCrl;
using tests::OcspSpec;
using tests::OnlineServer;
using tests::OnlineWorld;
using tests::PersonSpec;

const std::int64_t kNow = std::time(nullptr);
constexpr ErrorCode kSilent = CRYPT_E_REVOCATION_OFFLINE, kNobody = CRYPT_E_NO_REVOCATION_CHECK;

// The caches of a test are its own.
class Ocsp : public testing::Test {
  protected:
    tests::Profile profile_;
};

void NameResponder(CertificateSpec& spec, const OnlineServer& server) {
    spec.ocspUrls = {server.Url("/ocsp")};
}
void NameResponderAndCrl(CertificateSpec& spec, const OnlineServer& server) {
    spec.ocspUrls = {server.Url("/ocsp")};
    spec.crlUrls = {server.Url("/crl")};
}

// Who signs, and what.
struct Responder {
    Certificate signer;
    OcspSpec spec = {};
};
void Serve(OnlineWorld& online, const Responder& responder) {
    online.server.Serve("/ocsp", [responder, issuer = online.ca](const HttpRequest& request) {
        const Bytes answer = tests::AnswerOcsp(AsBytes(request.body), issuer, responder.signer, responder.spec);
        return HttpAnswer{.contentType = "application/ocsp-response", .body = std::string(AsText(answer))};
    });
}

CertificateSpec DelegateSpec() {
    CertificateSpec spec = PersonSpec("Responder", 6);
    spec.extendedKeyUsage = "OCSPSigning";
    return spec;
}
Responder DelegateOf(const Certificate& issuer, const CertificateSpec& spec = DelegateSpec()) {
    return {Issue(spec, issuer), {.withSigner = true}};
}

struct ResponderCase {
    const char* name;
    std::function<Responder(const OnlineWorld&)> responder;
    ErrorCode expected;
};
class OcspAnswerOf : public Ocsp, public testing::WithParamInterface<ResponderCase> {};

TEST_P(OcspAnswerOf, GetsTheVerdict) {
    OnlineWorld online(NameResponder);
    Serve(online, GetParam().responder(online));
    EXPECT_EQ(online.Verdict(), GetParam().expected);
    EXPECT_THAT(online.server.Asked(), ElementsAre("/ocsp"));
}

using Status = OcspSpec::Status;
const ResponderCase kResponders[] = {
    {"Good", [](const OnlineWorld& o) { return Responder{o.ca}; }, 0},
    {"GoodByKey",
     [](const OnlineWorld& o) {
         return Responder{o.ca, {.byKey = true}};
     },
     0},
    {"GoodWithoutNonce",
     [](const OnlineWorld& o) {
         return Responder{o.ca, {.nonce = OcspSpec::Nonce::none}};
     },
     0},
    {"OtherNonce",
     [](const OnlineWorld& o) {
         return Responder{o.ca, {.nonce = OcspSpec::Nonce::other}};
     },
     kSilent},
    {"Revoked",
     [](const OnlineWorld& o) {
         return Responder{o.ca, {.status = Status::revoked}};
     },
     CRYPT_E_REVOKED},
    {"Unknown",
     [](const OnlineWorld& o) {
         return Responder{o.ca, {.status = Status::unknown}};
     },
     kNobody},
    {"TryLater",
     [](const OnlineWorld& o) {
         return Responder{o.ca, {.responseStatus = 3}};
     },
     kSilent},
    {"OtherSerial",
     [](const OnlineWorld& o) {
         return Responder{o.ca, {.about = Issue(PersonSpec("Other", 2), o.ca)}};
     },
     kSilent},
    {"SignatureBroken",
     [](const OnlineWorld& o) {
         return Responder{o.ca, {.breakSignature = true}};
     },
     kSilent},
    {"SignedWithMd5",
     [](const OnlineWorld& o) {
         CertificateSpec spec = DelegateSpec();
         spec.key = tests::TestKey(tests::KeyType::rsa2048);
         Responder responder = DelegateOf(o.ca, spec);
         responder.spec.hash = "MD5";
         return responder;
     },
     kSilent},
    {"CriticalExtension",
     [](const OnlineWorld& o) {
         return Responder{o.ca, {.criticalExtension = true}};
     },
     kSilent},
    {"Outdated",
     [](const OnlineWorld& o) {
         return Responder{o.ca, {.thisUpdate = kNow - 2 * kDay, .nextUpdate = kNow - 3600}};
     },
     kSilent},
    {"OutdatedWithinTheTolerance",
     [](const OnlineWorld& o) {
         return Responder{o.ca, {.thisUpdate = kNow - 2 * kDay, .nextUpdate = kNow - 120}};
     },
     0},
    {"FromTheFuture",
     [](const OnlineWorld& o) {
         return Responder{o.ca, {.thisUpdate = kNow + 3600}};
     },
     kSilent},
    {"EndsBeforeItBegins",
     [](const OnlineWorld& o) {
         return Responder{o.ca, {.thisUpdate = kNow - 10, .nextUpdate = kNow - 20}};
     },
     kSilent},
    {"WithoutEndYoung",
     [](const OnlineWorld& o) {
         return Responder{o.ca, {.nextUpdate = std::nullopt}};
     },
     0},
    {"WithoutEndOld",
     [](const OnlineWorld& o) {
         return Responder{o.ca, {.thisUpdate = kNow - 8 * kDay, .nextUpdate = std::nullopt}};
     },
     kSilent},
    {"OfADelegate", [](const OnlineWorld& o) { return DelegateOf(o.ca); }, 0},
    {"OfADelegateOfTheRoot", [](const OnlineWorld& o) { return DelegateOf(o.root); }, kSilent},
    {"OfADelegateWithoutTheUsage", [](const OnlineWorld& o) { return DelegateOf(o.ca, PersonSpec("Responder", 6)); },
     kSilent},
    {"OfADelegateForAnyUsage",
     [](const OnlineWorld& o) {
         CertificateSpec spec = DelegateSpec();
         spec.extendedKeyUsage = "anyExtendedKeyUsage";
         return DelegateOf(o.ca, spec);
     },
     kSilent},
    {"OfADelegateThatMayNotSign",
     [](const OnlineWorld& o) {
         CertificateSpec spec = DelegateSpec();
         spec.keyUsage = "keyEncipherment";
         return DelegateOf(o.ca, spec);
     },
     kSilent},
    {"OfAnExpiredDelegate",
     [](const OnlineWorld& o) {
         CertificateSpec spec = DelegateSpec();
         spec.notBefore = kNow - 9 * kDay;
         spec.notAfter = kNow - kDay;
         return DelegateOf(o.ca, spec);
     },
     kSilent},
    {"OfADelegateThatNobodyKnows",
     [](const OnlineWorld& o) {
         Responder responder = DelegateOf(o.ca);
         responder.spec.withSigner = false;
         return responder;
     },
     kSilent},
    {"OfAForgedDelegate",
     [](const OnlineWorld& o) {
         CertificateSpec spec = DelegateSpec();
         spec.signWith = tests::TestKey(tests::KeyType::p256, 9);
         return DelegateOf(o.ca, spec);
     },
     kSilent},
    {"OfTheCertificateItself",
     [](const OnlineWorld& o) {
         return Responder{o.leaf, {.withSigner = true}};
     },
     kSilent},
    {"OfTheRoot",
     [](const OnlineWorld& o) {
         return Responder{o.root, {.withSigner = true}};
     },
     kSilent},
};
INSTANTIATE_TEST_SUITE_P(Revocation, OcspAnswerOf, testing::ValuesIn(kResponders),
                         [](const auto& info) { return std::string(info.param.name); });

TEST_F(Ocsp, ACertificateDoesNotVouchForItselfEvenAsAResponder) {
    OnlineWorld online(NameResponder);
    CertificateSpec spec = DelegateSpec();
    spec.ocspUrls = {online.server.Url("/ocsp")};
    online.leaf = Issue(spec, online.ca);
    Serve(online, {online.leaf, {.withSigner = true}});
    EXPECT_EQ(online.Verdict(), kSilent);
}

TEST_F(Ocsp, ARevokedDelegateCountsOnlyIfNobodyShallAsk) {
    OnlineWorld online(NameResponder);
    CertificateSpec noCheck = DelegateSpec();
    noCheck.extra = {{"1.3.6.1.5.5.7.48.1.5", false, {5, 0}}};
    for (const auto& [spec, expected] : {std::pair(DelegateSpec(), kSilent), std::pair(noCheck, ErrorCode{0})}) {
        const Responder responder = DelegateOf(online.ca, spec);
        // A list of some reasons alone, which tells nothing of the leaf.
        tests::CrlSpec listing{.revoked = {{responder.signer.Serial(), kNow - kDay, 1}}};
        listing.extra.push_back({"2.5.29.28", true, {0x30, 4, 0x83, 2, 5, 0x60}});
        online.world.AddCrl(MakeCrl(online.ca, listing));
        Serve(online, responder);
        EXPECT_EQ(online.Verdict(), expected);
    }
}

TEST_F(Ocsp, NonsenseIsNoAnswer) {
    OnlineWorld online(NameResponder);
    online.world.network.eachExchange = 1s;
    const HttpAnswer answers[] = {{.body = "<html>"},
                                  {},
                                  {.drop = true},
                                  {.status = 500, .body = "sorry"},
                                  {.body = std::string(4096, '0'), .endless = true},
                                  {.delay = 10s}};
    for (const HttpAnswer& answer : answers) {
        online.server.Serve("/ocsp", answer);
        const auto start = std::chrono::steady_clock::now();
        EXPECT_EQ(online.Verdict(), kSilent);
        EXPECT_LT(std::chrono::steady_clock::now() - start, 3s);
    }
}

TEST_F(Ocsp, WhatAResponderDoesNotTellTheCrlDoes) {
    OnlineWorld online(NameResponderAndCrl);
    online.server.Serve("/crl", MakeCrl(online.ca, online.Listing()));
    Serve(online, {online.ca, {.status = Status::unknown}});
    EXPECT_EQ(online.Verdict(), CRYPT_E_REVOKED);
    EXPECT_THAT(online.server.Asked(), ElementsAre("/ocsp", "/crl"));
}

TEST_F(Ocsp, WhoAnswersSparesTheCrl) {
    OnlineWorld online(NameResponderAndCrl);
    Serve(online, {online.ca});
    EXPECT_EQ(online.Verdict(), 0U);
    EXPECT_THAT(online.server.Asked(), ElementsAre("/ocsp"));
}

TEST_F(Ocsp, TheNextResponderIsAskedWhenOneIsSilent) {
    OnlineWorld online([](CertificateSpec& spec, const OnlineServer& server) {
        spec.ocspUrls = {server.Url("/dead"), server.Url("/ocsp")};
    });
    Serve(online, {online.ca, {.status = Status::revoked}});
    EXPECT_EQ(online.Verdict(), CRYPT_E_REVOKED);
    EXPECT_THAT(online.server.Asked(), ElementsAre("/dead", "/ocsp"));
}

TEST_F(Ocsp, QuestionsDifferInTheirNonce) {
    OnlineWorld online(NameResponder);
    std::vector<std::string> bodies;
    online.server.Serve("/ocsp", [&](const HttpRequest& request) {
        EXPECT_EQ(request.method, "POST");
        EXPECT_EQ(request.headers.at("content-type"), "application/ocsp-request");
        bodies.push_back(request.body);
        return HttpAnswer{.status = 503};
    });
    EXPECT_EQ(online.Verdict(), kSilent);
    EXPECT_EQ(online.Verdict(), kSilent);
    ASSERT_EQ(bodies.size(), 2U);
    const Bytes first = tests::NonceOf(AsBytes(bodies[0])), second = tests::NonceOf(AsBytes(bodies[1]));
    EXPECT_FALSE(first.empty());
    EXPECT_NE(first, second);
}

// --- Another maker's responder ---

class OpensslResponder {
  public:
    // `lines` are those of an index as `openssl ca` keeps it.
    OpensslResponder(const tests::Profile& profile, const Certificate& ca, const Certificate& signer,
                     const std::string& lines, std::uint16_t port)
        : command_{"openssl",   "ocsp",
                   "-port",     std::to_string(port),
                   "-index",    profile.Write("index.txt", lines).string(),
                   "-CA",       profile.Write("ca.pem", ca.Pem()).string(),
                   "-rsigner",  profile.Write("signer.pem", signer.Pem()).string(),
                   "-rkey",     profile.Write("signer.key", signer.KeyPem()).string(),
                   "-nrequest", "1",
                   "-text"},
          runner_([this] { result_ = tests::RunProgram(command_, {.timeout = 30s}); }) {}
    ~OpensslResponder() { Wait(); }
    OpensslResponder(const OpensslResponder&) = delete;
    OpensslResponder& operator=(const OpensslResponder&) = delete;

    const tests::ProcessResult& Wait() {
        if (runner_.joinable()) runner_.join();
        return result_;
    }

  private:
    std::vector<std::string> command_;
    tests::ProcessResult result_;
    std::thread runner_;
};

std::string IndexLine(const Certificate& certificate, bool revoked) {
    return std::string(revoked ? "R" : "V") + "\t360101000000Z\t" + (revoked ? "260101000000Z,keyCompromise" : "") +
           "\t" + certificate.SerialHex() + "\tunknown\t/CN=Person\n";
}

std::uint16_t FreePort() {
    return OnlineServer().Port();
}

TEST_F(Ocsp, AnotherMakersResponderUnderstandsAndIsUnderstood) {
    const Certificate root = Issue(tests::AuthoritySpec("Root", 0)),
                      ca = Issue(tests::AuthoritySpec("Authority", 1), root), signer = Issue(DelegateSpec(), ca);
    struct {
        bool listed, revoked;
        ErrorCode expected;
    } const cases[] = {{true, false, 0}, {true, true, CRYPT_E_REVOKED}, {false, false, kNobody}};
    for (const auto& each : cases) {
        const std::uint16_t port = FreePort();
        CertificateSpec spec = PersonSpec("Person", 2);
        spec.ocspUrls = {"http://127.0.0.1:" + std::to_string(port) + "/"};
        const Certificate leaf = Issue(spec, ca);
        tests::ChainWorld world(root, {ca});
        world.AddCrl(MakeCrl(root));
        world.network.allowed = true;
        OpensslResponder responder(profile_, ca, signer, each.listed ? IndexLine(leaf, each.revoked) : "", port);
        ErrorCode verdict = kSilent;  // until it listens
        for (int i = 0; i < 200 && verdict == kSilent; ++i) {
            verdict = world.VerdictWithCrls(leaf);
            if (verdict == kSilent) std::this_thread::sleep_for(50ms);
        }
        EXPECT_EQ(verdict, each.expected) << responder.Wait().Summary();
        EXPECT_THAT(responder.Wait().output, HasSubstr("Serial Number: " + leaf.SerialHex()));
        EXPECT_THAT(responder.Wait().output, HasSubstr("OCSP Nonce"));
    }
}

}  // namespace
