#include "platform/Chains.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <functional>

#include "tests/support/ChainWorld.h"

namespace {

using namespace platform;
using tests::AuthoritySpec;
using tests::Certificate;
using tests::CertificateSpec;
using tests::ChainWorld;
using tests::ContextOf;
using tests::Issue;
using tests::kDay;
using tests::PersonSpec;

const std::int64_t kNow = std::time(nullptr);

std::vector<std::string> NamesIn(const std::vector<CertificateContext>& path) {
    std::vector<std::string> names;
    for (const CertificateContext& certificate : path) {
        const std::u16string name = CertGetNameStringW(certificate, CERT_NAME_SIMPLE_DISPLAY_TYPE, 0);
        names.emplace_back(name.begin(), name.end());
    }
    return names;
}
std::vector<std::string> NamesIn(const ChainContext& chain) {
    std::vector<CertificateContext> path;
    for (const CERT_CHAIN_ELEMENT& element : chain.elements)
        path.push_back(element.certificate);
    return NamesIn(path);
}

// A root, an authority and a person, made with one thing changed.
struct Trio {
    CertificateSpec root = AuthoritySpec("Root", 0), ca = AuthoritySpec("Authority", 1), leaf = PersonSpec("Person", 2);
    bool trustRoot = true, knowCa = true;
    int distrust = -1;  // 0 the leaf, 1 the authority, 2 the root
    std::vector<std::string> usages = {};
};
struct TrioCase {
    const char* name;
    std::function<void(Trio&)> change;
    ErrorCode expected;
    int element;         // that bears the fault; -1: none
    std::uint32_t bits;  // of that element
};

ChainContext ChainOf(const Trio& trio) {
    const Certificate root = Issue(trio.root), ca = Issue(trio.ca, root), leaf = Issue(trio.leaf, ca);
    const ChainWorld world;
    if (trio.trustRoot) world.Trust(root);
    world.Know(root);
    if (trio.knowCa) world.Know(ca);
    const Certificate* const all[] = {&leaf, &ca, &root};
    if (trio.distrust >= 0) world.Distrust(*all[trio.distrust]);
    return world.Chain(leaf, kNow, 0, trio.usages);
}

class ChainFault : public testing::TestWithParam<TrioCase> {};

TEST_P(ChainFault, IsToldByItsCodeAtItsElement) {
    Trio trio;
    GetParam().change(trio);
    const ChainContext chain = ChainOf(trio);
    EXPECT_EQ(CertVerifyCertificateChainPolicy(chain), GetParam().expected) << std::hex << chain.dwErrorStatus;
    std::uint32_t joined = 0;
    for (std::size_t i = 0; i < chain.elements.size(); ++i) {
        const bool isFaulty = static_cast<int>(i) == GetParam().element;
        EXPECT_EQ(chain.elements[i].dwErrorStatus, isFaulty ? GetParam().bits : 0) << "element " << i;
        joined |= chain.elements[i].dwErrorStatus;
    }
    EXPECT_EQ(chain.dwErrorStatus, joined);
}

const TrioCase kFaults[] = {
    {"Good", [](Trio&) {}, 0, -1, 0},
    {"GoodWithSha1", [](Trio& t) { t.leaf.hash = "SHA1"; }, 0, -1, 0},
    {"LeafExpired", [](Trio& t) { t.leaf.notAfter = kNow - 60; }, CERT_E_EXPIRED, 0, CERT_TRUST_IS_NOT_TIME_VALID},
    {"LeafNotYetValid", [](Trio& t) { t.leaf.notBefore = kNow + 600; }, CERT_E_EXPIRED, 0,
     CERT_TRUST_IS_NOT_TIME_VALID},
    {"AuthorityExpired", [](Trio& t) { t.ca.notAfter = kNow - 60; }, CERT_E_EXPIRED, 1, CERT_TRUST_IS_NOT_TIME_VALID},
    {"RootExpired", [](Trio& t) { t.root.notAfter = kNow - 60; }, CERT_E_EXPIRED, 2, CERT_TRUST_IS_NOT_TIME_VALID},
    {"RootUntrusted", [](Trio& t) { t.trustRoot = false; }, CERT_E_UNTRUSTEDROOT, 2, CERT_TRUST_IS_UNTRUSTED_ROOT},
    {"AuthorityMissing", [](Trio& t) { t.knowCa = false; }, CERT_E_CHAINING, 0, CERT_TRUST_IS_PARTIAL_CHAIN},
    {"LeafSignatureBroken", [](Trio& t) { t.leaf.breakSignature = true; }, TRUST_E_CERT_SIGNATURE, 0,
     CERT_TRUST_IS_NOT_SIGNATURE_VALID},
    {"AuthoritySignatureBroken", [](Trio& t) { t.ca.breakSignature = true; }, TRUST_E_CERT_SIGNATURE, 1,
     CERT_TRUST_IS_NOT_SIGNATURE_VALID},
    {"LeafSignedOverMd5",
     [](Trio& t) {
         t.ca.key = tests::TestKey(tests::KeyType::rsa2048);
         t.leaf.hash = "MD5";
     },
     TRUST_E_CERT_SIGNATURE, 0, CERT_TRUST_IS_NOT_SIGNATURE_VALID},
    {"UntrustedRootSignatureBroken",
     [](Trio& t) {
         t.root.breakSignature = true;
         t.trustRoot = false;
     },
     TRUST_E_CERT_SIGNATURE, 2, CERT_TRUST_IS_NOT_SIGNATURE_VALID | CERT_TRUST_IS_UNTRUSTED_ROOT},
    // Who puts a certificate among the roots vouches for name and key.
    {"TrustedRootSignatureBroken", [](Trio& t) { t.root.breakSignature = true; }, 0, -1, 0},
    {"TrustedRootSilentOnBeingAnAuthority",
     [](Trio& t) {
         t.root.ca.reset();
         t.root.keyUsage.clear();
     },
     0, -1, 0},
    {"TrustedRootDeniesBeingAnAuthority",
     [](Trio& t) {
         t.root.ca = false;
         t.root.keyUsage = "keyCertSign";
     },
     TRUST_E_BASIC_CONSTRAINTS, 2, CERT_TRUST_INVALID_BASIC_CONSTRAINTS},
    {"AuthoritySilentOnBeingOne",
     [](Trio& t) {
         t.ca.ca.reset();
         t.ca.keyUsage = "keyCertSign";
     },
     TRUST_E_BASIC_CONSTRAINTS, 1, CERT_TRUST_INVALID_BASIC_CONSTRAINTS},
    {"AuthorityMayNotSignCertificates", [](Trio& t) { t.ca.keyUsage = "cRLSign"; }, CERT_E_WRONG_USAGE, 1,
     CERT_TRUST_IS_NOT_VALID_FOR_USAGE},
    {"PathTooLong", [](Trio& t) { t.root.pathLength = 0; }, CERT_E_PATHLENCONST, 2, CERT_TRUST_INVALID_PATH_LENGTH},
    {"PathJustShortEnough", [](Trio& t) { t.ca.pathLength = 0; }, 0, -1, 0},
    {"NameNotPermitted",
     [](Trio& t) {
         t.root.nameConstraints = "critical,permitted;email:example.bg";
         t.leaf.subjectAltName = "email:a@example.com";
     },
     CERT_E_INVALID_NAME, 0, CERT_TRUST_INVALID_NAME_CONSTRAINTS},
    {"NamePermitted",
     [](Trio& t) {
         t.root.nameConstraints = "critical,permitted;email:example.bg";
         t.leaf.subjectAltName = "email:a@example.bg";
     },
     0, -1, 0},
    {"NameExcluded",
     [](Trio& t) {
         t.ca.nameConstraints = "critical,excluded;email:example.bg";
         t.leaf.subjectAltName = "email:a@example.bg";
     },
     CERT_E_INVALID_NAME, 0, CERT_TRUST_INVALID_NAME_CONSTRAINTS},
    // The authority has a policy: OpenSSL 3.0 loses the constraints of a certificate without one (42 bytes).
    {"PolicyRequiredAndMissing",
     [](Trio& t) {
         t.ca.policyConstraints = "critical,requireExplicitPolicy:0";
         t.ca.extra = {{"2.5.29.32", false, {0x30, 7, 0x30, 5, 6, 3, 0x2A, 3, 4}}};
     },
     CERT_E_INVALID_POLICY, 0, CERT_TRUST_INVALID_POLICY_CONSTRAINTS},
    {"PolicyRequiredAndThere",
     [](Trio& t) {
         t.ca.policyConstraints = "critical,requireExplicitPolicy:0";
         t.ca.extra = t.leaf.extra = {{"2.5.29.32", false, {0x30, 7, 0x30, 5, 6, 3, 0x2A, 3, 4}}};
     },
     0, -1, 0},
    {"UnknownCriticalExtensionInLeaf",
     [](Trio& t) {
         t.leaf.extra = {{"1.2.3.4", true, {5, 0}}};
     },
     CERT_E_CRITICAL, 0, CERT_TRUST_HAS_NOT_SUPPORTED_CRITICAL_EXT},
    {"UnknownCriticalExtensionInAuthority",
     [](Trio& t) {
         t.ca.extra = {{"1.2.3.4", true, {5, 0}}};
     },
     CERT_E_CRITICAL, 1, CERT_TRUST_HAS_NOT_SUPPORTED_CRITICAL_EXT},
    {"UnknownExtensionNotCritical",
     [](Trio& t) {
         t.leaf.extra = {{"1.2.3.4", false, {5, 0}}};
     },
     0, -1, 0},
    {"ExtensionDoesNotDecode",
     [](Trio& t) {
         t.leaf.extra = {{"2.5.29.30", false, {4, 1, 0}}};
     },
     CERT_E_CRITICAL, 0, CERT_TRUST_INVALID_EXTENSION},
    {"LeafDistrusted", [](Trio& t) { t.distrust = 0; }, CERT_E_EXPLICIT_DISTRUST, 0, CERT_TRUST_IS_EXPLICIT_DISTRUST},
    {"AuthorityDistrusted", [](Trio& t) { t.distrust = 1; }, CERT_E_EXPLICIT_DISTRUST, 1,
     CERT_TRUST_IS_EXPLICIT_DISTRUST},
    {"TrustedRootDistrusted", [](Trio& t) { t.distrust = 2; }, CERT_E_EXPLICIT_DISTRUST, 2,
     CERT_TRUST_IS_EXPLICIT_DISTRUST},
    {"UsageAllowedByLeaf",
     [](Trio& t) {
         t.leaf.extendedKeyUsage = "critical,timeStamping";
         t.usages = {"1.3.6.1.5.5.7.3.8"};
     },
     0, -1, 0},
    {"UsageNotAllowedByAuthority",
     [](Trio& t) {
         t.leaf.extendedKeyUsage = "critical,timeStamping";
         t.ca.extendedKeyUsage = "emailProtection";
         t.usages = {"1.3.6.1.5.5.7.3.8"};
     },
     CERT_E_WRONG_USAGE, 1, CERT_TRUST_IS_NOT_VALID_FOR_USAGE},
    {"UsageNotAsked", [](Trio& t) { t.ca.extendedKeyUsage = "emailProtection"; }, 0, -1, 0},
};
INSTANTIATE_TEST_SUITE_P(Chains, ChainFault, testing::ValuesIn(kFaults),
                         [](const auto& info) { return std::string(info.param.name); });

TEST(Chains, TellsOfSeveralFaultsTheGravest) {
    Trio trio;
    trio.leaf.notAfter = kNow - 60;
    trio.leaf.breakSignature = true;
    trio.trustRoot = false;
    EXPECT_EQ(CertVerifyCertificateChainPolicy(ChainOf(trio)), TRUST_E_CERT_SIGNATURE);
    trio.leaf.breakSignature = false;
    EXPECT_EQ(CertVerifyCertificateChainPolicy(ChainOf(trio)), CERT_E_UNTRUSTEDROOT);
}

TEST(Chains, TakesTheMomentThatIsAsked) {
    CertificateSpec spec = PersonSpec("Person", 2);
    spec.notBefore = kNow - 20 * kDay;
    spec.notAfter = kNow - 10 * kDay;
    CertificateSpec rootSpec = AuthoritySpec("Root", 0);
    rootSpec.notBefore = kNow - 30 * kDay;
    const Certificate root = Issue(rootSpec), leaf = Issue(spec, root);
    const ChainWorld world(root, {});
    EXPECT_EQ(world.Verdict(leaf), CERT_E_EXPIRED);
    EXPECT_EQ(world.Verdict(leaf, kNow - 15 * kDay), 0U);
    EXPECT_EQ(world.Verdict(leaf, kNow - 25 * kDay), CERT_E_EXPIRED);
}

TEST(Chains, ACertificateAmongTheRootsIsTrustedAsItIs) {
    const Certificate selfSigned = Issue(PersonSpec("Self", 0));
    EXPECT_EQ(ChainWorld().Verdict(selfSigned), CERT_E_UNTRUSTEDROOT);
    EXPECT_EQ(ChainWorld(selfSigned, {}).Verdict(selfSigned), 0U);
    const Certificate leaf = Issue(PersonSpec("Person", 2), Issue(AuthoritySpec("Unknown", 1)));
    EXPECT_EQ(ChainWorld(leaf, {}).Verdict(leaf), 0U);
}

TEST(Chains, ACircleEndsAsACircle) {
    const Certificate seed = Issue(AuthoritySpec("A", 0));
    const Certificate b = Issue(AuthoritySpec("B", 1), seed);
    const Certificate a = Issue(AuthoritySpec("A", 0), b);
    const ChainWorld world;
    world.Know(a);
    world.Know(b);
    const Certificate leaf = Issue(PersonSpec("Person", 2), a);
    const ChainContext chain = world.Chain(leaf);
    EXPECT_EQ(chain.dwErrorStatus, CERT_TRUST_IS_CYCLIC | CERT_TRUST_IS_PARTIAL_CHAIN);
    EXPECT_EQ(CertVerifyCertificateChainPolicy(chain), CERT_E_CHAINING);
}

// An authority under four roots: the shortest is not trusted, one cross-certificate has expired.
TEST(Chains, TheGoodPathIsFoundInAnyOrderOfTheStores) {
    const Certificate oldRoot = Issue(AuthoritySpec("Old Root", 0)), root = Issue(AuthoritySpec("Root", 1));
    const Certificate bridge = Issue(AuthoritySpec("Bridge", 4), root);
    CertificateSpec expired = AuthoritySpec("Authority", 2);
    expired.notAfter = kNow - 60;
    const Certificate selfSigned = Issue(AuthoritySpec("Authority", 2)),
                      byOld = Issue(AuthoritySpec("Authority", 2), oldRoot),
                      byBridge = Issue(AuthoritySpec("Authority", 2), bridge), byRootExpired = Issue(expired, root);
    const Certificate leaf = Issue(PersonSpec("Person", 3), byOld);
    std::vector<Certificate> known = {oldRoot, bridge, selfSigned, byOld, byBridge, byRootExpired};
    std::vector<int> order = {0, 1, 2, 3, 4, 5};
    do {
        const ChainWorld world(root, {});
        for (const int i : order)
            world.Know(known[static_cast<std::size_t>(i)]);
        const ChainContext chain = world.Chain(leaf);
        ASSERT_EQ(chain.dwErrorStatus, 0U);
        ASSERT_EQ(NamesIn(chain), (std::vector<std::string>{"Person", "Authority", "Bridge", "Root"}));
    } while (std::ranges::next_permutation(order).found);
}

TEST(Chains, OfTwoEqualPathsTheBytesDecide) {
    const Certificate root = Issue(AuthoritySpec("Root", 0));
    const Certificate one = Issue(AuthoritySpec("Authority", 1), root),
                      two = Issue(AuthoritySpec("Authority", 1), root);
    const Certificate leaf = Issue(PersonSpec("Person", 2), one);
    const ChainContext first = ChainWorld(root, {one, two}).Chain(leaf),
                       second = ChainWorld(root, {two, one}).Chain(leaf);
    EXPECT_EQ(first.elements[1].certificate, second.elements[1].certificate);
}

TEST(Chains, APathToAnUntrustedRootIsToldBeforeOneThatEndsNowhere) {
    const Certificate root = Issue(AuthoritySpec("Root", 0)), missing = Issue(AuthoritySpec("Missing", 3));
    const Certificate byRoot = Issue(AuthoritySpec("Authority", 1), root),
                      byMissing = Issue(AuthoritySpec("Authority", 1), missing);
    const ChainWorld world;
    for (const Certificate& each : {byMissing, byRoot, root})
        world.Know(each);
    EXPECT_EQ(world.Verdict(Issue(PersonSpec("Person", 2), byRoot)), CERT_E_UNTRUSTEDROOT);
}

TEST(Chains, AWrongKeyIdentifierHidesNoIssuer) {
    const Certificate root = Issue(AuthoritySpec("Root", 0));
    CertificateSpec spec = PersonSpec("Person", 2);
    spec.authorityKeyId = false;
    spec.extra = {{"2.5.29.35", false, {0x30, 0x06, 0x80, 0x04, 1, 2, 3, 4}}};
    EXPECT_EQ(ChainWorld(root, {}).Verdict(Issue(spec, root)), 0U);
}

TEST(Chains, NamesMatchHoweverTheyAreWritten) {
    const Certificate root = Issue(AuthoritySpec("Root  Authority", 0));
    CertificateSpec spec = PersonSpec("Person", 2);
    spec.issuerName = tests::Name{{.type = "CN", .value = " ROOT authority ", .stringType = V_ASN1_PRINTABLESTRING}};
    EXPECT_EQ(ChainWorld(root, {}).Verdict(Issue(spec, root)), 0U);
}

// A trusted authority of the same name must neither lend its trust nor make the signature look broken.
TEST(Chains, ANamesakeIsNoIssuer) {
    const Certificate trusted = Issue(AuthoritySpec("Authority", 0)), real = Issue(AuthoritySpec("Authority", 1));
    const Certificate leaf = Issue(PersonSpec("Person", 2), real);
    EXPECT_EQ(ChainWorld(trusted, {real}).Verdict(leaf), CERT_E_UNTRUSTEDROOT);
    // Not knowing the real one: the key identifier tells that another key signed.
    EXPECT_EQ(ChainWorld(trusted, {}).Verdict(leaf), CERT_E_CHAINING);
}

TEST(Chains, AChangedKeyIsFollowedToTheOldRoot) {
    const Certificate oldRoot = Issue(AuthoritySpec("Root", 0));
    CertificateSpec spec = AuthoritySpec("Root", 1);
    spec.authorityKeyId = spec.subjectKeyId = false;
    const Certificate newWithOld = Issue(spec, oldRoot);
    EXPECT_EQ(ChainWorld(oldRoot, {newWithOld}).Verdict(Issue(PersonSpec("Person", 2), newWithOld)), 0U);
}

// Twelve authorities that all certify each other, and one of them is certified by the root.
TEST(Chains, AMeshOfCrossCertificatesKeepsNobodyBusy) {
    constexpr unsigned kSize = 12;
    const Certificate root = Issue(AuthoritySpec("Root", 0));
    std::vector<Certificate> authorities;
    for (unsigned i = 0; i < kSize; ++i)
        authorities.push_back(Issue(AuthoritySpec("Mesh " + std::to_string(i), i + 1)));
    const ChainWorld world(root, {Issue(AuthoritySpec("Mesh 0", 1), root)});
    for (unsigned i = 0; i < kSize; ++i) {
        for (unsigned j = 0; j < kSize; ++j)
            if (i != j) world.Know(Issue(AuthoritySpec("Mesh " + std::to_string(i), i + 1), authorities[j]));
    }
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(world.Verdict(Issue(PersonSpec("Person", 20), authorities[0])), 0U);
    EXPECT_EQ(world.Verdict(Issue(PersonSpec("Person", 20), authorities[5])), 0U);
    const ChainWorld nowhere;
    for (const CertificateContext& each : CertEnumCertificatesInStore(world.others))
        CertAddCertificateContextToStore(nowhere.others, each, CERT_STORE_ADD_ALWAYS);
    EXPECT_EQ(nowhere.Verdict(Issue(PersonSpec("Person", 20), authorities[5])), CERT_E_CHAINING);
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(20));
}

