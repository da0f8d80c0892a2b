// CRLs that tell of a part only: partitions by reason, distribution points, other issuers, deltas. Another verifier
// judges the same certificates and lists beside ours.

#include <gtest/gtest.h>

#include <functional>
#include <initializer_list>

#include "platform/Chains.h"
#include "tests/support/ChainWorld.h"
#include "tests/support/Process.h"

namespace {

using namespace platform;
using tests::AuthoritySpec;
using tests::Certificate;
using tests::CertificateSpec;
using tests::ChainWorld;
using tests::CrlSpec;
using tests::Issue;
using tests::kDay;
using tests::MakeCrl;
using tests::PersonSpec;

const std::int64_t kNow = std::time(nullptr);
constexpr ErrorCode kUnknown = CRYPT_E_NO_REVOCATION_CHECK;
constexpr int kKeyCompromise = 1, kHold = 6, kRemoveFromCrl = 8;

// --- Extensions in DER ---

Bytes Tlv(std::uint8_t tag, const Bytes& content) {
    Bytes der = {tag};
    if (content.size() >= 0x80) der.push_back(0x81);
    der.push_back(static_cast<std::uint8_t>(content.size()));
    der.insert(der.end(), content.begin(), content.end());
    return der;
}
Bytes Joined(std::initializer_list<Bytes> parts) {
    Bytes all;
    for (const Bytes& part : parts)
        all.insert(all.end(), part.begin(), part.end());
    return all;
}
Bytes TextBytes(std::string_view text) {
    return CopyOf(AsBytes(text));
}
// distributionPoint: an address, a whole directory name, or "CN=..." relative to the CRL's issuer.
Bytes Url(std::string_view url) {
    return Tlv(0xA0, Tlv(0xA0, Tlv(0x86, TextBytes(url))));
}
Bytes Relative(std::string_view commonName) {
    const Bytes type = {0x06, 0x03, 0x55, 0x04, 0x03};
    return Tlv(0xA0, Tlv(0xA1, Tlv(0x30, Joined({type, Tlv(0x0C, TextBytes(commonName))}))));
}
// Of reasons the first two octets: the bits of keyCompromise and cACompromise are 0x60.
Bytes Bits(std::uint8_t tag, std::uint8_t first, std::uint8_t second) {
    return Tlv(tag, {7, first, second});
}
Bytes CrlIssuer(const Certificate& issuer) {
    return Tlv(0xA2, Tlv(0xA4, issuer.SubjectDer()));
}
const Bytes kCompromises = Bits(0x83, 0x60, 0), kOtherReasons = Bits(0x83, 0x1F, 0x80), kOnlyUsers = {0x81, 1, 0xFF},
            kIndirect = {0x84, 1, 0xFF};

CertificateSpec LeafWith(std::initializer_list<Bytes> points) {
    CertificateSpec spec = PersonSpec("Person", 2);
    Bytes all;
    for (const Bytes& point : points)
        all = Joined({all, Tlv(0x30, point)});
    if (!all.empty()) spec.extra = {{"2.5.29.31", false, Tlv(0x30, all)}};
    return spec;
}
CrlSpec For(std::initializer_list<Bytes> distribution, CrlSpec spec = {}) {
    spec.extra.push_back({"2.5.29.28", true, Tlv(0x30, Joined(distribution))});
    return spec;
}
CrlSpec Numbered(std::int64_t number, CrlSpec spec = {}) {
    spec.number = number;
    return spec;
}
CrlSpec DeltaFrom(std::uint8_t base, CrlSpec spec) {
    spec.extra.push_back({"2.5.29.27", true, {2, 1, base}});
    return spec;
}

// --- Cases ---

struct Scene {
    Certificate root = Issue(AuthoritySpec("Root", 0)), ca = Issue(AuthoritySpec("Authority", 1), root),
                other = Issue(AuthoritySpec("Lister", 3), root), stranger = Issue(AuthoritySpec("Lister", 4));
    Certificate leaf;
    std::vector<Bytes> crls = {};

