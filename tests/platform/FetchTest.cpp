// CRLs and issuers that a chain fetches from the addresses in certificates.

#include "platform/Download.h"
#include "platform/Http.h"
#include "tests/platform/DerPieces.h"
#include "tests/platform/OnlineFixture.h"
#include "tests/support/LastError.h"

namespace {

using namespace platform;
using namespace tests;
using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;

class CrlFetch : public OnlineFixture {
  protected:
    void Serve(const CrlSpec& spec = {}) { online_.server.Serve("/crl", MakeCrl(online_.ca, spec)); }
    OnlineWorld online_{{"/crl"}};
};

TEST_F(CrlFetch, EachAnswerGetsItsVerdict) {
    const auto listed = [&](const CrlSpec& spec) { return AnswerWith(MakeCrl(online_.ca, spec)); };
    const HttpAnswer crl = listed({});
    const std::tuple<const char*, HttpAnswer, ErrorCode> cases[] = {
        {"clears", crl, 0},
        {"lists", listed(online_.Listing()), CRYPT_E_REVOKED},
        {"PEM", {.body = PemOf("X509 CRL", MakeCrl(online_.ca))}, 0},
        {"redirected", HttpAnswer::Redirect("/moved"), 0},
        {"redirected for ever", HttpAnswer::Redirect("/crl"), kSilent},
        {"redirected to a file", HttpAnswer::Redirect("file:///etc/passwd"), kSilent},
        {"not found, with a CRL", {.status = 404, .body = crl.body}, kSilent},
        {"garbage", {.body = "<html>moved</html>"}, kSilent},
        {"nothing", {}, kSilent},
        {"dropped", {.drop = true}, kSilent},
        {"cut short", {.body = crl.body.substr(0, 99), .claimedLength = crl.body.size()}, kSilent},
        {"endless", {.body = std::string(1 << 20, '0'), .endless = true}, kSilent},
        {"late", {.body = crl.body, .delay = 3s}, kSilent},
        {"stops in the middle", {.body = crl.body, .pauseInBody = 3s}, kSilent},
        {"expired", listed(Outdated()), kSilent},
        {"forged", listed({.breakSignature = true}), kSilent},
        {"of another authority", AnswerWith(MakeCrl(online_.root)), kSilent},
    };
    online_.world.network.eachExchange = 1s;
    online_.server.Serve("/moved", crl);
    for (const auto& [name, answer, expected] : cases) {
        online_.server.Serve("/crl", answer);
        const auto start = std::chrono::steady_clock::now();
        EXPECT_EQ(online_.FreshVerdict(profile_), expected) << name;
        EXPECT_LT(std::chrono::steady_clock::now() - start, 5s) << name;
    }
}

TEST_F(CrlFetch, TheNextAddressIsAskedWhenOneTellsNothing) {
    OnlineWorld two({"ldap://127.0.0.1:9/cn=ca", "/first", "/second"});
    two.server.Serve("/second", MakeCrl(two.ca, two.Listing()));
    EXPECT_EQ(two.Verdict(), CRYPT_E_REVOKED);
    EXPECT_THAT(two.server.Asked(), ElementsAre("/first", "/second"));
    EXPECT_EQ(OnlineWorld({"ldap://127.0.0.1:9/cn=ca", "ftp://127.0.0.1:9/crl"}).Verdict(), kNobody);
}

TEST_F(CrlFetch, ADeltaIsAskedForWhereTheCertificateOrTheCrlNamesOne) {
    const Bytes points = Tlv(tag::kSequence, Tlv(tag::kSequence, PointAt(online_.server.Url("/delta"))));
    const Extension freshest{"2.5.29.46", false, points};
    CrlSpec base, delta{.revoked = {{{0x42}, kNow - kDay, 1}}, .number = 2, .extra = {{"2.5.29.27", true, {2, 1, 1}}}};
    for (const bool inCertificate : {true, false}) {
        CertificateSpec spec = PersonSpec("Person", 2);
        spec.serial = {0x42};
        spec.crlUrls = {online_.server.Url("/crl")};
        (inCertificate ? spec.extra : base.extra) = {freshest};
        online_.leaf = Issue(spec, online_.ca);
        Serve(base);
        online_.server.Serve("/delta", HttpAnswer{.status = 404});
        EXPECT_EQ(online_.FreshVerdict(profile_), 0U) << "the delta is not there";
        for (const bool forged : {true, false}) {
            delta.breakSignature = forged;
            online_.server.Serve("/delta", MakeCrl(online_.ca, delta));
            EXPECT_EQ(online_.Verdict(), forged ? 0U : CRYPT_E_REVOKED);
        }
    }
    EXPECT_THAT(online_.server.Asked(),
                ElementsAre("/crl", "/delta", "/delta", "/delta", "/crl", "/delta", "/delta", "/delta"));
}

TEST_F(CrlFetch, NobodyIsAskedWhatTheStoresKnowOrWhatHelpsNobody) {
    Serve();
    const auto roots = std::exchange(online_.world.roots, CertOpenMemoryStore());
    EXPECT_EQ(online_.Verdict(), CERT_E_CHAINING);
    online_.world.Know(online_.root);
    EXPECT_EQ(online_.Verdict(), CERT_E_UNTRUSTEDROOT);
    online_.world.roots = roots;
    online_.world.AddCrl(MakeCrl(online_.ca));
    EXPECT_EQ(online_.Verdict(), 0U);
    online_.world.crls = CertOpenMemoryStore();
    online_.world.AddCrl(MakeCrl(online_.root, {.revoked = {{online_.ca.Serial(), kNow - kDay, 1}}}));
    EXPECT_EQ(online_.Verdict(), CRYPT_E_REVOKED) << "the authority";
    EXPECT_THAT(online_.server.Asked(), IsEmpty());
}

TEST_F(CrlFetch, TheAuthorityIsAskedForToo) {
    Serve();
    CertificateSpec spec = AuthoritySpec("Authority", 1);
    spec.crlUrls = {online_.server.Url("/authorities")};
    const Certificate named = Issue(spec, online_.root);
    ChainWorld world(online_.root, {named});
    world.network.allowed = true;
    EXPECT_EQ(world.VerdictWithCrls(online_.leaf), kSilent);
    online_.server.Serve("/authorities", MakeCrl(online_.root, {.revoked = {{named.Serial(), kNow - kDay, 1}}}));
    EXPECT_EQ(world.VerdictWithCrls(online_.leaf), CRYPT_E_REVOKED);
}

TEST_F(CrlFetch, WhoSignedTheCrlIsAskedForToo) {
    CertificateSpec spec = AuthoritySpec("Authority", 5);
    spec.crlUrls = {online_.server.Url("/keys")};
    const Certificate signer = Issue(spec, online_.ca);
    online_.world.Know(signer);
    online_.server.Serve("/crl", MakeCrl(signer));
    EXPECT_EQ(online_.Verdict(), kSilent);
    CrlSpec ofAuthorities{.extra = {{"2.5.29.28", true, {0x30, 3, 0x82, 1, 0xFF}}}};
    online_.server.Serve("/keys", MakeCrl(online_.ca, ofAuthorities));
    EXPECT_EQ(online_.Verdict(), 0U);
    ofAuthorities.revoked = {{signer.Serial(), kNow - kDay, 1}};
    ofAuthorities.thisUpdate = kNow - 60;
    online_.world.AddCrl(MakeCrl(online_.ca, ofAuthorities));
    EXPECT_EQ(online_.Verdict(), kSilent);
}

TEST_F(CrlFetch, WithoutANetworkNobodyIsAskedAndNobodyAnswered) {
    Serve();
    online_.world.network.allowed = false;
    EXPECT_EQ(online_.Verdict(), kSilent);
    online_.world.network.allowed = true;
    AllowNetwork(false);
    EXPECT_EQ(online_.Verdict(), kSilent);
    platform::HttpRequest request;
    request.url = online_.server.Url("/crl");
    EXPECT_EQ(Download(request.url).state, DownloadResult::State::failed);
    EXPECT_FAILS(HttpSend(request), ERROR_INTERNET_DISCONNECTED);
    AllowNetwork(true);
    EXPECT_THAT(online_.server.Asked(), IsEmpty());
    EXPECT_EQ(online_.Verdict(), 0U);
}

TEST_F(CrlFetch, AnotherMakersCrlIsUnderstood) {
    const auto path = [&](const char* name, std::string_view text) { return profile_.Write(name, text).string(); };
    const auto config =
        path("ca.cnf",
             "[ca]\ndefault_ca = own\n[own]\ndefault_md = sha256\ndefault_crl_days = 7\ncrl_extensions = e\n"
             "certificate = " +
                 path("ca.pem", online_.ca.Pem()) + "\nprivate_key = " + path("ca.key", online_.ca.KeyPem()) +
                 "\ncrlnumber = " + path("number", "01\n") + "\ndatabase = " + path("index.txt", "") +
                 "\n[e]\nauthorityKeyIdentifier = keyid\nissuingDistributionPoint = critical, @scope\n[scope]\n"
                 "fullname = URI:" +
                 online_.server.Url("/crl") + "\n");
    const std::string entry =
        "R\t360101000000Z\t260101000000Z,keyCompromise\t" + online_.leaf.SerialHex() + "\tunknown\t/CN=Person\n";
    for (const auto& [index, expected] : {std::pair(std::string(), ErrorCode{0}), {entry, CRYPT_E_REVOKED}}) {
        path("index.txt", index);
        const auto made = RunProgram({"openssl", "ca", "-gencrl", "-config", config});
        ASSERT_EQ(made.status, 0) << made.Summary();
        online_.server.Serve("/crl", HttpAnswer{.body = made.output});
        EXPECT_EQ(online_.FreshVerdict(profile_), expected);
    }
}

TEST_F(CrlFetch, ExchangesAndTimeAreBounded) {
    std::vector<std::string> paths;
    for (int i = 0; i < 50; ++i)
        paths.push_back("/" + std::to_string(i));
    OnlineWorld online(paths);
    EXPECT_EQ(online.Verdict(), kSilent);
    const std::size_t asked = online.server.Asked().size();
    EXPECT_LE(asked, 16U);
    online.world.network.mostExchanges = 3;
    EXPECT_EQ(online.Verdict(), kSilent);
    EXPECT_EQ(online.server.Asked().size(), asked + 3);
    online.world.network = {.allowed = true, .eachExchange = 1s, .allExchanges = 2s};
    for (const std::string& path : paths)
        online.server.Serve(path, HttpAnswer{.delay = 20s});
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(online.Verdict(), kSilent);
    EXPECT_LT(std::chrono::steady_clock::now() - start, 4s);
}

TEST_F(CrlFetch, OneCertificateIsAskedForInTheSystemsStoresToo) {
    InstallCertificate(profile_, "ROOT", online_.root);
    InstallCertificate(profile_, "CA", online_.ca);
    EXPECT_EQ(CertVerifyRevocation(ContextOf(online_.leaf)), kSilent);
    Serve(online_.Listing());
    EXPECT_EQ(CertVerifyRevocation(ContextOf(online_.leaf)), CRYPT_E_REVOKED);
}

// --- Issuers that no store has ---

// Root, two authorities that nobody knows, a person; each below the root says where its issuer is.
struct IssuerSearch : OnlineFixture {
    IssuerSearch() {
        world.Trust(root);
        world.network.allowed = true;
    }
    [[nodiscard]] Certificate At(const std::string& path, CertificateSpec spec, const Certificate& issuer) const {
        spec.caIssuersUrls = {server.Url(path)};
        return Issue(spec, issuer);
    }
    [[nodiscard]] std::string Bundle(std::initializer_list<Certificate> certificates, const char* form) const {
        std::string pem;
        for (const Certificate& certificate : certificates)
            pem += certificate.Pem();
        const auto file = profile_.Write("bundle.pem", pem);
        const auto made = RunProgram({"openssl", "crl2pkcs7", "-nocrl", "-certfile", file, "-outform", form});
        EXPECT_EQ(made.status, 0) << made.Summary();
        return made.output;
    }