TEST(Chains, ThousandsOfNamesakesKeepNobodyBusy) {
    const Certificate root = Issue(AuthoritySpec("Root", 0));
    const ChainWorld world(root, {});
    for (unsigned i = 0; i < 1500; ++i) {
        CertificateSpec spec = AuthoritySpec("Root", 100 + i);
        spec.subjectKeyId = false;
        world.Know(Issue(spec));
    }
    EXPECT_EQ(world.Verdict(Issue(PersonSpec("Person", 2), root)), 0U);
}

// Each bears the name of all others' issuer, and none signed another: the bounds cut before any path has ended.
TEST(Chains, AMeshOfWrongSignaturesIsNotTrusted) {
    const ChainWorld world(Issue(AuthoritySpec("Root", 0)), {});
    for (unsigned i = 1; i <= 20; ++i) {
        CertificateSpec spec = AuthoritySpec("Namesake", i);
        spec.authorityKeyId = false;
        spec.signWith = tests::TestKey(tests::KeyType::p256, 30);
        world.Know(Issue(spec));
    }
    CertificateSpec person = PersonSpec("Person", 21);
    person.authorityKeyId = false;
    person.issuerName = AuthoritySpec("Namesake", 1).subject;
    const ChainContext chain = world.Chain(Issue(person));
    EXPECT_FALSE(chain.elements.empty());
    EXPECT_NE(chain.dwErrorStatus & CERT_TRUST_IS_NOT_SIGNATURE_VALID, 0U);
    EXPECT_NE(world.Verdict(Issue(person)), ERROR_SUCCESS);
}