    void Leaf(std::initializer_list<Bytes> points) { leaf = Issue(LeafWith(points), ca); }
    // Says where deltas are: the peer uses them only then.
    void LeafWithDeltas() {
        CertificateSpec spec = LeafWith({});
        spec.extra.push_back({"2.5.29.46", false, Tlv(0x30, Tlv(0x30, Url("http://crl.example.bg/delta")))});
        leaf = Issue(spec, ca);
    }
    void Crl(const Certificate& issuer, const CrlSpec& spec) { crls.push_back(MakeCrl(issuer, spec)); }
    [[nodiscard]] CrlSpec Listing(int reason = kKeyCompromise, const Certificate* issuer = nullptr) const {
        return {.revoked = {{leaf.Serial(), kNow - 2 * kDay, reason, issuer ? issuer->SubjectDer() : Bytes()}}};
    }
};

struct ScopeCase {
    const char* name;
    std::function<void(Scene&)> make;
    ErrorCode expected;
    bool peerAgrees = true;  // no: ours is the more careful answer, and the peer accepts
};
class PartialCrls : public testing::TestWithParam<ScopeCase> {};

ErrorCode OurVerdict(const Scene& scene) {
    ChainWorld world(scene.root, {scene.ca, scene.other});
    world.Know(scene.stranger);
    world.AddCrl(MakeCrl(scene.root));
    for (const Bytes& crl : scene.crls)
        world.AddCrl(crl);
    return world.VerdictWithCrls(scene.leaf);
}

bool PeerAccepts(const Scene& scene) {
    const tests::Profile profile;
    std::string crls = tests::PemOf("X509 CRL", MakeCrl(scene.root));
    for (const Bytes& crl : scene.crls)
        crls += tests::PemOf("X509 CRL", crl);
    const auto result = tests::RunProgram(
        {"openssl", "verify", "-crl_check_all", "-extended_crl", "-use_deltas", "-CAfile",
         profile.Write("root.pem", scene.root.Pem()).string(), "-untrusted",
         profile.Write("others.pem", scene.ca.Pem() + scene.other.Pem()).string(), "-CRLfile",
         profile.Write("crls.pem", crls).string(), profile.Write("leaf.pem", scene.leaf.Pem()).string()});
    return result.status == 0;
}

TEST_P(PartialCrls, GetTheVerdictOfAnotherVerifierToo) {
    Scene scene;
    GetParam().make(scene);
    EXPECT_EQ(OurVerdict(scene), GetParam().expected);
    EXPECT_EQ(PeerAccepts(scene) == (GetParam().expected == 0), GetParam().peerAgrees);
}

constexpr std::string_view kUrl = "http://crl.example.bg/1";
constexpr ErrorCode kSilent = CRYPT_E_REVOCATION_OFFLINE;  // the address is there, and nobody may be asked

const ScopeCase kCases[] = {
    {"AllReasonsInTwoParts",
     [](Scene& s) {
         s.Leaf({});
         s.Crl(s.ca, For({kCompromises}));
         s.Crl(s.ca, For({kOtherReasons}));
     },
     0},
    {"AllReasonsInTwoPartsOfAPoint",
     [](Scene& s) {
         s.Leaf({Url(kUrl)});
         s.Crl(s.ca, For({Url(kUrl), kCompromises}));
         s.Crl(s.ca, For({Url(kUrl), kOtherReasons}));
     },
     0},
    {"OnePartOfTheReasons",
     [](Scene& s) {
         s.Leaf({Url(kUrl)});
         s.Crl(s.ca, For({Url(kUrl), kOtherReasons}));
     },
     kSilent},
    {"TheOtherPartLists",
     [](Scene& s) {
         s.Leaf({Url(kUrl)});
         s.Crl(s.ca, For({Url(kUrl), kOtherReasons}));
         s.Crl(s.ca, For({Url(kUrl), kCompromises}, s.Listing()));
     },
     CRYPT_E_REVOKED},
    {"PointsForReasons",
     [](Scene& s) {
         s.Leaf({Joined({Url("http://a/"), Bits(0x81, 0x60, 0)}), Joined({Url("http://b/"), Bits(0x81, 0x1F, 0x80)})});
         s.Crl(s.ca, For({Url("http://a/")}));
         s.Crl(s.ca, For({Url("http://b/")}));
     },
     0},
    {"APointForSomeReasonsAlone",
     [](Scene& s) {
         s.Leaf({Joined({Url(kUrl), Bits(0x81, 0x60, 0)})});
         s.Crl(s.ca, For({Url(kUrl)}));
     },
     kSilent},
    {"RelativeNames",
     [](Scene& s) {
         s.Leaf({Relative("Part 1")});
         s.Crl(s.ca, For({Relative("Part 1")}));
     },
     0},
    {"OtherRelativeName",
     [](Scene& s) {
         s.Leaf({Relative("Part 1")});
         s.Crl(s.ca, For({Relative("Part 2")}));
     },
     kUnknown},
    {"FlaggedAsIndirectByTheIssuer",
     [](Scene& s) {
         s.Leaf({});
         s.Crl(s.ca, For({kIndirect}));
     },
     0},
    {"FlaggedAsIndirectByTheIssuerAndListed",
     [](Scene& s) {
         s.Leaf({});
         s.Crl(s.ca, For({kIndirect}, s.Listing()));
     },
     CRYPT_E_REVOKED},
    {"ByWhomThePointNames",
     [](Scene& s) {
         s.Leaf({CrlIssuer(s.other)});
         s.Crl(s.other, For({kIndirect}));
     },
     0},
    {"ByWhomThePointNamesListed",
     [](Scene& s) {
         s.Leaf({CrlIssuer(s.other)});
         s.Crl(s.other, For({kIndirect}, s.Listing(kKeyCompromise, &s.ca)));
     },
     CRYPT_E_REVOKED},
    {"TheSameNumberOfAnotherIssuer",
     [](Scene& s) {
         s.Leaf({CrlIssuer(s.other)});
         s.Crl(s.other, For({kIndirect}, s.Listing(kKeyCompromise, &s.other)));
     },
     0},
    {"ByWhomThePointNamesWithoutTheFlag",
     [](Scene& s) {
         s.Leaf({CrlIssuer(s.other)});
         s.Crl(s.other, For({kOnlyUsers}));
     },
     kUnknown},
    {"BySomebodyWhomNoPointNames",
     [](Scene& s) {
         s.Leaf({Url(kUrl)});
         s.Crl(s.other, For({kIndirect}));
     },
     kSilent},
    {"ByAStrangerOfThatName",
     [](Scene& s) {
         s.Leaf({CrlIssuer(s.stranger)});
         s.Crl(s.stranger, For({kIndirect}));
     },
     kUnknown},
    {"ByTheIssuerInPlaceOfWhomThePointNames",
     [](Scene& s) {
         s.Leaf({CrlIssuer(s.other)});
         s.Crl(s.ca, {});
     },
     kUnknown, false},
    {"ADeltaEndsAHold",
     [](Scene& s) {
         s.LeafWithDeltas();
         s.Crl(s.ca, Numbered(5, s.Listing(kHold)));
         s.Crl(s.ca, DeltaFrom(5, Numbered(6, s.Listing(kRemoveFromCrl))));
     },
     0},
    {"ADeltaFromALaterBaseEndsNothing",
     [](Scene& s) {
         s.LeafWithDeltas();
         s.Crl(s.ca, Numbered(5, s.Listing(kHold)));
         s.Crl(s.ca, DeltaFrom(6, Numbered(7, s.Listing(kRemoveFromCrl))));
     },
     CRYPT_E_REVOKED},
    {"ADeltaOfAnotherScopeEndsNothing",
     [](Scene& s) {
         s.LeafWithDeltas();
         s.Crl(s.ca, Numbered(5, s.Listing(kHold)));
         s.Crl(s.ca, For({kOnlyUsers}, DeltaFrom(5, Numbered(6, s.Listing(kRemoveFromCrl)))));
     },
     CRYPT_E_REVOKED},
    {"ADeltaEndsNoRevocation",
     [](Scene& s) {
         s.LeafWithDeltas();
         s.Crl(s.ca, Numbered(5, s.Listing()));
         s.Crl(s.ca, DeltaFrom(5, Numbered(6, s.Listing(kRemoveFromCrl))));
     },
     CRYPT_E_REVOKED, false},
    {"ADeltaRevokes",
     [](Scene& s) {
         s.LeafWithDeltas();
         s.Crl(s.ca, Numbered(5));
         s.Crl(s.ca, DeltaFrom(5, Numbered(6, s.Listing())));
     },
     CRYPT_E_REVOKED},
    {"ADeltaAlone",
     [](Scene& s) {
         s.LeafWithDeltas();
         s.Crl(s.ca, DeltaFrom(5, Numbered(6)));
     },
     kUnknown},
};
INSTANTIATE_TEST_SUITE_P(Revocation, PartialCrls, testing::ValuesIn(kCases),
                         [](const auto& info) { return std::string(info.param.name); });

}  // namespace
