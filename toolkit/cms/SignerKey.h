#pragma once
// The private key of a signer's certificate, and what is told when it can't be used.

#include <optional>

#include "platform/Certificates.h"
#include "platform/Hash.h"
#include "platform/Keys.h"
#include "toolkit/ClsBase.h"

namespace toolkit::cms {

class SignerKey {
  public:
    // Empty, with the reason in the log, if the certificate has no private key or it can't be opened. A key that is
    // locked by a passphrase asks for it here.
    static std::optional<SignerKey> Open(const platform::CertificateContext& certificate, OperationLog& log);

    [[nodiscard]] platform::KeyAlgorithm Algorithm() const { return key_.Algorithm(); }
    // The longest signature in bytes.
    [[nodiscard]] std::size_t SignatureSize() const { return key_.SignatureSize(); }
    // The signature over a digest: PKCS#1 v1.5 for RSA. Empty on failure. A token asks for its PIN here.
    [[nodiscard]] platform::Bytes Sign(platform::HashAlgorithm hash, platform::ByteView digest,
                                       OperationLog& log) const;

  private:
    explicit SignerKey(platform::PrivateKey key) : key_(std::move(key)) {}
    platform::PrivateKey key_;
};

}  // namespace toolkit::cms
