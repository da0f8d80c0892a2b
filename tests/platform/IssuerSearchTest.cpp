// Issuers that no store has, from the addresses in certificates.

#include <gmock/gmock.h>

#include "tests/support/OnlineWorld.h"
#include "tests/support/Process.h"

namespace {

using namespace platform;
using namespace tests;
using testing::ElementsAre;
using testing::IsEmpty;

// Root, two authorities that nobody knows, a person; each below the root says where its issuer is.
struct IssuerSearch : testing::Test {
    IssuerSearch() {
        world.Trust(root);
        world.network.allowed = true;
    }
    static CertificateSpec At(CertificateSpec spec, const std::string& url) {
        spec.caIssuersUrls = {url};
        return spec;
    }
    [[nodiscard]] std::string Bundle(std::initializer_list<Certificate> certificates, const char* form) const {
        std::string pem;
        for (const Certificate& certificate : certificates)
            pem += certificate.Pem();
        const auto result = RunProgram({"openssl", "crl2pkcs7", "-nocrl", "-certfile",
                                        profile.Write("bundle.pem", pem).string(), "-outform", form});
        EXPECT_EQ(result.status, 0) << result.Summary();
        return result.output;
    }

    Profile profile;
    OnlineServer server;
    ChainWorld world;
    Certificate root = Issue(AuthoritySpec("Root", 0));
    Certificate upper = Issue(At(AuthoritySpec("Upper", 1), server.Url("/root")), root);
    Certificate lower = Issue(At(AuthoritySpec("Lower", 3), server.Url("/upper")), upper);
    Certificate leaf = Issue(At(PersonSpec("Person", 2), server.Url("/lower")), lower);
};

TEST_F(IssuerSearch, GoesUpStepByStepInEveryForm) {
    const std::string forms[] = {std::string(AsText(lower.Der())), lower.Pem(), Bundle({root, lower}, "DER"),
                                 Bundle({lower}, "PEM")};
    server.Serve("/upper", upper.Der());
    for (std::size_t i = 0; i < std::size(forms); ++i) {
        const std::string path = "/form" + std::to_string(i);
        server.Serve(path, HttpAnswer{.body = forms[i]});
        EXPECT_EQ(world.Verdict(Issue(At(PersonSpec("Person", 2), server.Url(path)), lower)), 0U) << i;
    }
}

TEST_F(IssuerSearch, ABundleWithTheWholeWayIsAskedForOnce) {
    server.Serve("/lower", HttpAnswer{.body = Bundle({upper, lower, root}, "DER")});
    EXPECT_EQ(world.Verdict(leaf), 0U);
    EXPECT_EQ(world.Verdict(leaf), 0U);  // kept meanwhile
    EXPECT_THAT(server.Asked(), ElementsAre("/lower"));
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

TEST_F(IssuerSearch, ARootFromTheNetworkIsNotTrusted) {
    world.roots = CertOpenMemoryStore();
    server.Serve("/lower", HttpAnswer{.body = Bundle({upper, lower, root}, "DER")});
    EXPECT_EQ(world.Verdict(leaf), CERT_E_UNTRUSTEDROOT);
}

TEST_F(IssuerSearch, WhatIsNoIssuerIsLeftAlone) {
    const Certificate namesake = Issue(AuthoritySpec("Lower", 9), upper);
    for (const std::string& answer :
         {std::string("<html>"), std::string(), namesake.Pem(), upper.Pem(), lower.Pem().substr(0, 200)}) {
        server.Serve("/lower", HttpAnswer{.body = answer});
        EXPECT_EQ(world.Verdict(leaf), CERT_E_CHAINING);
    }
    server.Serve("/lower", HttpAnswer{.body = std::string(65536, 'A'), .endless = true});
    EXPECT_EQ(world.Verdict(leaf), CERT_E_CHAINING);
    server.Serve("/lower", lower.Der());
    server.Serve("/upper", upper.Der());
    EXPECT_EQ(world.Verdict(leaf), 0U);
}

// Each answer leads to the next address, for ever.
TEST_F(IssuerSearch, ALadderWithoutAnEndIsLeft) {
    std::vector<Certificate> rungs = {Issue(AuthoritySpec("Top", 0))};
    for (int i = 0; i < 40; ++i) {
        server.Serve("/" + std::to_string(i), rungs.back().Der());
        rungs.push_back(Issue(
            At(AuthoritySpec("Rung " + std::to_string(i), 4 + i), server.Url("/" + std::to_string(i))), rungs.back()));
    }
    EXPECT_EQ(world.Verdict(rungs.back()), CERT_E_CHAINING);
    EXPECT_LE(server.Asked().size(), 8U);
}

}  // namespace
