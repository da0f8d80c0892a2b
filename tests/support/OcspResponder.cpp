#include "tests/support/OcspResponder.h"

#include <openssl/ocsp.h>

#include "platform/posix/OpenSsl.h"
#include "tests/support/PkiFault.h"

namespace tests {
namespace {

using platform::posix::EncodeDer;
using platform::posix::Owned;
using RequestPtr = Owned<OCSP_REQUEST, OCSP_REQUEST_free>;
using ResponsePtr = Owned<OCSP_RESPONSE, OCSP_RESPONSE_free>;
using BasicPtr = Owned<OCSP_BASICRESP, OCSP_BASICRESP_free>;
using IdPtr = Owned<OCSP_CERTID, OCSP_CERTID_free>;
using TimePtr = Owned<ASN1_TIME, ASN1_TIME_free>;
using ExtensionPtr = Owned<X509_EXTENSION, X509_EXTENSION_free>;
using OctetsPtr = Owned<ASN1_OCTET_STRING, ASN1_OCTET_STRING_free>;

RequestPtr ReadRequest(ByteView der) {
    const unsigned char* in = der.data();
    RequestPtr request(d2i_OCSP_REQUEST(nullptr, &in, static_cast<long>(der.size())));
    Require(request && OCSP_request_onereq_count(request.get()) == 1, "OCSP request");
    return request;
}

void AddStatus(OCSP_BASICRESP* basic, OCSP_CERTID* id, const OcspSpec& spec) {
    const TimePtr thisUpdate(ASN1_TIME_set(nullptr, spec.thisUpdate));
    const TimePtr nextUpdate(spec.nextUpdate ? ASN1_TIME_set(nullptr, *spec.nextUpdate) : nullptr);
    const TimePtr revoked(ASN1_TIME_set(nullptr, spec.thisUpdate - 60));
    Require(OCSP_basic_add1_status(basic, id, static_cast<int>(spec.status), OCSP_REVOKED_STATUS_KEYCOMPROMISE,
                                   revoked.get(), thisUpdate.get(), nextUpdate.get()) != nullptr,
            "OCSP status");
}

void AddExtensions(OCSP_BASICRESP* basic, OCSP_REQUEST* request, const OcspSpec& spec) {
    if (spec.nonce == OcspSpec::Nonce::echo) OCSP_copy_nonce(basic, request);
    if (spec.nonce == OcspSpec::Nonce::other) OCSP_basic_add1_nonce(basic, nullptr, 16);
    if (!spec.criticalExtension) return;
    const Owned<ASN1_OBJECT, ASN1_OBJECT_free> oid(OBJ_txt2obj("1.2.3.4", 1));
    const OctetsPtr value(ASN1_OCTET_STRING_new());
    const unsigned char null[] = {5, 0};
    ASN1_OCTET_STRING_set(value.get(), null, sizeof null);
    const ExtensionPtr extension(X509_EXTENSION_create_by_OBJ(nullptr, oid.get(), 1, value.get()));
    Require(OCSP_BASICRESP_add_ext(basic, extension.get(), -1) == 1, "OCSP extension");
}

}  // namespace

Bytes AnswerOcsp(ByteView requestDer, const Certificate& issuer, const Certificate& signer, const OcspSpec& spec) {
    if (spec.responseStatus != OCSP_RESPONSE_STATUS_SUCCESSFUL) {
        const ResponsePtr refusal(OCSP_response_create(spec.responseStatus, nullptr));
        return EncodeDer<i2d_OCSP_RESPONSE>(refusal.get());
    }
    const RequestPtr request = ReadRequest(requestDer);
    OCSP_CERTID* asked = OCSP_onereq_get0_id(OCSP_request_onereq_get0(request.get(), 0));
    const IdPtr other(spec.about ? OCSP_cert_to_id(EVP_sha1(), spec.about->Native(), issuer.Native()) : nullptr);

    const BasicPtr basic(OCSP_BASICRESP_new());
    AddStatus(basic.get(), other ? other.get() : asked, spec);
    AddExtensions(basic.get(), request.get(), spec);
    unsigned long flags = 0;
    if (spec.byKey) flags |= OCSP_RESPID_KEY;
    if (!spec.withSigner) flags |= OCSP_NOCERTS;
    Require(OCSP_basic_sign(basic.get(), signer.Native(), signer.PrivateKey().get(), EVP_get_digestbyname(spec.hash),
                            nullptr, flags) == 1,
            "OCSP signature");
    if (spec.breakSignature) {
        auto* value = const_cast<ASN1_OCTET_STRING*>(OCSP_resp_get0_signature(basic.get()));
        value->data[value->length - 1] ^= 1;
    }
    const ResponsePtr response(OCSP_response_create(OCSP_RESPONSE_STATUS_SUCCESSFUL, basic.get()));
    Require(response != nullptr, "OCSP response");
    return EncodeDer<i2d_OCSP_RESPONSE>(response.get());
}

Bytes NonceOf(ByteView requestDer) {
    const RequestPtr request = ReadRequest(requestDer);
    const int at = OCSP_REQUEST_get_ext_by_NID(request.get(), NID_id_pkix_OCSP_Nonce, -1);
    if (at < 0) return {};
    const ASN1_OCTET_STRING* value = X509_EXTENSION_get_data(OCSP_REQUEST_get_ext(request.get(), at));
    return {ASN1_STRING_get0_data(value), ASN1_STRING_get0_data(value) + ASN1_STRING_length(value)};
}

}  // namespace tests
