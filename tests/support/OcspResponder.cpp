#include "tests/support/OcspResponder.h"

#include <openssl/ocsp.h>

#include "tests/support/Made.h"

namespace tests {
namespace {

using platform::posix::EncodeDer;

auto ReadRequest(ByteView der) {
    const unsigned char* in = der.data();
    auto request =
        Made<OCSP_REQUEST_free>(d2i_OCSP_REQUEST(nullptr, &in, static_cast<long>(der.size())), "OCSP request");
    Require(OCSP_request_onereq_count(request.get()) == 1, "OCSP request about one certificate");
    return request;
}

void AddStatus(OCSP_BASICRESP* basic, OCSP_CERTID* id, const OcspSpec& spec) {
    const auto thisUpdate = MadeTime(spec.thisUpdate), revoked = MadeTime(spec.thisUpdate - 60);
    const auto nextUpdate = MadeTime(spec.nextUpdate.value_or(0));
    Require(OCSP_basic_add1_status(basic, id, static_cast<int>(spec.status), OCSP_REVOKED_STATUS_KEYCOMPROMISE,
                                   revoked.get(), thisUpdate.get(),
                                   spec.nextUpdate ? nextUpdate.get() : nullptr) != nullptr,
            "OCSP status");
}

void AddExtensions(OCSP_BASICRESP* basic, OCSP_REQUEST* request, const OcspSpec& spec) {
    if (spec.nonce == OcspSpec::Nonce::echo) OCSP_copy_nonce(basic, request);
    if (spec.nonce == OcspSpec::Nonce::other) OCSP_basic_add1_nonce(basic, nullptr, 16);
    if (!spec.criticalExtension) return;
    Require(OCSP_BASICRESP_add_ext(basic, MadeExtension({"1.2.3.4", true, {5, 0}}).get(), -1) == 1, "OCSP extension");
}

}  // namespace

Bytes AnswerOcsp(ByteView requestDer, const Certificate& issuer, const Certificate& signer, const OcspSpec& spec) {
    if (spec.responseStatus != OCSP_RESPONSE_STATUS_SUCCESSFUL) {
        const auto refusal = Made<OCSP_RESPONSE_free>(OCSP_response_create(spec.responseStatus, nullptr), "refusal");
        return EncodeDer<i2d_OCSP_RESPONSE>(refusal.get());
    }
    const auto request = ReadRequest(requestDer);
    OCSP_CERTID* asked = OCSP_onereq_get0_id(OCSP_request_onereq_get0(request.get(), 0));
    const X509* about = spec.about.value_or(signer).Native();
    const auto other = Made<OCSP_CERTID_free>(OCSP_cert_to_id(EVP_sha1(), about, issuer.Native()), "OCSP name");
    const auto basic = Made<OCSP_BASICRESP_free>(OCSP_BASICRESP_new(), "OCSP answer");
    AddStatus(basic.get(), spec.about ? other.get() : asked, spec);
    AddExtensions(basic.get(), request.get(), spec);
    const unsigned long flags = (spec.byKey ? OCSP_RESPID_KEY : 0) | (spec.withSigner ? 0 : OCSP_NOCERTS);
    Require(OCSP_basic_sign(basic.get(), signer.Native(), signer.PrivateKey().get(), EVP_get_digestbyname(spec.hash),
                            nullptr, flags) == 1,
            "OCSP signature");
    if (spec.breakSignature) {
        auto* value = const_cast<ASN1_OCTET_STRING*>(OCSP_resp_get0_signature(basic.get()));
        value->data[value->length - 1] ^= 1;
    }
    const auto response =
        Made<OCSP_RESPONSE_free>(OCSP_response_create(OCSP_RESPONSE_STATUS_SUCCESSFUL, basic.get()), "OCSP response");
    return EncodeDer<i2d_OCSP_RESPONSE>(response.get());
}

Bytes NonceOf(ByteView requestDer) {
    const auto request = ReadRequest(requestDer);
    const int at = OCSP_REQUEST_get_ext_by_NID(request.get(), NID_id_pkix_OCSP_Nonce, -1);
    if (at < 0) return {};
    const ASN1_OCTET_STRING* value = X509_EXTENSION_get_data(OCSP_REQUEST_get_ext(request.get(), at));
    return {ASN1_STRING_get0_data(value), ASN1_STRING_get0_data(value) + ASN1_STRING_length(value)};
}

}  // namespace tests