TEST(Chains, APathEndsAtSixteenCertificates) {
    for (const unsigned length : {16U, 17U}) {
        Certificate issuer = Issue(AuthoritySpec("Root", 0));
        const ChainWorld world(issuer, {});
        for (unsigned i = 1; i + 1 < length; ++i) {
            issuer = Issue(AuthoritySpec("Authority " + std::to_string(i), i), issuer);
            world.Know(issuer);
        }
        EXPECT_EQ(world.Verdict(Issue(PersonSpec("Person", 99), issuer)), length > 16 ? CERT_E_CHAINING : 0U);
    }
}

TEST(Chains, NothingIsJudgedWithoutACertificate) {
    EXPECT_FALSE(CertGetCertificateChain({}, {}));
    EXPECT_EQ(GetLastError(), ERROR_INVALID_PARAMETER);
    EXPECT_TRUE(BuildIssuerPath({}).empty());
    EXPECT_EQ(CertVerifyCertificateChainPolicy({}), CERT_E_CHAINING);
}

// --- The system's stores ---

ErrorCode SystemVerdict(const CertificateContext& leaf, std::uint32_t flags = 0, const CertStore& additional = {}) {
    const auto chain = CertGetCertificateChain(
        leaf, {.time = {}, .additionalStore = additional, .flags = flags, .engine = nullptr, .requestedUsage = {}});
    return chain ? CertVerifyCertificateChainPolicy(*chain) : GetLastError();
}

