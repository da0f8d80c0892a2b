// CRLs that a chain fetches from the addresses in certificates.

#include <gmock/gmock.h>

#include "platform/Chains.h"
#include "platform/Download.h"
#include "platform/Http.h"
#include "tests/support/OnlineWorld.h"
#include "tests/support/Process.h"

namespace {

using namespace platform;
using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;
using tests::Certificate;
using tests::CertificateSpec;
using tests::CrlSpec;
using tests::HttpAnswer;
using tests::Issue;
using tests::kDay;
using tests::MakeCrl;
using tests::OnlineServer;
using tests::OnlineWorld;
using tests::PersonSpec;

const std::int64_t kNow = std::time(nullptr);
constexpr ErrorCode kSilent = CRYPT_E_REVOCATION_OFFLINE, kNobody = CRYPT_E_NO_REVOCATION_CHECK;

// The caches of a test are its own.
class CrlFetch : public testing::Test {
  protected:
    tests::Profile profile_;
};

void NameOneCrl(CertificateSpec& spec, const OnlineServer& server) {
    spec.crlUrls = {server.Url("/crl")};
}
void NameTwoCrls(CertificateSpec& spec, const OnlineServer& server) {
    spec.crlUrls = {server.Url("/first"), server.Url("/second")};
}
std::string TextOf(const Bytes& bytes) {
    return std::string(AsText(bytes));
}
CrlSpec Outdated() {
    CrlSpec spec;
    spec.thisUpdate = kNow - 9 * kDay;
    spec.nextUpdate = kNow - kDay;
    return spec;
}

struct AnswerCase {
    const char* name;
    std::function<HttpAnswer(const OnlineWorld&)> answer;
    ErrorCode expected;
};
class CrlAnswer : public CrlFetch, public testing::WithParamInterface<AnswerCase> {};

TEST_P(CrlAnswer, GetsTheVerdict) {
    OnlineWorld online(NameOneCrl);
    online.world.network.eachExchange = 1s;
    online.server.Serve("/crl", GetParam().answer(online));
    online.server.Serve("/moved", MakeCrl(online.ca));
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(online.Verdict(), GetParam().expected);
    EXPECT_LT(std::chrono::steady_clock::now() - start, 5s);
    EXPECT_EQ(online.server.Asked().front(), "/crl");
}

const AnswerCase kAnswers[] = {
    {"Clears", [](const OnlineWorld& o) { return HttpAnswer{.body = TextOf(MakeCrl(o.ca))}; }, 0},
    {"Lists", [](const OnlineWorld& o) { return HttpAnswer{.body = TextOf(MakeCrl(o.ca, o.Listing()))}; },
     CRYPT_E_REVOKED},
    {"Pem", [](const OnlineWorld& o) { return HttpAnswer{.body = tests::PemOf("X509 CRL", MakeCrl(o.ca))}; }, 0},
    {"Redirected", [](const OnlineWorld&) { return HttpAnswer::Redirect("/moved"); }, 0},
    {"RedirectedForEver", [](const OnlineWorld&) { return HttpAnswer::Redirect("/crl"); }, kSilent},
    {"RedirectedToAFile", [](const OnlineWorld&) { return HttpAnswer::Redirect("file:///etc/passwd"); }, kSilent},
    {"NotFoundWithACrl", [](const OnlineWorld& o) { return HttpAnswer{.status = 404, .body = TextOf(MakeCrl(o.ca))}; },
     kSilent},
    {"Garbage", [](const OnlineWorld&) { return HttpAnswer{.body = "<html>moved</html>"}; }, kSilent},
    {"Nothing", [](const OnlineWorld&) { return HttpAnswer{}; }, kSilent},
    {"Dropped", [](const OnlineWorld&) { return HttpAnswer{.drop = true}; }, kSilent},
    {"CutShort",
     [](const OnlineWorld& o) {
         const std::string crl = TextOf(MakeCrl(o.ca));
         return HttpAnswer{.body = crl.substr(0, crl.size() / 2), .claimedLength = crl.size()};
     },
     kSilent},
    {"Endless", [](const OnlineWorld&) { return HttpAnswer{.body = std::string(1 << 20, '0'), .endless = true}; },
     kSilent},
    {"Late", [](const OnlineWorld& o) { return HttpAnswer{.body = TextOf(MakeCrl(o.ca)), .delay = 3s}; }, kSilent},
    {"StopsInTheMiddle",
     [](const OnlineWorld& o) { return HttpAnswer{.body = TextOf(MakeCrl(o.ca)), .pauseInBody = 3s}; }, kSilent},
    {"Expired", [](const OnlineWorld& o) { return HttpAnswer{.body = TextOf(MakeCrl(o.ca, Outdated()))}; }, kSilent},
    {"Forged", [](const OnlineWorld& o) { return HttpAnswer{.body = TextOf(MakeCrl(o.ca, {.breakSignature = true}))}; },
     kSilent},
    {"OfAnotherAuthority", [](const OnlineWorld& o) { return HttpAnswer{.body = TextOf(MakeCrl(o.root))}; }, kSilent},
};
INSTANTIATE_TEST_SUITE_P(Revocation, CrlAnswer, testing::ValuesIn(kAnswers),
                         [](const auto& info) { return std::string(info.param.name); });

TEST_F(CrlFetch, TheNextAddressIsAskedWhenOneTellsNothing) {
    OnlineWorld online(NameTwoCrls);
    online.server.Serve("/first", MakeCrl(online.ca, {.breakSignature = true}));
    online.server.Serve("/second", MakeCrl(online.ca, online.Listing()));
    EXPECT_EQ(online.Verdict(), CRYPT_E_REVOKED);
    EXPECT_THAT(online.server.Asked(), ElementsAre("/first", "/second"));
}

TEST_F(CrlFetch, ADeltaIsAskedForWhereTheCertificateOrTheCrlNamesOne) {
    // One distribution point with /delta of this server.
    const auto freshest = [](const OnlineServer& server) {
        const std::string url = server.Url("/delta");
        const auto size = static_cast<std::uint8_t>(url.size());
        const auto n = [&](int more) { return static_cast<std::uint8_t>(size + more); };
        Bytes der = {0x30, n(8), 0x30, n(6), 0xA0, n(4), 0xA0, n(2), 0x86, size};
        der.insert(der.end(), url.begin(), url.end());
        return tests::Extension{"2.5.29.46", false, der};
    };
    for (const bool inCertificate : {true, false}) {
        OnlineWorld online([&](CertificateSpec& spec, const OnlineServer& server) {
            NameOneCrl(spec, server);
            if (inCertificate) spec.extra = {freshest(server)};
        });
        CrlSpec base, delta = online.Listing();
        if (!inCertificate) base.extra = {freshest(online.server)};
        delta.number = 2;
        delta.extra = {{"2.5.29.27", true, {2, 1, 1}}};
        online.server.Serve("/crl", MakeCrl(online.ca, base));
        EXPECT_EQ(online.Verdict(), 0U) << "the delta is not there";
        delta.breakSignature = true;
        online.server.Serve("/delta", MakeCrl(online.ca, delta));
        EXPECT_EQ(online.Verdict(), 0U) << "the delta is forged";
        delta.breakSignature = false;
        online.server.Serve("/delta", MakeCrl(online.ca, delta));
        EXPECT_EQ(online.Verdict(), CRYPT_E_REVOKED);
        EXPECT_THAT(online.server.Asked(), ElementsAre("/crl", "/delta", "/delta", "/delta"));
    }
}

TEST_F(CrlFetch, NobodyIsAskedWhatTheStoresKnow) {
    OnlineWorld online(NameOneCrl);
    online.world.AddCrl(MakeCrl(online.ca));
    EXPECT_EQ(online.Verdict(), 0U);
    EXPECT_THAT(online.server.Asked(), IsEmpty());
}

TEST_F(CrlFetch, NobodyIsAskedForWhatIsNotTrusted) {
    OnlineWorld online(NameOneCrl);
    online.server.Serve("/crl", MakeCrl(online.ca));
    online.world.roots = CertOpenMemoryStore();
    EXPECT_EQ(online.Verdict(), CERT_E_CHAINING);
    online.world.Know(online.root);
    EXPECT_EQ(online.Verdict(), CERT_E_UNTRUSTEDROOT);
    EXPECT_THAT(online.server.Asked(), IsEmpty());
}

TEST_F(CrlFetch, NobodyIsAskedBelowARevokedAuthority) {
    OnlineWorld online(NameOneCrl);
    online.server.Serve("/crl", MakeCrl(online.ca));
    CrlSpec listing{.revoked = {{online.ca.Serial(), kNow - kDay, 1}}};
    listing.thisUpdate = kNow - 60;
    online.world.AddCrl(MakeCrl(online.root, listing));
    EXPECT_EQ(online.Verdict(), CRYPT_E_REVOKED);
    EXPECT_THAT(online.server.Asked(), IsEmpty());
}

TEST_F(CrlFetch, TheAuthorityIsAskedForToo) {
    OnlineWorld online(NameOneCrl);
    online.server.Serve("/crl", MakeCrl(online.ca));
    CertificateSpec spec = tests::AuthoritySpec("Authority", 1);
    spec.crlUrls = {online.server.Url("/authorities")};
    const Certificate named = Issue(spec, online.root);
    tests::ChainWorld world(online.root, {named});
    world.network.allowed = true;
    EXPECT_EQ(world.VerdictWithCrls(online.leaf), kSilent);
    online.server.Serve("/authorities", MakeCrl(online.root, {.revoked = {{named.Serial(), kNow - kDay, 1}}}));
    EXPECT_EQ(world.VerdictWithCrls(online.leaf), CRYPT_E_REVOKED);
}

TEST_F(CrlFetch, WhoSignedTheCrlIsAskedForToo) {
    OnlineWorld online(NameOneCrl);
    CertificateSpec spec = tests::AuthoritySpec("Authority", 5);
    spec.crlUrls = {online.server.Url("/keys")};
    const Certificate signer = Issue(spec, online.ca);
    online.world.Know(signer);
    online.server.Serve("/crl", MakeCrl(signer));
    EXPECT_EQ(online.Verdict(), kSilent);
    CrlSpec ofAuthorities{.extra = {{"2.5.29.28", true, {0x30, 3, 0x82, 1, 0xFF}}}};
    online.server.Serve("/keys", MakeCrl(online.ca, ofAuthorities));
    EXPECT_EQ(online.Verdict(), 0U);
    ofAuthorities.revoked = {{signer.Serial(), kNow - kDay, 1}};
    ofAuthorities.thisUpdate = kNow - 60;
    online.world.AddCrl(MakeCrl(online.ca, ofAuthorities));
    EXPECT_EQ(online.Verdict(), kSilent);
}

TEST_F(CrlFetch, WithoutANetworkNobodyIsAskedAndNobodyAnswered) {
    OnlineWorld online(NameOneCrl);
    online.server.Serve("/crl", MakeCrl(online.ca));
    online.world.network.allowed = false;
    EXPECT_EQ(online.Verdict(), kSilent);
    online.world.network.allowed = true;
    AllowNetwork(false);
    EXPECT_EQ(online.Verdict(), kSilent);
    EXPECT_EQ(Download(online.server.Url("/crl")).state, DownloadResult::State::failed);
    HttpRequest request;
    request.url = online.server.Url("/crl");
    EXPECT_FALSE(HttpSend(request));
    EXPECT_EQ(GetLastError(), ERROR_INTERNET_DISCONNECTED);
    AllowNetwork(true);
    EXPECT_THAT(online.server.Asked(), IsEmpty());
    EXPECT_EQ(online.Verdict(), 0U);
}

TEST_F(CrlFetch, AnotherProtocolIsNobodyToAsk) {
    const OnlineWorld online([](CertificateSpec& spec, const OnlineServer&) {
        spec.crlUrls = {"ldap://127.0.0.1:9/cn=ca?certificateRevocationList", "ftp://127.0.0.1:9/crl"};
    });
    EXPECT_EQ(online.Verdict(), kNobody);
}

TEST_F(CrlFetch, AnotherMakersCrlIsUnderstood) {
    OnlineWorld online(NameOneCrl);
    const auto path = [&](const char* name, std::string_view content) {
        return profile_.Write(name, content).string();
    };
    const std::string config =
        "[ca]\ndefault_ca = own\n[own]\ndefault_md = sha256\ndefault_crl_days = 7\n"
        "crl_extensions = lists\n[lists]\nauthorityKeyIdentifier = keyid\n"
        "issuingDistributionPoint = critical, @scope\n[scope]\nfullname = URI:" +
        online.server.Url("/crl") + "\n[own]\ncertificate = " + path("ca.pem", online.ca.Pem()) +
        "\nprivate_key = " + path("ca.key", online.ca.KeyPem()) + "\ncrlnumber = " + path("number", "01\n") +
        "\ndatabase = " + (profile_.Folder() / "index.txt").string() + "\n";
    path("ca.cnf", config);
    const std::string entry =
        "\t360101000000Z\t260101000000Z,keyCompromise\t" + online.leaf.SerialHex() + "\tunknown\t/CN=Person\n";
    for (const auto& [index, expected] : {std::pair(std::string(), ErrorCode{0}), {"R" + entry, CRYPT_E_REVOKED}}) {
        std::filesystem::remove_all(profile_.Folder() / "cache/norvik");
        path("index.txt", index);
        const auto made =
            tests::RunProgram({"openssl", "ca", "-gencrl", "-config", (profile_.Folder() / "ca.cnf").string()});
        ASSERT_EQ(made.status, 0) << made.Summary();
        online.server.Serve("/crl", HttpAnswer{.body = made.output});
        EXPECT_EQ(online.Verdict(), expected);
    }
}

TEST_F(CrlFetch, ExchangesAreBounded) {
    OnlineWorld online([](CertificateSpec& spec, const OnlineServer& server) {
        for (int i = 0; i < 50; ++i)
            spec.crlUrls.push_back(server.Url("/" + std::to_string(i)));
    });
    EXPECT_EQ(online.Verdict(), kSilent);
    EXPECT_LE(online.server.Asked().size(), 16U);
    online.world.network.mostExchanges = 3;
    const std::size_t before = online.server.Asked().size();
    EXPECT_EQ(online.Verdict(), kSilent);
    EXPECT_EQ(online.server.Asked().size(), before + 3);
}

TEST_F(CrlFetch, TimeIsBounded) {
    OnlineWorld online([](CertificateSpec& spec, const OnlineServer& server) {
        for (int i = 0; i < 5; ++i)
            spec.crlUrls.push_back(server.Url("/" + std::to_string(i)));
    });
    for (int i = 0; i < 5; ++i)
        online.server.Serve("/" + std::to_string(i), HttpAnswer{.delay = 20s});
    online.world.network.eachExchange = 1s;
    online.world.network.allExchanges = 2s;
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(online.Verdict(), kSilent);
    EXPECT_LT(std::chrono::steady_clock::now() - start, 4s);
}

TEST_F(CrlFetch, OneCertificateIsAskedForInTheSystemsStoresToo) {
    OnlineWorld online(NameOneCrl);
    tests::InstallCertificate(profile_, "ROOT", online.root);
    tests::InstallCertificate(profile_, "CA", online.ca);
    EXPECT_EQ(CertVerifyRevocation(tests::ContextOf(online.leaf)), kSilent);
    online.server.Serve("/crl", MakeCrl(online.ca, online.Listing()));
    EXPECT_EQ(CertVerifyRevocation(tests::ContextOf(online.leaf)), CRYPT_E_REVOKED);
}

}  // namespace
