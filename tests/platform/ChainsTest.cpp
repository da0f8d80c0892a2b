#include "platform/Chains.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <functional>

#include "tests/support/ChainWorld.h"

namespace {

using namespace platform;
using namespace tests;
using S = CertificateSpec;

const std::int64_t kNow = std::time(nullptr);
constexpr std::uint32_t kSeveral = ~0U;

// A root, an authority and a person, made with something changed.
struct Trio {
    S root = AuthoritySpec("Root", 0), ca = AuthoritySpec("Authority", 1), leaf = PersonSpec("Person", 2);
    bool trustRoot = true, knowCa = true;
    int distrust = -1;  // 0 the leaf, 1 the authority, 2 the root
    std::vector<std::string> usages = {};
};
using Change = std::function<void(Trio&)>;
template <typename Value>
Change Set(Value Trio::*what, std::type_identity_t<Value> value) {
    return [=](Trio& trio) { trio.*what = value; };
}
template <typename Value>
Change Set(S Trio::*who, Value S::*what, std::type_identity_t<Value> value) {
    return [=](Trio& trio) { (trio.*who).*what = value; };
}

// The code of a fault, and the bits of the element that bears it.
struct Fault {
    ErrorCode code = 0;
    std::uint32_t bits = 0;
};
struct TrioCase {
    const char* name;
    std::vector<Change> changes;
    std::size_t element = 0;  // 0 the leaf
    Fault fault = {};
};
void ExpectEach(const std::vector<TrioCase>& cases) {
    for (const auto& [name, changes, element, fault] : cases) {
        SCOPED_TRACE(name);
        Trio trio;
        for (const Change& change : changes)
            change(trio);
        const Certificate root = Issue(trio.root), ca = Issue(trio.ca, root), leaf = Issue(trio.leaf, ca);
        const ChainWorld world;
        if (trio.trustRoot) world.Trust(root);
        world.Know(root);
        if (trio.knowCa) world.Know(ca);
        if (trio.distrust >= 0) world.Distrust(std::array{leaf, ca, root}.at(static_cast<std::size_t>(trio.distrust)));
        const ChainContext chain = world.Chain(leaf, kNow, 0, trio.usages);
        EXPECT_EQ(CertVerifyCertificateChainPolicy(chain), fault.code) << std::hex << chain.dwErrorStatus;
        if (fault.bits == kSeveral) continue;  // at several elements
        EXPECT_EQ(chain.dwErrorStatus, fault.bits);
        for (std::size_t i = 0; i < chain.elements.size(); ++i)
            EXPECT_EQ(chain.elements[i].dwErrorStatus, i == element ? fault.bits : 0) << "element " << i;
    }
}

constexpr auto kRoot = &Trio::root, kCa = &Trio::ca, kLeaf = &Trio::leaf;
constexpr Fault kTime{CERT_E_EXPIRED, CERT_TRUST_IS_NOT_TIME_VALID},
    kSignature{TRUST_E_CERT_SIGNATURE, CERT_TRUST_IS_NOT_SIGNATURE_VALID},
    kDistrust{CERT_E_EXPLICIT_DISTRUST, CERT_TRUST_IS_EXPLICIT_DISTRUST},
    kUntrusted{CERT_E_UNTRUSTEDROOT, CERT_TRUST_IS_UNTRUSTED_ROOT},
    kPartial{CERT_E_CHAINING, CERT_TRUST_IS_PARTIAL_CHAIN},
    kBrokenRoot{TRUST_E_CERT_SIGNATURE, kSignature.bits | kUntrusted.bits},
    kConstraints{TRUST_E_BASIC_CONSTRAINTS, CERT_TRUST_INVALID_BASIC_CONSTRAINTS},
    kPath{CERT_E_PATHLENCONST, CERT_TRUST_INVALID_PATH_LENGTH},
    kName{CERT_E_INVALID_NAME, CERT_TRUST_INVALID_NAME_CONSTRAINTS},
    kPolicy{CERT_E_INVALID_POLICY, CERT_TRUST_INVALID_POLICY_CONSTRAINTS},
    kUsage{CERT_E_WRONG_USAGE, CERT_TRUST_IS_NOT_VALID_FOR_USAGE},
    kCritical{CERT_E_CRITICAL, CERT_TRUST_HAS_NOT_SUPPORTED_CRITICAL_EXT},
    kUnreadable{CERT_E_CRITICAL, CERT_TRUST_INVALID_EXTENSION};

TEST(Chains, FaultsOfTimeTrustAndSignatureAreToldAtTheirElement) {
    const auto rsa = Set(kCa, &S::key, TestKey(KeyType::rsa2048)), rootBroken = Set(kRoot, &S::breakSignature, true),
               broken = Set(kLeaf, &S::breakSignature, true), expired = Set(kLeaf, &S::notAfter, kNow - 60),
               untrusted = Set(&Trio::trustRoot, false);
    ExpectEach({
        {"good", {}},
        {"good with SHA-1", {Set(kLeaf, &S::hash, "SHA1")}},
        {"leaf expired", {expired}, 0, kTime},
        {"leaf not yet valid", {Set(kLeaf, &S::notBefore, kNow + 600)}, 0, kTime},
        {"authority expired", {Set(kCa, &S::notAfter, kNow - 60)}, 1, kTime},
        {"root expired", {Set(kRoot, &S::notAfter, kNow - 60)}, 2, kTime},
        {"root untrusted", {untrusted}, 2, kUntrusted},
        {"authority missing", {Set(&Trio::knowCa, false)}, 0, kPartial},
        {"leaf broken", {broken}, 0, kSignature},
        {"authority broken", {Set(kCa, &S::breakSignature, true)}, 1, kSignature},
        {"leaf signed with PSS", {rsa, Set(kLeaf, &S::pss, true)}},
        {"the same, broken", {rsa, Set(kLeaf, &S::pss, true), broken}, 0, kSignature},
        {"leaf signed over MD5", {rsa, Set(kLeaf, &S::hash, "MD5")}, 0, kSignature},
        {"untrusted root broken", {rootBroken, untrusted}, 2, kBrokenRoot},
        {"trusted root broken", {rootBroken}},  // who puts it there vouches for name and key
        {"leaf distrusted", {Set(&Trio::distrust, 0)}, 0, kDistrust},
        {"authority distrusted", {Set(&Trio::distrust, 1)}, 1, kDistrust},
        {"trusted root distrusted", {Set(&Trio::distrust, 2)}, 2, kDistrust},
        {"of several the gravest", {broken, expired, untrusted}, 0, {TRUST_E_CERT_SIGNATURE, kSeveral}},
        {"without that one the next", {expired, untrusted}, 0, {CERT_E_UNTRUSTEDROOT, kSeveral}},
    });
}

TEST(Chains, FaultsOfExtensionsAreToldAtTheirElement) {
    const auto extra = [](CertificateSpec Trio::*who, const char* oid, bool critical, const Bytes& value) {
        return Set(who, &S::extra, {{oid, critical, value}});
    };
    const Bytes kPolicies = {0x30, 7, 0x30, 5, 6, 3, 0x2A, 3, 4};
    const auto required = Set(kCa, &S::policyConstraints, "critical,requireExplicitPolicy:0");
    const auto caPolicy = extra(kCa, "2.5.29.32", false, kPolicies);
    const auto allowed = Set(kRoot, &S::nameConstraints, "critical,permitted;email:example.bg"),
               excluded = Set(kCa, &S::nameConstraints, "critical,excluded;email:example.bg"),
               named = Set(kLeaf, &S::subjectAltName, "email:a@example.bg");
    const auto stamping = Set(kLeaf, &S::extendedKeyUsage, "critical,timeStamping"),
               mail = Set(kCa, &S::extendedKeyUsage, "emailProtection"),
               asked = Set(&Trio::usages, {"1.3.6.1.5.5.7.3.8"});
    ExpectEach({
        {"trusted root silent on being an authority", {Set(kRoot, &S::ca, {}), Set(kRoot, &S::keyUsage, "")}},
        {"trusted root denies it",
         {Set(kRoot, &S::ca, false), Set(kRoot, &S::keyUsage, "keyCertSign")},
         2,
         kConstraints},
        {"authority silent on it", {Set(kCa, &S::ca, {}), Set(kCa, &S::keyUsage, "keyCertSign")}, 1, kConstraints},
        {"authority may not sign certificates", {Set(kCa, &S::keyUsage, "cRLSign")}, 1, kUsage},
        {"path too long", {Set(kRoot, &S::pathLength, 0)}, 2, kPath},
        {"path just short enough", {Set(kCa, &S::pathLength, 0)}},
        {"name permitted", {allowed, named}},
        {"name not permitted", {allowed, Set(kLeaf, &S::subjectAltName, "email:a@example.com")}, 0, kName},
        {"name excluded", {excluded, named}, 0, kName},
        // The authority has a policy: OpenSSL 3.0 loses the constraints of a certificate without one (42 bytes).
        {"policy required and missing", {required, caPolicy}, 0, kPolicy},
        {"policy required and there", {required, caPolicy, extra(kLeaf, "2.5.29.32", false, kPolicies)}},
        {"unknown critical extension in the leaf", {extra(kLeaf, "1.2.3.4", true, {5, 0})}, 0, kCritical},
        {"unknown critical extension in the authority", {extra(kCa, "1.2.3.4", true, {5, 0})}, 1, kCritical},
        {"unknown extension", {extra(kLeaf, "1.2.3.4", false, {5, 0})}},
        {"extension that does not decode", {extra(kLeaf, "2.5.29.30", false, {4, 1, 0})}, 0, kUnreadable},
        {"usage that is asked for", {stamping, asked}},
        {"usage that the authority does not allow", {stamping, asked, mail}, 1, kUsage},
        {"usage that nobody asks for", {mail}},
    });
}

TEST(Chains, TakesTheMomentThatIsAsked) {
    CertificateSpec spec = PersonSpec("Person", 2), rootSpec = AuthoritySpec("Root", 0);
    rootSpec.notBefore = kNow - 30 * kDay;
    spec.notBefore = kNow - 20 * kDay;
    spec.notAfter = kNow - 10 * kDay;
    const Certificate root = Issue(rootSpec), leaf = Issue(spec, root);
    const ChainWorld world(root, {});
    EXPECT_EQ(world.Verdict(leaf, kNow - 15 * kDay), 0U);
    EXPECT_EQ(world.Verdict(leaf, kNow - 25 * kDay), CERT_E_EXPIRED);
}

TEST(Chains, ACertificateAmongTheRootsIsTrustedAsItIs) {
    const Certificate selfSigned = Issue(PersonSpec("Self", 0));
    EXPECT_EQ(ChainWorld().Verdict(selfSigned), CERT_E_UNTRUSTEDROOT);
    for (const Certificate& leaf : {selfSigned, Issue(PersonSpec("Person", 2), Issue(AuthoritySpec("Unknown", 1)))})
        EXPECT_EQ(ChainWorld(leaf, {}).Verdict(leaf), 0U);
}

TEST(Chains, ACircleEndsAsACircle) {
    const Certificate seed = Issue(AuthoritySpec("A", 0));
    const Certificate b = Issue(AuthoritySpec("B", 1), seed);
    const Certificate a = Issue(AuthoritySpec("A", 0), b);
    const ChainWorld world;
    world.Know(a);
    world.Know(b);
    const ChainContext chain = world.Chain(Issue(PersonSpec("Person", 2), a));
    EXPECT_EQ(chain.dwErrorStatus, CERT_TRUST_IS_CYCLIC | CERT_TRUST_IS_PARTIAL_CHAIN);
    EXPECT_EQ(CertVerifyCertificateChainPolicy(chain), CERT_E_CHAINING);
}

// An authority under four roots: the shortest is not trusted, one cross-certificate has expired.
TEST(Chains, TheGoodPathIsFoundInAnyOrderOfTheStores) {
    const Certificate oldRoot = Issue(AuthoritySpec("Old Root", 0)), root = Issue(AuthoritySpec("Root", 1));
    const Certificate bridge = Issue(AuthoritySpec("Bridge", 4), root);
    CertificateSpec expired = AuthoritySpec("Authority", 2);
    expired.notAfter = kNow - 60;
    const Certificate known[] = {oldRoot,
                                 bridge,
                                 Issue(AuthoritySpec("Authority", 2)),
                                 Issue(expired, root),
                                 Issue(AuthoritySpec("Authority", 2), oldRoot),
                                 Issue(AuthoritySpec("Authority", 2), bridge)};
    const Certificate leaf = Issue(PersonSpec("Person", 3), known[2]);
    std::array<std::size_t, 6> order = {0, 1, 2, 3, 4, 5};
    do {
        const ChainWorld world(root, {});
        for (const std::size_t i : order)
            world.Know(known[i]);
        const ChainContext chain = world.Chain(leaf);
        ASSERT_EQ(chain.dwErrorStatus, 0U);
        ASSERT_EQ(chain.elements.size(), 4U);
        ASSERT_EQ(chain.elements[2].certificate, ContextOf(bridge));
    } while (std::ranges::next_permutation(order).found);
}

TEST(Chains, OfTwoPathsTheRootThenTheBytesDecide) {
    const Certificate root = Issue(AuthoritySpec("Root", 0)), missing = Issue(AuthoritySpec("Missing", 3));
    const Certificate one = Issue(AuthoritySpec("Authority", 1), root),
                      two = Issue(AuthoritySpec("Authority", 1), root),
                      byMissing = Issue(AuthoritySpec("Authority", 1), missing);
    const Certificate leaf = Issue(PersonSpec("Person", 2), one);
    EXPECT_EQ(ChainWorld(root, {one, two}).Chain(leaf).elements.at(1).certificate,
              ChainWorld(root, {two, one}).Chain(leaf).elements.at(1).certificate);
    const ChainWorld untrusting;
    for (const Certificate& each : {byMissing, one, root})
        untrusting.Know(each);
    EXPECT_EQ(untrusting.Verdict(leaf), CERT_E_UNTRUSTEDROOT);
}

TEST(Chains, AnIssuerIsWhoHasTheNameAndTheKey) {
    const Certificate root = Issue(AuthoritySpec("Root  Authority", 0)),
                      real = Issue(AuthoritySpec("Root authority", 1));
    const Certificate leaf = Issue(PersonSpec("Person", 2), real);
    // A trusted namesake must neither lend its trust nor make the signature look broken.
    EXPECT_EQ(ChainWorld(root, {real}).Verdict(leaf), CERT_E_UNTRUSTEDROOT);
    EXPECT_EQ(ChainWorld(root, {}).Verdict(leaf), CERT_E_CHAINING)
        << "the key identifier tells that another key signed";

    CertificateSpec wrongId = PersonSpec("Person", 2), otherName = wrongId, newKey = AuthoritySpec("Root authority", 1);
    wrongId.authorityKeyId = newKey.authorityKeyId = newKey.subjectKeyId = false;
    wrongId.extra = {{"2.5.29.35", false, {0x30, 0x06, 0x80, 0x04, 1, 2, 3, 4}}};
    otherName.issuerName = Name{{.type = "CN", .value = " ROOT authority ", .stringType = V_ASN1_PRINTABLESTRING}};
    for (const CertificateSpec& spec : {wrongId, otherName})
        EXPECT_EQ(ChainWorld(root, {}).Verdict(Issue(spec, root)), 0U);
    const Certificate newWithOld = Issue(newKey, root);
    EXPECT_EQ(ChainWorld(root, {newWithOld}).Verdict(Issue(PersonSpec("Person", 2), newWithOld)), 0U);
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
        spec.signWith = TestKey(KeyType::p256, 30);
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

// --- The system's stores ---

TEST(SystemChains, IssuersAndRootsComeFromTheFoldersTheCertificatesOwnStoreAndTheAdditionalOne) {
    const Profile profile;
    const Certificate root = Issue(AuthoritySpec("Root", 0)), ca = Issue(AuthoritySpec("Authority", 1), root),
                      stranger = Issue(AuthoritySpec("Stranger", 3));
    const auto leaf = ContextOf(Issue(PersonSpec("Person", 2), ca)),
               strangersLeaf = ContextOf(Issue(PersonSpec("Person", 4), stranger));
    const auto verdict = [](const CertificateContext& of, const CertStore& additional = {}) {
        const auto chain = CertGetCertificateChain(
            of, {.time = {}, .additionalStore = additional, .flags = 0, .engine = nullptr, .requestedUsage = {}});
        return chain ? CertVerifyCertificateChainPolicy(*chain) : GetLastError();
    };
    InstallCertificate(profile, "ROOT", root);
    EXPECT_EQ(verdict(leaf), CERT_E_CHAINING);
    const CertStore message = CertOpenMemoryStore();
    for (const Certificate& each : {ca, stranger})
        CertAddCertificateContextToStore(message, ContextOf(each), CERT_STORE_ADD_ALWAYS);
    EXPECT_EQ(verdict(leaf.FromStore(message)), 0U);
    EXPECT_EQ(verdict(leaf, message), 0U);
    EXPECT_EQ(verdict(strangersLeaf.FromStore(message)), CERT_E_UNTRUSTEDROOT) << "neither lends trust";

    InstallCertificate(profile, "CA", ca);
    EXPECT_EQ(verdict(leaf), 0U);
    TrustSystemRoots(false);
    EXPECT_EQ(verdict(leaf), CERT_E_UNTRUSTEDROOT);
    TrustSystemRoots(true);
    InstallCertificate(profile, "Disallowed", ca);
    EXPECT_EQ(verdict(leaf), CERT_E_EXPLICIT_DISTRUST);
}

}  // namespace