class SystemChains : public testing::Test {
  protected:
    tests::Profile profile_;
    Certificate root_ = Issue(AuthoritySpec("Root", 0)), ca_ = Issue(AuthoritySpec("Authority", 1), root_),
                leaf_ = Issue(PersonSpec("Person", 2), ca_);
};

TEST_F(SystemChains, IssuersAndRootsComeFromTheFolders) {
    tests::InstallCertificate(profile_, "ROOT", root_);
    EXPECT_EQ(SystemVerdict(ContextOf(leaf_)), CERT_E_CHAINING);
    tests::InstallCertificate(profile_, "CA", ca_);
    EXPECT_EQ(SystemVerdict(ContextOf(leaf_)), 0U);

    TrustSystemRoots(false);
    EXPECT_EQ(SystemVerdict(ContextOf(leaf_)), CERT_E_UNTRUSTEDROOT);
    TrustSystemRoots(true);
    tests::InstallCertificate(profile_, "Disallowed", ca_);
    EXPECT_EQ(SystemVerdict(ContextOf(leaf_)), CERT_E_EXPLICIT_DISTRUST);
}

TEST_F(SystemChains, IssuersComeFromTheCertificatesOwnStoreAndTheAdditionalOne) {
    tests::InstallCertificate(profile_, "ROOT", root_);
    const CertStore message = CertOpenMemoryStore();
    CertAddCertificateContextToStore(message, ContextOf(ca_), CERT_STORE_ADD_ALWAYS);
    EXPECT_EQ(SystemVerdict(ContextOf(leaf_).FromStore(message)), 0U);
    EXPECT_EQ(SystemVerdict(ContextOf(leaf_), 0, message), 0U);
    // Neither lends trust.
    const Certificate stranger = Issue(AuthoritySpec("Stranger", 3));
    CertAddCertificateContextToStore(message, ContextOf(stranger), CERT_STORE_ADD_ALWAYS);
    EXPECT_EQ(SystemVerdict(ContextOf(Issue(PersonSpec("Person", 4), stranger)).FromStore(message)),
              CERT_E_UNTRUSTEDROOT);
}

TEST_F(SystemChains, ThePathToEmbedGoesAsFarUpAsIsKnown) {
    using Names = std::vector<std::string>;
    EXPECT_EQ(NamesIn(BuildIssuerPath(ContextOf(leaf_))), (Names{"Person"}));
    tests::InstallCertificate(profile_, "TrustedPeople", ca_);
    EXPECT_EQ(NamesIn(BuildIssuerPath(ContextOf(leaf_))), (Names{"Person", "Authority"}));
    tests::InstallCertificate(profile_, "CA", root_);
    EXPECT_EQ(NamesIn(BuildIssuerPath(ContextOf(leaf_))), (Names{"Person", "Authority", "Root"}));
    EXPECT_EQ(NamesIn(BuildIssuerPath(ContextOf(root_))), (Names{"Root"}));
}

}  // namespace
