#include "platform/Keys.h"

#include "platform/posix/FolderStore.h"
#include "platform/posix/SoftwareKey.h"

namespace platform {
namespace {
thread_local PinPrompt* currentPrompt = nullptr;
}  // namespace

PinPromptScope::PinPromptScope(PinPrompt& prompt) : previous_(std::exchange(currentPrompt, &prompt)) {}

PinPromptScope::~PinPromptScope() {
    currentPrompt = previous_;
}

namespace posix {

std::optional<Secret> AskThreadForPin(const PinRequest& request) {
    std::optional<Secret> pin;
    if (currentPrompt != nullptr) pin = currentPrompt->AskPin(request);
    if (!pin) SetLastError(SCARD_W_CANCELLED_BY_USER);
    return pin;
}

}  // namespace posix

KeyAlgorithm PrivateKey::Algorithm() const {
    return impl_->Algorithm();
}

bool PrivateKey::IsExportable() const {
    return impl_->IsExportable();
}

std::size_t PrivateKey::SignatureSize() const {
    return impl_->SignatureSize();
}

bool CertHasPrivateKey(const CertificateContext& certificate) {
    return posix::AttachedKeyOf(certificate) != nullptr;
}

std::optional<AcquiredKey> CryptAcquireCertificatePrivateKey(const CertificateContext& certificate,
                                                             std::uint32_t flags) {
    const auto attached = posix::AttachedKeyOf(certificate);
    if (!attached) {
        SetLastError(certificate ? CRYPT_E_NO_KEY_PROPERTY : ERROR_INVALID_PARAMETER);
        return std::nullopt;
    }
    // The certificate may live in a cache: what Unlock brings to light belongs to this handle alone.
    auto handle = attached->NewHandle();
    if (!handle->Unlock()) return std::nullopt;
    if ((flags & CRYPT_ACQUIRE_COMPARE_KEY_FLAG) != 0 && !posix::IsKeyOf(certificate, handle->PublicKeyInfo())) {
        posix::LogHost("The private key found for a certificate belongs to another public key.");
        SetLastError(NTE_BAD_KEY_STATE);
        return std::nullopt;
    }
    return AcquiredKey{.key = PrivateKey(std::move(handle))};
}

Bytes NCryptSignHash(const PrivateKey& key, HashAlgorithm algorithm, ByteView digest) {
    if (!key || digest.size() != DigestSize(algorithm)) {
        SetLastError(key ? ERROR_INVALID_PARAMETER : ERROR_INVALID_HANDLE);
        return {};
    }
    return key.Backend()->Sign(algorithm, digest);
}

bool ImportPrivateKey(const CertificateContext& certificate, const Secret& pkcs8, const Secret& passphrase) {
    if (!certificate) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return false;
    }
    posix::EvpKeyPtr key = posix::ReadPkcs8(pkcs8.View());
    if (!key) return false;
    const posix::EvpKeyContextPtr context(EVP_PKEY_CTX_new(key.get(), nullptr));
    const bool paired = context && EVP_PKEY_pairwise_check(context.get()) == 1;
    posix::DrainErrorQueue();
    const auto decoded = posix::MakeSoftwareKey(std::move(key));
    if (!decoded) return false;
    // A private half that does not fit its public half would show only in signatures that nobody can verify.
    if (!paired || !posix::IsKeyOf(certificate, decoded->publicKeyInfo)) {
        SetLastError(NTE_BAD_KEY_STATE);
        return false;
    }
    const auto folder = posix::StoreFolder(StoreLocation::currentUser, u"MY");
    if (folder.empty()) return false;
    const posix::FolderStore store(folder, posix::FolderStore::Keys::besideCertificates, true);
    return store.MakeFolder() && posix::WriteKeyFile(posix::KeyFileIn(folder, certificate), pkcs8, passphrase);
}

Secret ExportPrivateKey(const CertificateContext& certificate) {
    const auto key = posix::AttachedKeyOf(certificate);
    if (key && key->IsExportable()) return key->ExportPkcs8();
    SetLastError(CRYPT_E_NO_KEY_PROPERTY);
    return {};
}

}  // namespace platform
