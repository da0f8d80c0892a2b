#pragma once
// Owners for the crypto library's objects, and the one place that looks at its error queue.

#include <openssl/bio.h>
#include <openssl/bn.h>
#include <openssl/ec.h>
#include <openssl/evp.h>
#include <openssl/pkcs12.h>
#include <openssl/pkcs7.h>
#include <openssl/x509.h>
#include <openssl/x509v3.h>

#include <memory>
#include <string>

#include "platform/Types.h"

namespace platform::posix {

// The free function is the deleter's type: no manual free anywhere.
template <auto Free>
struct FreeWith {
    template <typename T>
    void operator()(T* object) const noexcept {
        Free(object);
    }
};
template <typename T, auto Free>
using Owned = std::unique_ptr<T, FreeWith<Free>>;

using BioPtr = Owned<BIO, BIO_free_all>;
using EvpKeyPtr = Owned<EVP_PKEY, EVP_PKEY_free>;
using EvpKeyContextPtr = Owned<EVP_PKEY_CTX, EVP_PKEY_CTX_free>;
using X509Ptr = Owned<X509, X509_free>;
using X509NamePtr = Owned<X509_NAME, X509_NAME_free>;
using X509CrlPtr = Owned<X509_CRL, X509_CRL_free>;
using Pkcs12Ptr = Owned<PKCS12, PKCS12_free>;
using Pkcs7Ptr = Owned<PKCS7, PKCS7_free>;

// Empties the calling thread's error queue and answers the text of its newest entry ("" if there was none).
std::string DrainErrorQueue();

// DER of an object by its i2d function.
template <auto Encode, typename T>
Bytes EncodeDer(const T* object) {
    unsigned char* out = nullptr;
    const int size = Encode(object, &out);
    if (size <= 0) return {};
    Bytes bytes(out, out + size);
    OPENSSL_free(out);
    return bytes;
}

}  // namespace platform::posix
