#include <gtest/gtest.h>

#include <algorithm>
#include <functional>

#include "platform/Chains.h"
#include "tests/support/ChainWorld.h"

namespace {

using namespace platform;
using tests::AuthoritySpec;
using tests::Certificate;
using tests::CertificateSpec;
using tests::ChainWorld;
using tests::ContextOf;
using tests::CrlSpec;
using tests::Issue;
using tests::kDay;
using tests::MakeCrl;
using tests::PersonSpec;
using tests::TestKey;

using Crls = std::vector<Bytes>;
const std::int64_t kNow = std::time(nullptr);
constexpr int kKeyCompromise = 1, kHold = 6, kRemoveFromCrl = 8;
constexpr ErrorCode kUnknown = CRYPT_E_NO_REVOCATION_CHECK;
constexpr ErrorCode kSilent = CRYPT_E_REVOCATION_OFFLINE;  // the certificate names an address
constexpr const char* kIdp = "2.5.29.28";

struct Trio {
    Certificate root = Issue(AuthoritySpec("Root", 0)), ca = Issue(AuthoritySpec("Authority", 1), root);
    Certificate leaf = Issue(LeafSpec(), ca);

    static CertificateSpec LeafSpec() {
        CertificateSpec spec = PersonSpec("Person", 2);
        spec.crlUrls = {"http://crl.example.bg/1"};
        return spec;
    }
    // The root's list clears the authority.
    [[nodiscard]] ChainWorld World() const {
        ChainWorld world(root, {ca});
        world.AddCrl(MakeCrl(root));
        return world;
    }
    [[nodiscard]] CrlSpec Listing(int reason = kKeyCompromise) const {
        return {.revoked = {{leaf.Serial(), kNow - 2 * kDay, reason}}};
    }
};

struct CrlCase {
    const char* name;
    std::function<Crls(const Trio&)> crls;  // of the authority
    ErrorCode expected;
};
class LeafUnderCrls : public testing::TestWithParam<CrlCase> {};

TEST_P(LeafUnderCrls, GetsTheVerdict) {
    const Trio trio;
    Crls crls = GetParam().crls(trio);
    for (int order = 0; order < 2; ++order) {
        const ChainWorld world = trio.World();
        for (const Bytes& crl : crls)
            world.AddCrl(crl);
        EXPECT_EQ(world.VerdictWithCrls(trio.leaf), GetParam().expected) << (order ? "in reverse order" : "");
        std::ranges::reverse(crls);
    }
}

CrlSpec With(CrlSpec spec, const char* oid, Bytes value, bool critical = true) {
    spec.extra.push_back({oid, critical, std::move(value)});
    return spec;
}
CrlSpec At(CrlSpec spec, std::int64_t thisUpdate, std::optional<std::int64_t> nextUpdate) {
    spec.thisUpdate = thisUpdate;
    spec.nextUpdate = nextUpdate;
    return spec;
}
CrlSpec SignedBy(CrlSpec spec, unsigned key) {
    spec.signWith = TestKey(tests::KeyType::p256, key);
    return spec;
}
// issuingDistributionPoint for one URL.
Bytes ForUrl(std::string_view url) {
    Bytes der(8 + url.size());
    for (std::size_t i = 0; i < 4; ++i) {
        constexpr std::uint8_t kTags[] = {0x30, 0xA0, 0xA0, 0x86};
        der[2 * i] = kTags[i];
        der[2 * i + 1] = static_cast<std::uint8_t>(url.size() + 6 - 2 * i);
    }
    std::ranges::copy(url, der.begin() + 8);
    return der;
}
const Bytes kOnlyUsers = {0x30, 3, 0x81, 1, 0xFF}, kOnlyAuthorities = {0x30, 3, 0x82, 1, 0xFF},
            kSomeReasons = {0x30, 4, 0x83, 2, 5, 0x60}, kIndirect = {0x30, 3, 0x84, 1, 0xFF}, kBaseNumber = {2, 1, 1};
const char* const kDelta = "2.5.29.27";

const CrlCase kCrlCases[] = {
    {"NoCrl", [](const Trio&) { return Crls{}; }, kSilent},
    {"NotListed", [](const Trio& t) { return Crls{MakeCrl(t.ca)}; }, 0},
    {"Listed", [](const Trio& t) { return Crls{MakeCrl(t.ca, t.Listing())}; }, CRYPT_E_REVOKED},
    {"OnHold", [](const Trio& t) { return Crls{MakeCrl(t.ca, t.Listing(kHold))}; }, CRYPT_E_REVOKED},
    {"ForgedListing", [](const Trio& t) { return Crls{MakeCrl(t.ca, SignedBy(t.Listing(), 9))}; }, kSilent},
    {"ForgedListingBesideAGenuineClearing",
     [](const Trio& t) {
         return Crls{MakeCrl(t.ca, SignedBy(t.Listing(), 9)), MakeCrl(t.ca)};
     },
     0},
    {"ForgedClearingBesideAGenuineListing",
     [](const Trio& t) {
         return Crls{MakeCrl(t.ca, SignedBy(At({}, kNow - 60, kNow + kDay), 9)), MakeCrl(t.ca, t.Listing())};
     },
     CRYPT_E_REVOKED},
    {"SignatureBroken", [](const Trio& t) { return Crls{MakeCrl(t.ca, {.breakSignature = true})}; }, kSilent},
    {"Outdated", [](const Trio& t) { return Crls{MakeCrl(t.ca, At({}, kNow - 9 * kDay, kNow - kDay))}; }, kSilent},
    {"OutdatedListingStillRevokes",
     [](const Trio& t) { return Crls{MakeCrl(t.ca, At(t.Listing(), kNow - 9 * kDay, kNow - kDay))}; }, CRYPT_E_REVOKED},
    {"OutdatedHoldIsNotKnownToLast",
     [](const Trio& t) { return Crls{MakeCrl(t.ca, At(t.Listing(kHold), kNow - 9 * kDay, kNow - kDay))}; }, kSilent},
    {"NotYetCurrent", [](const Trio& t) { return Crls{MakeCrl(t.ca, At({}, kNow + kDay, kNow + 9 * kDay))}; }, kSilent},
    {"NewerClearsAHold",
     [](const Trio& t) {
         return Crls{MakeCrl(t.ca, At(t.Listing(kHold), kNow - 3 * kDay, kNow + kDay)),
                     MakeCrl(t.ca, At({}, kNow - kDay, kNow + kDay))};
     },
     0},
    {"NewerRevokes",
     [](const Trio& t) {
         return Crls{MakeCrl(t.ca, At({}, kNow - 3 * kDay, kNow + kDay)),
                     MakeCrl(t.ca, At(t.Listing(), kNow - kDay, kNow + kDay))};
     },
     CRYPT_E_REVOKED},
    {"WithoutEndYoung", [](const Trio& t) { return Crls{MakeCrl(t.ca, At({}, kNow - kDay, {}))}; }, 0},
    {"WithoutEndOld", [](const Trio& t) { return Crls{MakeCrl(t.ca, At({}, kNow - 8 * kDay, {}))}; }, kSilent},
    {"OfUsersOnly", [](const Trio& t) { return Crls{MakeCrl(t.ca, With({}, kIdp, kOnlyUsers))}; }, 0},
    {"OfAuthoritiesOnly", [](const Trio& t) { return Crls{MakeCrl(t.ca, With({}, kIdp, kOnlyAuthorities))}; }, kSilent},
    {"OfItsDistributionPoint",
     [](const Trio& t) { return Crls{MakeCrl(t.ca, With({}, kIdp, ForUrl("http://crl.example.bg/1")))}; }, 0},
    {"OfAnotherDistributionPoint",
     [](const Trio& t) { return Crls{MakeCrl(t.ca, With(t.Listing(), kIdp, ForUrl("http://crl.example.bg/2")))}; },
     kSilent},
    {"OfSomeReasonsClears", [](const Trio& t) { return Crls{MakeCrl(t.ca, With({}, kIdp, kSomeReasons))}; }, kSilent},
    {"OfSomeReasonsRevokes",
     [](const Trio& t) {
         return Crls{MakeCrl(t.ca, With(t.Listing(), kIdp, kSomeReasons)), MakeCrl(t.ca)};
     },
     CRYPT_E_REVOKED},
    {"Indirect", [](const Trio& t) { return Crls{MakeCrl(t.ca, With(t.Listing(), kIdp, kIndirect))}; },
     CRYPT_E_REVOKED},
    {"DeltaAloneClears", [](const Trio& t) { return Crls{MakeCrl(t.ca, With({}, kDelta, kBaseNumber))}; }, kSilent},
    {"DeltaRevokesWhatTheBaseClears",
     [](const Trio& t) {
         return Crls{MakeCrl(t.ca, At({}, kNow - 3 * kDay, kNow + kDay)),
                     MakeCrl(t.ca, With(t.Listing(), kDelta, kBaseNumber))};
     },
     CRYPT_E_REVOKED},
    {"DeltaTakesNothingBack",
     [](const Trio& t) {
         return Crls{MakeCrl(t.ca, t.Listing(kHold)),
                     MakeCrl(t.ca, With(t.Listing(kRemoveFromCrl), kDelta, kBaseNumber))};
     },
     CRYPT_E_REVOKED},
    {"UnknownCriticalExtension",
     [](const Trio& t) {
         return Crls{MakeCrl(t.ca, With({}, "1.2.3.4", {5, 0}))};
     },
     kSilent},
    {"UnknownExtension",
     [](const Trio& t) {
         return Crls{MakeCrl(t.ca, With({}, "1.2.3.4", {5, 0}, false))};
     },
     0},
    {"OfTheRootForTheAuthoritysLeaf", [](const Trio& t) { return Crls{MakeCrl(t.root, t.Listing())}; }, kSilent},
};
INSTANTIATE_TEST_SUITE_P(Revocation, LeafUnderCrls, testing::ValuesIn(kCrlCases),
                         [](const auto& info) { return std::string(info.param.name); });

TEST(Revocation, OfAnAuthorityIsRevocationOfTheChain) {
    const Trio trio;
    const ChainWorld world(trio.root, {trio.ca});
    world.AddCrl(MakeCrl(trio.ca));
    EXPECT_EQ(world.VerdictWithCrls(trio.leaf), kUnknown);  // nobody tells of the authority
    EXPECT_EQ(world.Verdict(trio.leaf), 0U);                // nobody asked
    world.AddCrl(MakeCrl(trio.root, {.revoked = {{trio.ca.Serial(), kNow - kDay, kKeyCompromise}}}));
    EXPECT_EQ(world.VerdictWithCrls(trio.leaf), CRYPT_E_REVOKED);
    const ChainContext chain = world.Chain(trio.leaf, kNow, CERT_CHAIN_REVOCATION_CHECK_CHAIN);
    EXPECT_EQ(chain.elements[0].dwErrorStatus, 0U);
    EXPECT_EQ(chain.elements[1].dwErrorStatus, CERT_TRUST_IS_REVOKED);
    EXPECT_EQ(chain.elements[2].dwErrorStatus, 0U);
}

TEST(Revocation, AnIssuerThatMayNotSignCrlsCannotClear) {
    CertificateSpec spec = AuthoritySpec("Authority", 1);
    spec.keyUsage = "keyCertSign";
    const Certificate root = Issue(AuthoritySpec("Root", 0)), ca = Issue(spec, root);
    const ChainWorld world(root, {ca});
    world.AddCrl(MakeCrl(root));
    world.AddCrl(MakeCrl(ca));
    EXPECT_EQ(world.VerdictWithCrls(Issue(PersonSpec("Person", 2), ca)), kUnknown);
}

struct SignerCase {
    const char* name;
    std::function<CertificateSpec()> spec;
    bool vouchedFor;  // issued by the root, as the authority is; else by itself
    ErrorCode expected;
};
// The authority's list, signed by another key under the authority's name.
TEST(Revocation, AnotherKeyOfTheAuthorityMustBeVouchedForAndAllowed) {
    const auto crlSigner = [] {
        CertificateSpec spec = PersonSpec("Authority", 5);
        spec.keyUsage = "cRLSign";
        return spec;
    };
    const auto person = [] {
        CertificateSpec spec = PersonSpec("Authority", 5);
        spec.keyUsage = {};
        return spec;
    };
    const SignerCase cases[] = {
        {"a key for CRLs alone", crlSigner, true, 0},
        {"a changed key of the authority", [] { return AuthoritySpec("Authority", 5); }, true, 0},
        {"a person with the authority's name", person, true, kSilent},
        {"a stranger who says so", crlSigner, false, kSilent},
    };
    const Trio trio;
    for (const SignerCase& each : cases) {
        const Certificate signer = each.vouchedFor ? Issue(each.spec(), trio.root) : Issue(each.spec());
        const ChainWorld world = trio.World();
        world.Know(signer);
        world.AddCrl(MakeCrl(signer));
        EXPECT_EQ(world.VerdictWithCrls(trio.leaf), each.expected) << each.name;
    }
}

TEST(Revocation, ARevokedKeyForCrlsCannotClear) {
    const Trio trio;
    CertificateSpec spec = PersonSpec("Authority", 5);
    spec.keyUsage = "cRLSign";
    const Certificate signer = Issue(spec, trio.root);
    const ChainWorld world = trio.World();
    world.Know(signer);
    world.AddCrl(MakeCrl(signer));
    EXPECT_EQ(world.VerdictWithCrls(trio.leaf), 0U);
    world.AddCrl(MakeCrl(trio.root, At({.revoked = {{signer.Serial(), kNow, 1}}}, kNow - 60, kNow + kDay)));
    EXPECT_EQ(world.VerdictWithCrls(trio.leaf), kSilent);
}

TEST(Revocation, AKeyForCrlsThatNobodyTellsOfCannotClear) {
    const Trio trio;
    const Certificate signer = Issue(AuthoritySpec("Authority", 5), trio.ca);
    const ChainWorld world = trio.World();
    world.Know(signer);
    world.AddCrl(MakeCrl(signer));
    EXPECT_EQ(world.VerdictWithCrls(trio.leaf), kSilent);
    world.AddCrl(MakeCrl(trio.ca, With({}, kIdp, kOnlyAuthorities)));
    EXPECT_EQ(world.VerdictWithCrls(trio.leaf), 0U);
}

TEST(Revocation, ATrustedCertificateThatIsNoRootIsAskedFor) {
    const Trio trio;
    const ChainWorld world(trio.ca, {trio.root});
    world.AddCrl(MakeCrl(trio.ca));
    EXPECT_EQ(world.VerdictWithCrls(trio.leaf), kUnknown);
    world.AddCrl(MakeCrl(trio.root));
    EXPECT_EQ(world.VerdictWithCrls(trio.leaf), 0U);
    world.AddCrl(MakeCrl(trio.root, At({.revoked = {{trio.ca.Serial(), kNow, 1}}}, kNow - 60, kNow + kDay)));
    EXPECT_EQ(world.VerdictWithCrls(trio.leaf), CRYPT_E_REVOKED);
}

// One cross-certificate of the authority is revoked, the other is not.
TEST(Revocation, OfACrossCertificateDoesNotHideTheOtherPath) {
    const Certificate one = Issue(AuthoritySpec("Root One", 0)), two = Issue(AuthoritySpec("Root Two", 4));
    const Certificate byOne = Issue(AuthoritySpec("Authority", 1), one),
                      byTwo = Issue(AuthoritySpec("Authority", 1), two);
    const ChainWorld world(one, {byOne, byTwo});
    world.Trust(two);
    world.AddCrl(MakeCrl(byOne));
    world.AddCrl(MakeCrl(one, {.revoked = {{byOne.Serial(), kNow - kDay, 1}}}));
    world.AddCrl(MakeCrl(two));
    EXPECT_EQ(world.VerdictWithCrls(Issue(PersonSpec("Person", 2), byOne)), 0U);
}

TEST(Revocation, OfOneCertificateIsAnsweredFromTheSystemsStores) {
    const Trio trio;
    const tests::Profile profile;
    EXPECT_EQ(CertVerifyRevocation(ContextOf(trio.leaf)), CRYPT_E_NO_REVOCATION_CHECK);
    tests::InstallCertificate(profile, "ROOT", trio.root);
    tests::InstallCertificate(profile, "CA", trio.ca);
    tests::InstallCrl(profile, "CA", MakeCrl(trio.ca, At({}, kNow - 3 * kDay, kNow + kDay)));
    EXPECT_EQ(CertVerifyRevocation(ContextOf(trio.leaf)), 0U);
    tests::InstallCrl(profile, "CA", MakeCrl(trio.ca, trio.Listing()));
    EXPECT_EQ(CertVerifyRevocation(ContextOf(trio.leaf)), CRYPT_E_REVOKED);
    EXPECT_EQ(CertVerifyRevocation(ContextOf(trio.root)), CRYPT_E_NO_REVOCATION_CHECK);
}

}  // namespace
