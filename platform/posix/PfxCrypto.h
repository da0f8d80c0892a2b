#pragma once
// The cryptography of PFX files (RFC 7292, RFC 8018, RFC 9579): password forms, MAC, decryption, in a library context
// of its own so that the provider of the old algorithms is loaded for nothing else.

#include <openssl/provider.h>

#include <optional>
#include <vector>

#include "platform/Error.h"
#include "platform/Secret.h"
#include "platform/posix/OpenSsl.h"

namespace platform::posix {

// The ways in which makers turned one password into bytes. Each list begins with the one that the RFCs have; a form
// that fitted once is tried first from then on.
class PfxPassword {
  public:
    explicit PfxPassword(const Secret& password);
    // UTF-8 of the text that the key derivation of PKCS#12 turns into UTF-16; no value: a null password, no octets.
    std::vector<std::optional<Secret>> forDerivation;
    // The octets that PBKDF2 and the other derivations of PKCS#5 take.
    std::vector<Secret> forPkcs5;
};

struct PfxMac {
    ByteView algorithm;  // AlgorithmIdentifier in DER
    Bytes digest, salt;
    std::uint64_t iterations = 1;
};

class PfxCrypto {
  public:
    PfxCrypto();

    // ERROR_SUCCESS; ERROR_INVALID_PASSWORD if no form of the password gives the MAC; NTE_BAD_ALGID for an algorithm
    // that is not here or a work factor that nobody chooses in good faith; CRYPT_E_BAD_ENCODE for bad parameters.
    ErrorCode VerifyMac(const PfxMac& mac, ByteView content, PfxPassword& password);
    // Decrypts what must come out as one SEQUENCE. Empty with CRYPT_E_BAD_ENCODE if no form of the password leads
    // there, NTE_BAD_ALGID as above.
    std::optional<Secret> Decrypt(ByteView algorithm, ByteView cipherText, PfxPassword& password);
    // Whether a decryption failed for the password or the data, not for the algorithm.
    [[nodiscard]] bool FailedToDecrypt() const { return failedToDecrypt_; }

  private:
    // Whether the library has cipher and digest of that number, with the old provider if need be.
    bool HasCipher(int nid);
    bool HasDigest(int nid);
    ErrorCode VerifyClassicMac(const PfxMac& mac, int digest, ByteView content, PfxPassword& password);
    ErrorCode VerifyPbmac1(const PfxMac& mac, ByteView parameters, ByteView content, PfxPassword& password);
    ErrorCode CheckScheme(const std::string& scheme, ByteView parameters);
    ErrorCode CheckPbes2(ByteView parameters);
    std::optional<Secret> DecryptWith(const X509_ALGOR& algorithm, const Secret* password, ByteView cipherText);

    Owned<OSSL_LIB_CTX, OSSL_LIB_CTX_free> library_;
    Owned<OSSL_PROVIDER, OSSL_PROVIDER_unload> current_, old_;
    bool oldAsked_ = false;
    bool failedToDecrypt_ = false;
};

}  // namespace platform::posix
