// What messages bring along about their certificates besides CRLs: OCSP answers, and signers' values for long-term use.

#include "platform/Chains.h"
#include "platform/formats/Der.h"
#include "platform/formats/DerWriter.h"
#include "platform/posix/Ocsp.h"
#include "tests/platform/MessageFixture.h"
#include "tests/support/ChainWorld.h"
#include "tests/support/OcspResponder.h"

namespace {

using namespace platform;
using tests::Certificate;
using tests::kDay;
using tests::MakeCrl;
using tests::OcspSpec;

constexpr std::string_view kCertificateValues = "1.2.840.113549.1.9.16.2.23",
                           kRevocationValues = "1.2.840.113549.1.9.16.2.24", kOcspInfo = "1.3.6.1.5.5.7.16.2";
constexpr ErrorCode kUnknown = CRYPT_E_NO_REVOCATION_CHECK;

Bytes Wrapped(std::initializer_list<std::uint8_t> tags, ByteView der) {
    Bytes all = CopyOf(der);
    for (const std::uint8_t tag : tags)
        all = DerWriter().Value(tag, all).Take();
    return all;
}
Bytes Attribute(std::string_view oid, const Bytes& value) {
    DerWriter out;
    out.Sequence([&] { out.Oid(oid).Value(tag::kSet, value); });
    return out.Take();
}
Bytes OtherInfo(const Bytes& response) {
    DerWriter out;
    out.Nested(tag::ContextConstructed(1), [&] { out.Oid(kOcspInfo).Raw(response); });
    return out.Take();
}
Bytes CrlValues(const Bytes& crl) {
    return Attribute(kRevocationValues, Wrapped({tag::kSequence, 0xA0, tag::kSequence}, crl));
}
Bytes OcspValues(const Bytes& response) {
    const unsigned char* in = response.data();
    const std::unique_ptr<OCSP_RESPONSE, decltype(&OCSP_RESPONSE_free)> read(
        d2i_OCSP_RESPONSE(nullptr, &in, static_cast<long>(response.size())), OCSP_RESPONSE_free);
    const std::unique_ptr<OCSP_BASICRESP, decltype(&OCSP_BASICRESP_free)> basic(OCSP_response_get1_basic(read.get()),
                                                                                OCSP_BASICRESP_free);
    Bytes der(static_cast<std::size_t>(i2d_OCSP_BASICRESP(basic.get(), nullptr)));
    unsigned char* out = der.data();
    i2d_OCSP_BASICRESP(basic.get(), &out);
    return Attribute(kRevocationValues, Wrapped({tag::kSequence, 0xA1, tag::kSequence}, der));
}

// The message in DER with these among its CRLs and its signer's unsigned attributes.
Bytes Carrying(ByteView message, const Bytes& infos, const Bytes& attributes) {
    auto outer = DerReader(message).Enter(tag::kSequence);
    const auto type = outer->Next();
    auto data = outer->Enter(0xA0)->Enter(tag::kSequence);
    Bytes head;
    while (!data->NextIs(tag::kSet) || head.size() < 5) {
        const auto part = data->Next();
        head.insert(head.end(), part->encoded.begin(), part->encoded.end());
    }
    Bytes signer = CopyOf(data->Enter(tag::kSet)->Next()->contents);
    const Bytes added = attributes.empty() ? Bytes() : Wrapped({0xA1}, attributes);
    signer.insert(signer.end(), added.begin(), added.end());
    DerWriter out;
    out.Sequence([&] {
        out.Raw(type->encoded).Nested(0xA0, [&] {
            out.Sequence([&] {
                out.Raw(head);
                if (!infos.empty()) out.Value(0xA1, infos);
                out.Raw(Wrapped({tag::kSequence, tag::kSet}, signer));
            });
        });
    });
    return out.Take();
}

class MessageProofs : public tests::MessageFixture {
  protected:
    const Certificate root_ = Issue(tests::AuthoritySpec("Root", 0)),
                      ca_ = Issue(tests::AuthoritySpec("Authority", 1), root_),
                      signer_ = Issue(tests::PersonSpec("Person", 2), ca_);
    tests::ChainWorld world_{root_, {ca_}};

