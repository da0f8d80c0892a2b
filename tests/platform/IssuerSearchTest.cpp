// Issuers that no store has, from the addresses in certificates.

#include "tests/platform/OnlineFixture.h"

namespace {

using namespace platform;
using namespace tests;
using testing::ElementsAre;
using testing::IsEmpty;

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
