// Every status word that a verification can end with on this host, each brought about for real, with its exact words.

#include <algorithm>

#include "platform/Error.h"
#include "tests/src/VerificationTest.h"
#include "tests/support/ChainWorld.h"
#include "tests/support/StatusTable.h"

namespace {

using namespace tests;
using verification::SignatureEntry;

std::string WordsOf(std::uint32_t status) {
    static const auto rows = StatusRows();
    const auto row = std::ranges::find(rows, status, &StatusRow::status);
    return row == rows.end() ? "(not in the table)" : row->text;
}

// Root, authority and person of one case; all CRLs lie in the stores unless `crls` says otherwise.
struct Cast {
    CertificateSpec root = AuthoritySpec("Words Root", 0), ca = AuthoritySpec("Words CA", 1),
                    person = PersonSpec("Words Person", 2);
    bool trustRoot = true, sendCa = true, crls = true, distrustPerson = false;
    CrlSpec caCrl = {};
    bool revokePerson = false, revokeCa = false;
};

struct WordCase {
    const char* name;
    void (*change)(Cast&);
    std::uint32_t status;
};

class CertificateWord : public VerificationTest, public testing::WithParamInterface<WordCase> {};

TEST_P(CertificateWord, IsToldWithItsText) {
    Cast cast;
    GetParam().change(cast);
    const Certificate root = Issue(cast.root), ca = Issue(cast.ca, root), person = Issue(cast.person, ca);
    if (cast.trustRoot) InstallCertificate(profile_, "ROOT", root);
    if (cast.distrustPerson) InstallCertificate(profile_, "Disallowed", person);
    if (cast.revokePerson) cast.caCrl.revoked.push_back({person.Serial(), std::time(nullptr) - kDay, 1});
    CrlSpec rootCrl;
    if (cast.revokeCa) rootCrl.revoked.push_back({ca.Serial(), std::time(nullptr) - kDay, 2});
    if (cast.crls) {
        InstallCrl(profile_, "CA", MakeCrl(root, rootCrl));
        InstallCrl(profile_, "CA", MakeCrl(ca, cast.caCrl));
    }
    std::vector<Certificate> inside{root};
    if (cast.sendCa) inside.push_back(ca);
    const auto entry = EntryOf(person, inside);
    EXPECT_EQ(entry.signStatus, 0U) << "the signature itself is good";
    EXPECT_EQ(entry.certStatus, GetParam().status) << platform::ToUtf8(entry.certMessage);
    EXPECT_EQ(platform::ToUtf8(entry.certMessage), WordsOf(GetParam().status));
}

const WordCase kWords[] = {
    {"Good", [](Cast&) {}, 0},
    {"Signature", [](Cast& c) { c.person.breakSignature = true; }, platform::TRUST_E_CERT_SIGNATURE},
    {"Distrust", [](Cast& c) { c.distrustPerson = true; }, platform::CERT_E_EXPLICIT_DISTRUST},
    {"UntrustedRoot", [](Cast& c) { c.trustRoot = false; }, platform::CERT_E_UNTRUSTEDROOT},
    {"Incomplete", [](Cast& c) { c.sendCa = false; }, platform::CERT_E_CHAINING},
    {"Revoked", [](Cast& c) { c.revokePerson = true; }, platform::CRYPT_E_REVOKED},
    {"AuthorityRevoked", [](Cast& c) { c.revokeCa = true; }, platform::CRYPT_E_REVOKED},
    {"NoAuthority",
     [](Cast& c) {
         c.ca.ca = false;
         c.ca.keyUsage = "keyCertSign,cRLSign";
     },
     platform::TRUST_E_BASIC_CONSTRAINTS},
    {"PathLength", [](Cast& c) { c.root.pathLength = 0; }, platform::CERT_E_PATHLENCONST},
    {"Name",
     [](Cast& c) {
         c.ca.nameConstraints = "critical,permitted;email:.bg";
         c.person.subjectAltName = "email:a@example.com";
     },
     platform::CERT_E_INVALID_NAME},
    {"Policy", [](Cast& c) { c.root.policyConstraints = "critical,requireExplicitPolicy:0"; },
     platform::CERT_E_INVALID_POLICY},
    {"CriticalExtension",
     [](Cast& c) {
         c.person.extra.push_back({"1.2.3.4.5", true, {5, 0}});
     },
     platform::CERT_E_CRITICAL},
    {"Usage", [](Cast& c) { c.ca.keyUsage = "cRLSign"; }, platform::CERT_E_WRONG_USAGE},
    {"Expired", [](Cast& c) { c.person.notAfter = std::time(nullptr) - kDay / 2; }, platform::CERT_E_EXPIRED},
    {"NotYetValid", [](Cast& c) { c.person.notBefore = std::time(nullptr) + kDay; }, platform::CERT_E_EXPIRED},
    {"Unknown", [](Cast& c) { c.crls = false; }, platform::CRYPT_E_NO_REVOCATION_CHECK},
    {"OldCrl",
     [](Cast& c) {
         c.caCrl.thisUpdate = std::time(nullptr) - 9 * kDay;
         c.caCrl.nextUpdate = std::time(nullptr) - 2 * kDay;
     },
     platform::CRYPT_E_NO_REVOCATION_CHECK},
};
INSTANTIATE_TEST_SUITE_P(Words, CertificateWord, testing::ValuesIn(kWords),
                         [](const auto& info) { return std::string(info.param.name); });

class VerdictWords : public VerificationTest {};

// Nobody answers: the chain says so, and then the certificate's own addresses were asked, too, without an answer.
TEST_F(VerdictWords, TellWhetherTheCertificateNamesACrl) {
    InstallStandard();
    auto spec = PersonSpec("Words Person", 3);
    const Certificate other = Issue(AuthoritySpec("Other CA", 4), pki_.root);
    const auto none = EntryOf(Issue(spec, other), {other});
    EXPECT_EQ(none.certStatus, platform::CRYPT_E_NO_REVOCATION_CHECK);
    EXPECT_TRUE(none.noCrlUrl);

    spec.crlUrls = {"http://127.0.0.1:9/none.crl"};
    const Certificate person = Issue(spec, other);
    InstallCertificate(profile_, "CA", other);
    const auto verdict = tessaly::CryptCertificate(person.Der()).BuildChain(tessaly::CryptStore(u"ROOT"));
    EXPECT_EQ(verdict.status, platform::CRYPT_E_REVOCATION_OFFLINE);
    EXPECT_EQ(platform::ToUtf8(verdict.text), WordsOf(platform::CRYPT_E_REVOCATION_OFFLINE));
    const auto named = EntryOf(person, {other});
    EXPECT_EQ(named.certStatus, platform::CRYPT_E_NO_REVOCATION_CHECK);
    EXPECT_EQ(platform::ToUtf8(named.certMessage), WordsOf(platform::CRYPT_E_NO_REVOCATION_CHECK));
    EXPECT_FALSE(named.noCrlUrl);
}

}  // namespace