    void SetUp() override {
        world_.AddCrl(MakeCrl(root_));
        WriteSigner("signer", signer_);
    }
    [[nodiscard]] Bytes Answer(const OcspSpec& spec, const Certificate* delegate = nullptr) const {
        const std::array<CertificateContext, 2> path = {ContextOf(signer_), ContextOf(ca_)};
        return AnswerOcsp(posix::OcspQuestion(path).Request(), ca_, delegate ? *delegate : ca_, spec);
    }
    [[nodiscard]] tests::CrlSpec Listing() const { return {.revoked = {{signer_.Serial(), std::time(nullptr), 1}}}; }
    ErrorCode Verdict(const Bytes& infos, const Bytes& attributes, std::vector<std::string> options = {}) {
        options.push_back("-nodetach");
        const auto found = tests::Judge(tests::Read(Carrying(Sign(options), infos, attributes)));
        EXPECT_EQ(found.status, 0U);
        return world_.VerdictWithCrls(found.certificate);
    }
};

TEST_F(MessageProofs, OcspAnswersCountWhereverTheyStand) {
    const std::int64_t now = std::time(nullptr);
    OcspSpec revoked, outdated, forged, ofAnother;
    revoked.status = OcspSpec::Status::revoked;
    outdated.thisUpdate = now - 9 * kDay;
    outdated.nextUpdate = now - kDay;
    forged.breakSignature = true;
    ofAnother.about = Issue(tests::PersonSpec("Other", 3), ca_);
    const struct {
        const char* name;
        OcspSpec spec;
        ErrorCode expected;
    } cases[] = {{"good", {}, 0},
                 {"revoked", revoked, CRYPT_E_REVOKED},
                 {"outdated", outdated, kUnknown},
                 {"forged", forged, kUnknown},
                 {"of another", ofAnother, kUnknown}};
    for (const auto& each : cases) {
        const Bytes response = Answer(each.spec);
        EXPECT_EQ(Verdict(OtherInfo(response), {}), each.expected) << each.name << " among the CRLs";
        EXPECT_EQ(Verdict({}, OcspValues(response)), each.expected) << each.name << " as attribute";
    }
    world_.AddCrl(MakeCrl(ca_));
    EXPECT_EQ(Verdict(OtherInfo(Answer(revoked)), {}), CRYPT_E_REVOKED) << "also beside a CRL that clears";
}

TEST_F(MessageProofs, TheRespondersCertificateMayStandInTheMessage) {
    tests::CertificateSpec spec = tests::PersonSpec("Responder", 6);
    for (const bool isResponder : {false, true}) {
        spec.extendedKeyUsage = isResponder ? "OCSPSigning" : "emailProtection";
        const Certificate delegate = Issue(spec, ca_);
        const Bytes info = OtherInfo(Answer({}, &delegate));
        EXPECT_EQ(Verdict(info, {}), kUnknown) << "nobody knows it";
        profile_.Write("responder.pem", delegate.Pem());
        EXPECT_EQ(Verdict(info, {}, {"-certfile", "responder.pem"}), isResponder ? 0U : kUnknown);
    }
}

TEST_F(MessageProofs, SignersValuesCountLikeThoseOfTheMessage) {
    EXPECT_EQ(Verdict({}, {}), kUnknown);
    EXPECT_EQ(Verdict({}, CrlValues(MakeCrl(ca_))), 0U);
    EXPECT_EQ(Verdict({}, CrlValues(MakeCrl(ca_, Listing()))), CRYPT_E_REVOKED);
    world_.others = CertOpenMemoryStore();
    world_.AddCrl(MakeCrl(ca_));
    EXPECT_EQ(Verdict({}, {}), CERT_E_CHAINING);
    EXPECT_EQ(Verdict({}, Attribute(kCertificateValues, Wrapped({tag::kSequence}, ca_.Der()))), 0U);
}

}  // namespace
