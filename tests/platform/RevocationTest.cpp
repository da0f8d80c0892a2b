// What CRLs from the stores say of a certificate: whole ones, those that tell of a part only (by reason, distribution
// point, other issuer, delta), and those that nobody may believe. Another verifier judges the same lists beside ours.

#include <algorithm>

#include "tests/platform/DerPieces.h"
#include "tests/platform/OnlineFixture.h"

namespace {

using namespace platform;
using namespace tests;

constexpr int kKeyCompromise = 1, kHold = 6, kRemoveFromCrl = 8;
const Bytes kSerial = {0x42};

// --- Extensions in DER ---

// distributionPoint relative to the CRL's issuer.
Bytes Relative(std::string_view commonName) {
    return Tlv(0xA0, Tlv(0xA1, Tlv(0x30, Joined({{6, 3, 0x55, 4, 3}, Tlv(0x0C, AsBytes(commonName))}))));
}
Bytes CrlIssuer(const Certificate& issuer) {
    return Tlv(0xA2, Tlv(0xA4, issuer.SubjectDer()));
}
// Of reasons the first two octets: the bits of keyCompromise and cACompromise are 0x60.
const Bytes kPoint = PointAt("http://crl.example.bg/1"), kCompromises = {0x83, 3, 7, 0x60, 0},
            kOtherReasons = {0x83, 3, 7, 0x1F, 0x80}, kOnlyUsers = {0x81, 1, 0xFF}, kOnlyAuthorities = {0x82, 1, 0xFF},
            kIndirect = {0x84, 1, 0xFF}, kForCompromises = {0x81, 3, 7, 0x60, 0},
            kForOtherReasons = {0x81, 3, 7, 0x1F, 0x80};

// --- Certificates and lists ---

CertificateSpec Leaf(std::initializer_list<Bytes> points, const char* oid = "2.5.29.31") {
    CertificateSpec spec = PersonSpec("Person", 2);
    spec.serial = kSerial;
    Bytes all;
    for (const Bytes& point : points)
        all = Joined({all, Tlv(0x30, point)});
    if (!all.empty()) spec.extra = {{oid, false, Tlv(0x30, all)}};
    return spec;
}
CrlSpec Listing(int reason = kKeyCompromise, const Bytes& issuer = {}) {
    return {.revoked = {{kSerial, kNow - 10 * kDay, reason, issuer}}};
}
CrlSpec With(const char* oid, const Bytes& value, CrlSpec spec = {}, bool critical = true) {
    spec.extra.push_back({oid, critical, value});
    return spec;
}
CrlSpec For(std::initializer_list<Bytes> distribution, const CrlSpec& spec = {}) {
    return With("2.5.29.28", Tlv(0x30, Joined(distribution)), spec);
}
CrlSpec Numbered(std::int64_t number, CrlSpec spec = {}) {
    spec.number = number;
    return spec;
}
CrlSpec DeltaFrom(std::uint8_t base, const CrlSpec& spec) {
    return With("2.5.29.27", {2, 1, base}, spec);
}
// Days from now; without the second there is no end.
CrlSpec At(int from, std::optional<int> until, CrlSpec spec = {}) {
    spec.thisUpdate = kNow + from * kDay;
    spec.nextUpdate = until ? std::optional(kNow + *until * kDay) : std::nullopt;
    return spec;
}

struct Case {
    const char* name;
    CertificateSpec leaf;
    std::vector<Bytes> crls;
    ErrorCode expected;
    bool peerAgrees = true;  // whether the peer accepts just what we accept
};

class Revocation : public testing::Test {
  protected:
    [[nodiscard]] Bytes Own(const CrlSpec& spec = {}) const { return MakeCrl(ca_, spec); }
    // The root's newest list, with this one revoked.
    [[nodiscard]] Bytes OfRoot(const Certificate& revoked) const {
        return MakeCrl(root_, At(0, 1, {.revoked = {{revoked.Serial(), kNow - kDay, kKeyCompromise}}}));
    }
    // The root's list clears the authority.
    [[nodiscard]] ChainWorld World() const {
        ChainWorld world(root_, {ca_, other_});
        world.Know(stranger_);
        world.AddCrl(MakeCrl(root_));
        return world;
    }
    [[nodiscard]] bool PeerAccepts(const Certificate& leaf, const std::vector<Bytes>& lists) const {
        std::string crls = PemOf("X509 CRL", MakeCrl(root_));
        for (const Bytes& list : lists)
            crls += PemOf("X509 CRL", list);
        return RunProgram({"openssl", "verify", "-crl_check_all", "-extended_crl", "-use_deltas", "-CAfile",
                           profile_.Write("root.pem", root_.Pem()), "-untrusted",
                           profile_.Write("others.pem", ca_.Pem() + other_.Pem()), "-CRLfile",
                           profile_.Write("crls.pem", crls), profile_.Write("leaf.pem", leaf.Pem())})
                   .status == 0;
    }
    void Check(std::initializer_list<Case> cases) const {
        for (auto [name, spec, crls, expected, peerAgrees] : cases) {
            const Certificate leaf = Issue(spec, ca_);
            EXPECT_EQ(PeerAccepts(leaf, crls) == (expected == 0), peerAgrees) << name;
            for (const char* order : {"", " in reverse order"}) {
                const ChainWorld world = World();
                for (const Bytes& crl : crls)
                    world.AddCrl(crl);
                EXPECT_EQ(world.VerdictWithCrls(leaf), expected) << name << order;
                std::ranges::reverse(crls);
            }
        }
    }

