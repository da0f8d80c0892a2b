// What messages bring along about their certificates besides CRLs: OCSP answers, and signers' values for long-term use.

#include "platform/Chains.h"
#include "platform/posix/Ocsp.h"
#include "tests/platform/DerPieces.h"
#include "tests/platform/MessageFixture.h"
#include "tests/platform/OnlineFixture.h"
#include "tests/toolkit/MessageParts.h"

namespace {

using namespace platform;
using namespace tests;
using testing_support::Wrap;

Bytes Oid(std::string_view oid) {
    return DerWriter().Oid(oid).Take();
}
// RevocationValues, with these in the list of that number.
Bytes RevocationValues(std::uint8_t list, const Bytes& value) {
    const Bytes lists = Tlv(tag::kSequence, Tlv(tag::ContextConstructed(list), Tlv(tag::kSequence, value)));
    return Wrap(tag::kSequence, {Oid("1.2.840.113549.1.9.16.2.24"), Tlv(tag::kSet, lists)});
}
Bytes OtherInfo(const Bytes& response) {
    return Wrap(tag::ContextConstructed(1), {Oid("1.3.6.1.5.5.7.16.2"), response});
}
Bytes OcspValues(const Bytes& response) {
    const unsigned char* in = response.data();
    const std::unique_ptr<OCSP_RESPONSE, decltype(&OCSP_RESPONSE_free)> read(
        d2i_OCSP_RESPONSE(nullptr, &in, static_cast<long>(response.size())), OCSP_RESPONSE_free);
    const std::unique_ptr<OCSP_BASICRESP, decltype(&OCSP_BASICRESP_free)> basic(OCSP_response_get1_basic(read.get()),
                                                                                OCSP_BASICRESP_free);
    return RevocationValues(1, posix::EncodeDer<i2d_OCSP_BASICRESP>(basic.get()));
}

// The message in DER with these among its CRLs and its signer's unsigned attributes.
Bytes Carrying(ByteView message, const Bytes& infos, const Bytes& attributes) {
    testing_support::MessageParts parts(message);
    if (!attributes.empty()) parts.signers.at(0).push_back(Tlv(0xA1, attributes));
    if (infos.empty()) return parts.Assemble();
    parts.fields.push_back(Wrap(0xA0, parts.certificates));
    parts.certificates.clear();
    parts.fields.push_back(Tlv(0xA1, infos));
    return parts.Assemble();
}

class MessageProofs : public MessageFixture {
  protected:
    const Certificate root_ = Issue(AuthoritySpec("Root", 0)), ca_ = Issue(AuthoritySpec("Authority", 1), root_),
                      signer_ = Issue(PersonSpec("Person", 2), ca_);
    ChainWorld world_{root_, {ca_}};

    void SetUp() override {
        world_.AddCrl(MakeCrl(root_));
        WriteSigner("signer", signer_);
    }
    [[nodiscard]] Bytes Answer(const OcspSpec& spec, const Certificate& by) const {
        const std::array<CertificateContext, 2> path = {ContextOf(signer_), ContextOf(ca_)};
        return AnswerOcsp(posix::OcspQuestion(path).Request(), ca_, by, spec);
    }
    ErrorCode Verdict(const Bytes& infos, const Bytes& attributes, std::vector<std::string> options = {}) {
        options.push_back("-nodetach");
        const auto found = Judge(Read(Carrying(Sign(options), infos, attributes)));
        EXPECT_EQ(found.status, 0U);
        return world_.VerdictWithCrls(found.certificate);
    }
};

TEST_F(MessageProofs, OcspAnswersCountWhereverTheyStand) {
    const OcspSpec revoked{.status = OcspSpec::Status::revoked};
    const std::tuple<const char*, OcspSpec, ErrorCode> cases[] = {
        {"good", {}, 0},
        {"revoked", revoked, CRYPT_E_REVOKED},
        {"outdated", {.thisUpdate = kNow - 9 * kDay, .nextUpdate = kNow - kDay}, kNobody},
        {"forged", {.breakSignature = true}, kNobody},
        {"of another", {.about = Issue(PersonSpec("Other", 3), ca_)}, kNobody}};
    for (const auto& [name, spec, expected] : cases) {
        const Bytes response = Answer(spec, ca_);
        EXPECT_EQ(Verdict(OtherInfo(response), {}), expected) << name << " among the CRLs";
        EXPECT_EQ(Verdict({}, OcspValues(response)), expected) << name << " as attribute";
    }
    world_.AddCrl(MakeCrl(ca_));
    EXPECT_EQ(Verdict(OtherInfo(Answer(revoked, ca_)), {}), CRYPT_E_REVOKED) << "also beside a CRL that clears";
}

TEST_F(MessageProofs, TheRespondersCertificateMayStandInTheMessage) {
    CertificateSpec spec = PersonSpec("Responder", 6);
    for (const bool isResponder : {false, true}) {
        spec.extendedKeyUsage = isResponder ? "OCSPSigning" : "emailProtection";
        const Certificate delegate = Issue(spec, ca_);
        const Bytes info = OtherInfo(Answer({}, delegate));
        EXPECT_EQ(Verdict(info, {}), kNobody) << "nobody knows it";
        profile_.Write("responder.pem", delegate.Pem());
        EXPECT_EQ(Verdict(info, {}, {"-certfile", "responder.pem"}), isResponder ? 0U : kNobody);
    }
}

TEST_F(MessageProofs, SignersValuesCountLikeThoseOfTheMessage) {
    const CrlSpec listing{.revoked = {{signer_.Serial(), kNow, 1}}};
    EXPECT_EQ(Verdict({}, {}), kNobody);
    EXPECT_EQ(Verdict({}, RevocationValues(0, MakeCrl(ca_))), 0U);
    EXPECT_EQ(Verdict({}, RevocationValues(0, MakeCrl(ca_, listing))), CRYPT_E_REVOKED);
    world_.others = CertOpenMemoryStore();
    world_.AddCrl(MakeCrl(ca_));
    EXPECT_EQ(Verdict({}, {}), CERT_E_CHAINING);
    const Bytes certificates = Tlv(tag::kSet, Tlv(tag::kSequence, ca_.Der()));
    EXPECT_EQ(Verdict({}, Wrap(tag::kSequence, {Oid("1.2.840.113549.1.9.16.2.23"), certificates})), 0U);
}

}  // namespace