    OnlineServer server;
    ChainWorld world;
    Certificate root = Issue(AuthoritySpec("Root", 0)), upper = At("/root", AuthoritySpec("Upper", 1), root),
                lower = At("/upper", AuthoritySpec("Lower", 3), upper),
                leaf = At("/lower", PersonSpec("Person", 2), lower);
};

TEST_F(IssuerSearch, GoesUpStepByStepInEveryForm) {
    server.Serve("/upper", upper.Der());
    int i = 0;
    for (const std::string& form :
         {std::string(AsText(lower.Der())), lower.Pem(), Bundle({root, lower}, "DER"), Bundle({lower}, "PEM")}) {
        const std::string path = "/form" + std::to_string(i++);
        server.Serve(path, HttpAnswer{.body = form});
        EXPECT_EQ(world.Verdict(At(path, PersonSpec("Person", 2), lower)), 0U) << path;
    }
}

TEST_F(IssuerSearch, ABundleWithTheWholeWayIsAskedForOnceAndItsRootIsNotTrusted) {
    server.Serve("/lower", HttpAnswer{.body = Bundle({upper, lower, root}, "DER")});
    EXPECT_EQ(world.Verdict(leaf), 0U);
    EXPECT_EQ(world.Verdict(leaf), 0U);  // kept meanwhile
    EXPECT_THAT(server.Asked(), ElementsAre("/lower"));
    world.roots = CertOpenMemoryStore();
    EXPECT_EQ(world.Verdict(leaf), CERT_E_UNTRUSTEDROOT);
}

TEST_F(IssuerSearch, NobodyIsAskedWhenTheStoresKnowOrTheNetworkIsOff) {
    world.network.allowed = false;
    EXPECT_EQ(world.Verdict(leaf), CERT_E_CHAINING);
    world.network.allowed = true;
    world.Know(upper);
    world.Know(lower);
    EXPECT_EQ(world.Verdict(leaf), 0U);
    world.roots = CertOpenMemoryStore();
    world.Know(root);
    EXPECT_EQ(world.Verdict(leaf), CERT_E_UNTRUSTEDROOT);
    EXPECT_THAT(server.Asked(), IsEmpty());
}

TEST_F(IssuerSearch, WhatIsNoIssuerIsLeftAlone) {
    const Certificate namesake = Issue(AuthoritySpec("Lower", 9), upper);
    for (const HttpAnswer& answer : {HttpAnswer{.body = "<html>"},
                                     {},
                                     {.body = namesake.Pem()},
                                     {.body = upper.Pem()},
                                     {.body = lower.Pem().substr(0, 200)},
                                     {.body = std::string(65536, 'A'), .endless = true}}) {
        server.Serve("/lower", answer);
        EXPECT_EQ(world.Verdict(leaf), CERT_E_CHAINING);
    }
    server.Serve("/lower", lower.Der());
    server.Serve("/upper", upper.Der());
    EXPECT_EQ(world.Verdict(leaf), 0U);
}

// Each answer leads to the next address, for ever.
TEST_F(IssuerSearch, ALadderWithoutAnEndIsLeft) {
    Certificate rung = Issue(AuthoritySpec("Top", 0));
    for (int i = 0; i < 40; ++i) {
        const std::string path = "/" + std::to_string(i);
        server.Serve(path, rung.Der());
        rung = At(path, AuthoritySpec("Rung " + path, 4 + i), rung);
    }
    EXPECT_EQ(world.Verdict(rung), CERT_E_CHAINING);
    EXPECT_LE(server.Asked().size(), 8U);
}

}  // namespace