    Profile profile_;
    Certificate root_ = Issue(AuthoritySpec("Root", 0)), ca_ = Issue(AuthoritySpec("Authority", 1), root_),
                other_ = Issue(AuthoritySpec("Lister", 3), root_), stranger_ = Issue(AuthoritySpec("Lister", 4));
    const CertificateSpec leaf_ = Leaf({kPoint}), bare_ = Leaf({});
};

TEST_F(Revocation, OfALeafFollowsTheListsOfItsAuthority) {
    CrlSpec forged = Listing(), clearing = At(0, 1);
    forged.signWith = clearing.signWith = TestKey(KeyType::p256, 9);
    Check({
        {"no list", leaf_, {}, kSilent},
        {"not listed", leaf_, {Own()}, 0},
        {"listed", leaf_, {Own(Listing())}, CRYPT_E_REVOKED},
        {"on hold", leaf_, {Own(Listing(kHold))}, CRYPT_E_REVOKED},
        {"forged listing", leaf_, {Own(forged)}, kSilent},
        {"forged listing, genuine clearing", leaf_, {Own(forged), Own()}, 0, false},
        {"forged clearing, genuine listing", leaf_, {Own(clearing), Own(Listing())}, CRYPT_E_REVOKED},
        {"signature broken", leaf_, {Own({.breakSignature = true})}, kSilent},
        {"outdated", leaf_, {Own(At(-9, -1))}, kSilent},
        {"outdated listing", leaf_, {Own(At(-9, -1, Listing()))}, CRYPT_E_REVOKED},
        {"outdated hold", leaf_, {Own(At(-9, -1, Listing(kHold)))}, kSilent},
        {"not yet current", leaf_, {Own(At(1, 9))}, kSilent},
        {"newer one clears a hold", leaf_, {Own(At(-3, 1, Listing(kHold))), Own(At(-1, 1))}, 0},
        {"newer one revokes", leaf_, {Own(At(-3, 1)), Own(At(-1, 1, Listing()))}, CRYPT_E_REVOKED},
        {"without end, young", leaf_, {Own(At(-1, {}))}, 0},
        {"without end, old", leaf_, {Own(At(-8, {}))}, kSilent, false},
        {"unknown critical extension", leaf_, {Own(With("1.2.3.4", {5, 0}))}, kSilent},
        {"unknown extension", leaf_, {Own(With("1.2.3.4", {5, 0}, {}, false))}, 0},
        {"list of the root", leaf_, {MakeCrl(root_, Listing())}, kSilent},
    });
}

TEST_F(Revocation, IsClearedByPartsOnlyTogether) {
    const Bytes a = PointAt("http://a/"), b = PointAt("http://b/");
    Check({
        {"of users", leaf_, {Own(For({kOnlyUsers}))}, 0},
        {"of authorities", leaf_, {Own(For({kOnlyAuthorities}))}, kSilent},
        {"of its point", leaf_, {Own(For({kPoint}))}, 0},
        {"of another point", leaf_, {Own(For({a}, Listing()))}, kSilent},
        {"all reasons in two parts", bare_, {Own(For({kCompromises})), Own(For({kOtherReasons}))}, 0},
        {"the same at a point", leaf_, {Own(For({kPoint, kCompromises})), Own(For({kPoint, kOtherReasons}))}, 0},
        {"one part of the reasons", leaf_, {Own(For({kPoint, kOtherReasons}))}, kSilent},
        {"the other part lists",
         leaf_,
         {Own(For({kPoint, kOtherReasons})), Own(For({kPoint, kCompromises}, Listing()))},
         CRYPT_E_REVOKED},
        {"a part lists, the whole clears", leaf_, {Own(For({kCompromises}, Listing())), Own()}, CRYPT_E_REVOKED},
        {"points for reasons",
         Leaf({Joined({a, kForCompromises}), Joined({b, kForOtherReasons})}),
         {Own(For({a})), Own(For({b}))},
         0},
        {"a point for some reasons alone", Leaf({Joined({kPoint, kForCompromises})}), {Own(For({kPoint}))}, kSilent},
        {"relative names", Leaf({Relative("Part 1")}), {Own(For({Relative("Part 1")}))}, 0},
        {"another relative name", Leaf({Relative("Part 1")}), {Own(For({Relative("Part 2")}))}, kNobody},
    });
}

TEST_F(Revocation, IsToldByOthersWhomThePointNames) {
    const CertificateSpec byOther = Leaf({CrlIssuer(other_)});
    const auto listing = [&](const Certificate& issuer) { return Listing(kKeyCompromise, issuer.SubjectDer()); };
    Check({
        {"flagged by the issuer", bare_, {Own(For({kIndirect}))}, 0},
        {"flagged by the issuer, listed", bare_, {Own(For({kIndirect}, Listing()))}, CRYPT_E_REVOKED},
        {"the one who is named", byOther, {MakeCrl(other_, For({kIndirect}))}, 0},
        {"listed", byOther, {MakeCrl(other_, For({kIndirect}, listing(ca_)))}, CRYPT_E_REVOKED},
        {"the same number of another", byOther, {MakeCrl(other_, For({kIndirect}, listing(other_)))}, 0},
        {"without the flag", byOther, {MakeCrl(other_, For({kOnlyUsers}))}, kNobody},
        {"whom no point names", leaf_, {MakeCrl(other_, For({kIndirect}))}, kSilent},
        {"a stranger of that name", Leaf({CrlIssuer(stranger_)}), {MakeCrl(stranger_, For({kIndirect}))}, kNobody},
        {"the issuer in place of the named one", byOther, {Own()}, kNobody, false},
    });
}

TEST_F(Revocation, IsChangedByADeltaOfTheSameScope) {
    // The peer uses deltas only where the certificate says where they are.
    const CertificateSpec leaf = Leaf({PointAt("http://crl.example.bg/delta")}, "2.5.29.46");
    const Bytes hold = Own(Numbered(5, Listing(kHold)));
    const CrlSpec removed = Listing(kRemoveFromCrl);
    Check({
        {"ends a hold", leaf, {hold, Own(DeltaFrom(5, Numbered(6, removed)))}, 0},
        {"from a later base", leaf, {hold, Own(DeltaFrom(6, Numbered(7, removed)))}, CRYPT_E_REVOKED},
        {"of another scope", leaf, {hold, Own(For({kOnlyUsers}, DeltaFrom(5, Numbered(6, removed))))}, CRYPT_E_REVOKED},
        {"ends no revocation",
         leaf,
         {Own(Numbered(5, Listing())), Own(DeltaFrom(5, Numbered(6, removed)))},
         CRYPT_E_REVOKED,
         false},
        {"revokes", leaf, {Own(Numbered(5)), Own(DeltaFrom(5, Numbered(6, Listing())))}, CRYPT_E_REVOKED},
        {"alone", leaf, {Own(DeltaFrom(5, Numbered(6)))}, kNobody},
    });
}

// --- Who may sign lists, and whose lists count ---

TEST_F(Revocation, OfAnAuthorityIsRevocationOfTheChain) {
    const Certificate leaf = Issue(bare_, ca_);
    const ChainWorld world(root_, {ca_});
    world.AddCrl(Own());
    EXPECT_EQ(world.VerdictWithCrls(leaf), kNobody);  // nobody tells of the authority
    EXPECT_EQ(world.Verdict(leaf), 0U);               // nobody asked
    world.AddCrl(OfRoot(ca_));
    const ChainContext chain = world.Chain(leaf, kNow, CERT_CHAIN_REVOCATION_CHECK_CHAIN);
    EXPECT_EQ(CertVerifyCertificateChainPolicy(chain), CRYPT_E_REVOKED);
    for (const std::size_t i : {0U, 1U, 2U})
        EXPECT_EQ(chain.elements.at(i).dwErrorStatus, i == 1 ? CERT_TRUST_IS_REVOKED : 0U);
}

TEST_F(Revocation, AnIssuerThatMayNotSignCrlsCannotClear) {
    CertificateSpec spec = AuthoritySpec("Authority", 1);
    spec.keyUsage = "keyCertSign";
    const Certificate ca = Issue(spec, root_);
    const ChainWorld world(root_, {ca});
    world.AddCrl(MakeCrl(root_));
    world.AddCrl(MakeCrl(ca));
    EXPECT_EQ(world.VerdictWithCrls(Issue(bare_, ca)), kNobody);
}

TEST_F(Revocation, AListOverABreakableDigestRevokesButDoesNotClear) {
    CertificateSpec spec = AuthoritySpec("Authority", 1);
    spec.key = TestKey(KeyType::rsa2048);
    const Certificate ca = Issue(spec, root_), leaf = Issue(bare_, ca);
    const auto verdict = [&](CrlSpec crl, const char* hash) {
        crl.hash = hash;
        const ChainWorld world(root_, {ca});
        world.AddCrl(MakeCrl(root_));
        world.AddCrl(MakeCrl(ca, crl));
        return world.VerdictWithCrls(leaf);
    };
    EXPECT_EQ(verdict({}, "SHA1"), 0U);
    EXPECT_EQ(verdict({}, "MD5"), kNobody);
    EXPECT_EQ(verdict(Listing(), "MD5"), CRYPT_E_REVOKED);
}

// The authority's list, signed by another key under the authority's name.
TEST_F(Revocation, AnotherKeyOfTheAuthorityMustBeVouchedForAndAllowed) {
    CertificateSpec lister = PersonSpec("Authority", 5), person = lister;
    lister.keyUsage = "cRLSign";
    person.keyUsage = {};
    const Certificate signer = Issue(lister, root_), leaf = Issue(leaf_, ca_);
    const auto verdict = [&](const Certificate& by, const std::vector<Bytes>& more = {}) {
        const ChainWorld world = World();
        world.Know(by);
        world.AddCrl(MakeCrl(by));
        for (const Bytes& crl : more)
            world.AddCrl(crl);
        return world.VerdictWithCrls(leaf);
    };
    EXPECT_EQ(verdict(signer), 0U);
    EXPECT_EQ(verdict(signer, {OfRoot(signer)}), kSilent) << "revoked itself";
    EXPECT_EQ(verdict(Issue(AuthoritySpec("Authority", 5), root_)), 0U) << "a changed key of the authority";
    const Certificate ofAuthority = Issue(AuthoritySpec("Authority", 5), ca_);
    EXPECT_EQ(verdict(ofAuthority), kSilent) << "nobody tells whether it is revoked";
    EXPECT_EQ(verdict(ofAuthority, {Own(For({kOnlyAuthorities}))}), 0U);
    EXPECT_EQ(verdict(Issue(person, root_)), kSilent) << "a person with the authority's name";
    EXPECT_EQ(verdict(Issue(lister)), kSilent) << "a stranger who says so";
    CertificateSpec weak = lister, restricted = lister;
    weak.key = Key(EVP_RSA_gen(512), EVP_PKEY_free);
    restricted.extra = {{"1.2.3.4", true, {5, 0}}};
    EXPECT_EQ(verdict(Issue(weak, root_)), kSilent) << "a key that anybody can break";
    EXPECT_EQ(verdict(Issue(restricted, root_)), kSilent) << "restricted in a way that nobody here knows";
}

TEST_F(Revocation, ATrustedCertificateThatIsNoRootIsAskedFor) {
    const Certificate leaf = Issue(bare_, ca_);
    const ChainWorld world(ca_, {root_});
    world.AddCrl(Own());
    EXPECT_EQ(world.VerdictWithCrls(leaf), kNobody);
    world.AddCrl(MakeCrl(root_));
    EXPECT_EQ(world.VerdictWithCrls(leaf), 0U);
    world.AddCrl(OfRoot(ca_));
    EXPECT_EQ(world.VerdictWithCrls(leaf), CRYPT_E_REVOKED);
}

// One cross-certificate of the authority is revoked, the other is not.
TEST_F(Revocation, OfACrossCertificateDoesNotHideTheOtherPath) {
    const Certificate two = Issue(AuthoritySpec("Root Two", 4)), byTwo = Issue(AuthoritySpec("Authority", 1), two);
    const ChainWorld world(root_, {ca_, byTwo});
    world.Trust(two);
    for (const Bytes& crl : {Own(), OfRoot(ca_), MakeCrl(two)})
        world.AddCrl(crl);
    EXPECT_EQ(world.VerdictWithCrls(Issue(bare_, ca_)), 0U);
}

TEST_F(Revocation, OfOneCertificateIsAnsweredFromTheSystemsStores) {
    const auto leaf = ContextOf(Issue(leaf_, ca_));
    EXPECT_EQ(CertVerifyRevocation(leaf), kNobody);
    InstallCertificate(profile_, "ROOT", root_);
    InstallCertificate(profile_, "CA", ca_);
    InstallCrl(profile_, "CA", Own(At(-3, 1)));
    EXPECT_EQ(CertVerifyRevocation(leaf), 0U);
    InstallCrl(profile_, "CA", Own(Listing()));
    EXPECT_EQ(CertVerifyRevocation(leaf), CRYPT_E_REVOKED);
    EXPECT_EQ(CertVerifyRevocation(ContextOf(root_)), kNobody);
}

}  // namespace
