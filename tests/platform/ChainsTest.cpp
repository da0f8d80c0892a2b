#include "platform/Chains.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <functional>
#include <map>
#include <set>
#include <sstream>

#include "tests/platform/DerPieces.h"
#include "tests/support/ChainWorld.h"
#include "tests/support/Corpora.h"

namespace {

using namespace platform;
using namespace tests;
using S = CertificateSpec;

const std::int64_t kNow = std::time(nullptr);

// What a line of the table changes of a certificate. Times are seconds from now.
void Change(S& spec, const std::string& what, const std::string& value) {
    const std::map<std::string, std::string S::*> texts = {{"keyUsage", &S::keyUsage},
                                                           {"extendedKeyUsage", &S::extendedKeyUsage},
                                                           {"subjectAltName", &S::subjectAltName},
                                                           {"nameConstraints", &S::nameConstraints},
                                                           {"policyConstraints", &S::policyConstraints}};
    const std::map<std::string, std::function<void()>> others = {
        {"notBefore", [&] { spec.notBefore = kNow + std::stol(value); }},
        {"notAfter", [&] { spec.notAfter = kNow + std::stol(value); }},
        {"hash", [&] { spec.hash = value == "MD5" ? "MD5" : "SHA1"; }},
        {"ca", [&] { spec.ca = value == "denied" ? std::optional(false) : std::nullopt; }},
        {"pathLength", [&] { spec.pathLength = std::stoi(value); }},
        {"is broken", [&] { spec.breakSignature = true; }},
        {"is RSA", [&] { spec.key = TestKey(KeyType::rsa2048); }},
        {"curve", [&] { spec.key = Key(EVP_EC_gen(value.c_str()), EVP_PKEY_free); }},
        {"is PSS", [&] { spec.pss = true; }}};
    if (const auto text = texts.find(what); text != texts.end()) {
        spec.*text->second = value == "none" ? "" : value;
    } else if (const auto other = others.find(what == "is" ? what + " " + value : what); other != others.end()) {
        other->second();
    } else {  // an extension, critical with an exclamation mark
        ASSERT_TRUE(std::isdigit(what.front())) << what;
        spec.extra = {{what.substr(0, what.find('!')), what.ends_with('!'), FromHex(value)}};
    }
}

// Name, changes, the element that bears the fault, code, bits: of a chain of person, authority and root.
TEST(Chains, EachFaultIsToldAtItsElement) {
    std::map<std::string, ErrorCode> codes = {{"-", ERROR_SUCCESS}};
    for (const auto& row : ReadTable(NORVIK_SOURCE_DIR "/tests/data/status.tsv"))
        codes[row[1]] = static_cast<ErrorCode>(std::stoul(row[0], nullptr, 16));
    const std::set<std::string> kTreatments = {"untrusted", "unknown", "distrusted"};
    const auto table = ReadTable(NORVIK_SOURCE_DIR "/tests/data/platform/chain-faults.tsv");
    ASSERT_GT(table.size(), 35U);
    for (const auto& row : table) {
        SCOPED_TRACE(row[0]);
        S rootSpec = AuthoritySpec("Root", 0), caSpec = AuthoritySpec("Authority", 1),
          leafSpec = PersonSpec("Person", 2);
        std::set<std::string> treated;  // "root untrusted"
        std::vector<std::string> usages;
        std::istringstream changes(row[1]);
        for (std::string who, what, value; changes >> who >> what >> value;) {
            if (what == "asks") {
                usages = {value};
            } else if (kTreatments.contains(value)) {
                treated.insert(who + " " + value);
            } else {
                Change(who == "root" ? rootSpec : who == "authority" ? caSpec : leafSpec, what, value);
            }
        }
        const Certificate root = Issue(rootSpec), ca = Issue(caSpec, root), leaf = Issue(leafSpec, ca);
        const ChainWorld world;
        if (!treated.contains("root untrusted")) world.Trust(root);
        world.Know(root);
        if (!treated.contains("authority unknown")) world.Know(ca);
        for (const auto& [who, certificate] : {std::pair("leaf", leaf), {"authority", ca}, {"root", root}})
            if (treated.contains(std::string(who) + " distrusted")) world.Distrust(certificate);

        const ChainContext chain = world.Chain(leaf, kNow, 0, usages);
        EXPECT_EQ(CertVerifyCertificateChainPolicy(chain), codes.at(row[3])) << std::hex << chain.dwErrorStatus;
        if (row[2] == "several") continue;
        const auto bits = static_cast<std::uint32_t>(std::stoul(row[4], nullptr, 16));
        EXPECT_EQ(chain.dwErrorStatus, bits);
        for (std::size_t i = 0; i < chain.elements.size(); ++i)
            EXPECT_EQ(chain.elements[i].dwErrorStatus, std::to_string(i) == row[2] ? bits : 0) << "element " << i;
    }
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
