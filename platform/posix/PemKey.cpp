// Private keys in PEM: PKCS#8, plain or encrypted, and the older forms named for their algorithm.

#include <openssl/err.h>
#include <openssl/pem.h>
#include <openssl/pkcs12.h>

#include <algorithm>

#include "platform/posix/EncodedKeys.h"
#include "platform/posix/SoftwareKey.h"

namespace platform::posix {
namespace {

using Pkcs8InfoPtr = Owned<PKCS8_PRIV_KEY_INFO, PKCS8_PRIV_KEY_INFO_free>;
using SignatureBlockPtr = Owned<X509_SIG, X509_SIG_free>;

// One block of a PEM text; its content is wiped.
struct PemBlock {
    PemBlock() = default;
    PemBlock(const PemBlock&) = delete;
    PemBlock& operator=(const PemBlock&) = delete;
    ~PemBlock() {
        OPENSSL_free(name);
        OPENSSL_free(header);
        OPENSSL_clear_free(data, size > 0 ? static_cast<std::size_t>(size) : 0);
    }
    [[nodiscard]] bool Is(std::string_view wanted) const { return name != nullptr && wanted == name; }
    [[nodiscard]] bool HasKey() const { return std::string_view(name).ends_with("PRIVATE KEY"); }
    [[nodiscard]] ByteView View() const { return {data, static_cast<std::size_t>(size)}; }

    char* name = nullptr;
    char* header = nullptr;
    unsigned char* data = nullptr;
    long size = 0;
};

bool NextKeyBlock(BIO* text, std::unique_ptr<PemBlock>& block) {
    do {
        block = std::make_unique<PemBlock>();
        if (PEM_read_bio(text, &block->name, &block->header, &block->data, &block->size) != 1) return false;
    } while (!block->HasKey());
    return true;
}

// Why a decryption failed: the newest entries tell "wrong passphrase" from "nobody here can do this algorithm".
ErrorCode DecryptionError() {
    ErrorCode code = ERROR_INVALID_PASSWORD;
    while (const unsigned long error = ERR_get_error()) {
        const int reason = ERR_GET_REASON(error);
        if (reason == ERR_R_UNSUPPORTED ||
            (ERR_GET_LIB(error) == ERR_LIB_EVP &&
             (reason == EVP_R_UNSUPPORTED_ALGORITHM || reason == EVP_R_UNSUPPORTED_CIPHER ||
              reason == EVP_R_UNKNOWN_PBE_ALGORITHM || reason == EVP_R_UNSUPPORTED_PRF ||
              reason == EVP_R_UNSUPPORTED_KEY_DERIVATION_FUNCTION)))
            code = NTE_BAD_ALGID;
    }
    return code;
}

EvpKeyPtr RsaKeyFrom(const PKCS8_PRIV_KEY_INFO* info) {
    const ASN1_OBJECT* algorithm = nullptr;
    const unsigned char* key = nullptr;
    int size = 0;
    if (PKCS8_pkey_get0(&algorithm, &key, &size, nullptr, info) != 1 || size < 0) return nullptr;
    return OBJ_obj2nid(algorithm) == NID_rsaEncryption ? DecodeRsaPrivateKey({key, static_cast<std::size_t>(size)})
                                                       : nullptr;
}

EvpKeyPtr FromPkcs8Info(const PKCS8_PRIV_KEY_INFO* info) {
    EvpKeyPtr key = RsaKeyFrom(info);
    if (!key) key.reset(EVP_PKCS82PKEY(info));
    if (!key) SetLastError(CRYPT_E_BAD_ENCODE);
    DrainErrorQueue();
    return key;
}

EvpKeyPtr DecryptPkcs8(ByteView der, const Secret& passphrase) {
    const unsigned char* position = der.data();
    const SignatureBlockPtr block(d2i_X509_SIG(nullptr, &position, static_cast<long>(der.size())));
    if (!block) {
        DrainErrorQueue();
        SetLastError(CRYPT_E_BAD_ENCODE);
        return nullptr;
    }
    const std::string_view text = passphrase.Text();
    const Pkcs8InfoPtr info(PKCS8_decrypt(block.get(), text.data(), static_cast<int>(text.size())));
    if (!info) {
        SetLastError(DecryptionError());
        return nullptr;
    }
    return FromPkcs8Info(info.get());
}

int GivePassphrase(char* buffer, int size, int /*forWriting*/, void* secret) {
    const std::string_view text = static_cast<const Secret*>(secret)->Text();
    if (size < 0 || text.size() > static_cast<std::size_t>(size)) return -1;
    std::ranges::copy(text, buffer);
    return static_cast<int>(text.size());
}

EvpKeyPtr DecodeTraditional(ByteView der) {
    const unsigned char* position = der.data();
    EvpKeyPtr key(d2i_AutoPrivateKey(nullptr, &position, static_cast<long>(der.size())));
    if (!key) SetLastError(CRYPT_E_BAD_ENCODE);
    DrainErrorQueue();
    return key;
}

EvpKeyPtr DecryptTraditional(PemBlock& block, EVP_CIPHER_INFO& cipher, const Secret& passphrase) {
    Secret copy = passphrase.Copy();
    if (PEM_do_header(&cipher, block.data, &block.size, GivePassphrase, &copy) != 1) {
        SetLastError(DecryptionError());
        return nullptr;
    }
    EvpKeyPtr key = DecodeTraditional(block.View());
    // This form has no check of its own: a wrong passphrase may leave bytes that only fail to decode.
    if (!key) SetLastError(ERROR_INVALID_PASSWORD);
    return key;
}

}  // namespace

EvpKeyPtr ReadPkcs8(ByteView der) {
    const unsigned char* position = der.data();
    const Pkcs8InfoPtr info(d2i_PKCS8_PRIV_KEY_INFO(nullptr, &position, static_cast<long>(der.size())));
    if (!info || position != der.data() + der.size()) {
        DrainErrorQueue();
        SetLastError(CRYPT_E_BAD_ENCODE);
        return nullptr;
    }
    return FromPkcs8Info(info.get());
}

PemKey ReadPemKey(const Secret& pem, const std::u16string& subject) {
    const BioPtr text(BIO_new_mem_buf(pem.View().data(), static_cast<int>(pem.View().size())));
    std::unique_ptr<PemBlock> block;
    EVP_CIPHER_INFO cipher{};
    if (!text || !NextKeyBlock(text.get(), block) || PEM_get_EVP_CIPHER_INFO(block->header, &cipher) != 1) {
        DrainErrorQueue();
        SetLastError(CRYPT_E_BAD_ENCODE);
        return {};
    }
    const bool pkcs8 = block->Is("ENCRYPTED PRIVATE KEY");
    if (!pkcs8 && cipher.cipher == nullptr)
        return {block->Is("PRIVATE KEY") ? ReadPkcs8(block->View()) : DecodeTraditional(block->View()), false};

    const auto passphrase = AskThreadForPin({.kind = PinRequest::Kind::keyPassphrase, .subject = subject});
    if (!passphrase) return {nullptr, true};
    return {pkcs8 ? DecryptPkcs8(block->View(), *passphrase) : DecryptTraditional(*block, cipher, *passphrase), true};
}

}  // namespace platform::posix
