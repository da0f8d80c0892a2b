#include <openssl/objects.h>
#include <openssl/pem.h>

#include "platform/Certificates.h"
#include "platform/posix/OpenSsl.h"

namespace platform {
namespace {

using posix::BioPtr;
using ObjectPtr = posix::Owned<ASN1_OBJECT, ASN1_OBJECT_free>;

}  // namespace

std::string OidName(std::string_view oid) {
    const ObjectPtr object(OBJ_txt2obj(std::string(oid).c_str(), 1));
    const int nid = object ? OBJ_obj2nid(object.get()) : NID_undef;
    posix::DrainErrorQueue();
    return nid == NID_undef ? std::string(oid) : OBJ_nid2ln(nid);
}

std::string PemOfCertificate(ByteView der) {
    const BioPtr bio(BIO_new(BIO_s_mem()));
    if (!bio || PEM_write_bio(bio.get(), "CERTIFICATE", "", der.data(), static_cast<long>(der.size())) <= 0) return {};
    char* text = nullptr;
    const auto size = BIO_get_mem_data(bio.get(), &text);
    return {text, static_cast<std::size_t>(size)};
}

}  // namespace platform
