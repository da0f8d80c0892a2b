#include "platform/posix/PfxCrypto.h"

#include <openssl/core_names.h>
#include <openssl/crypto.h>
#include <openssl/hmac.h>

#include <algorithm>

#include "platform/Text.h"
#include "platform/posix/Ber.h"
#include "platform/posix/Native.h"

namespace platform::posix {
namespace {

constexpr std::string_view kPkcs12Schemes = "1.2.840.113549.1.12.1.", kPbes2 = "1.2.840.113549.1.5.13",
                           kPbkdf2 = "1.2.840.113549.1.5.12", kScrypt = "1.3.6.1.4.1.11591.4.11",
                           kPbmac1 = "1.2.840.113549.1.5.14";
// Some seconds of work; makers use 1 to 600,000.
constexpr std::uint64_t kMostIterations = 10'000'000;
constexpr std::uint64_t kMostScryptMemory = std::uint64_t{32} << 20;
constexpr std::size_t kLargestDigest = 64;
constexpr std::size_t kLongestMacKey = 1024;  // makers use up to 256 octets

int NidOf(const std::string& oid) {
    const int nid = OBJ_txt2nid(oid.c_str());
    DrainErrorQueue();
    return nid;
}

// AlgorithmIdentifier: the OID, and the parameters with tag and length.
struct Algorithm {
    std::string oid;
    ByteView parameters;
};
std::optional<Algorithm> ReadAlgorithm(BerReader& reader) {
    const auto sequence = reader.Next(kBerSequence);
    if (!sequence) return std::nullopt;
    BerReader inside(sequence->content);
    auto oid = ReadOid(inside);
    if (!oid) return std::nullopt;
    return Algorithm{std::move(*oid), inside.Rest()};
}

// PBKDF2-params (RFC 8018, A.2) and the like: only what is used or checked here.
struct DerivationParameters {
    ErrorCode error = CRYPT_E_BAD_ENCODE;
    Bytes salt;
    std::uint64_t iterations = 0;
    std::uint64_t keyLength = 0;  // 0: not given
    int prf = NID_hmacWithSHA1;
};

ErrorCode JudgeWork(const Bytes& salt, std::uint64_t iterations) {
    if (salt.empty() || iterations == 0) return CRYPT_E_BAD_ENCODE;
    return iterations > kMostIterations ? NTE_BAD_ALGID : ERROR_SUCCESS;
}

DerivationParameters ReadPbkdf2(ByteView der) {
    DerivationParameters result;
    const auto sequence = ReadSingleElement(der, kBerSequence);
    if (!sequence) return result;
    BerReader reader(sequence->content);
    const auto salt = reader.Next(kBerOctetString);
    const auto octets = salt ? OctetsOf(*salt) : std::nullopt;
    const auto iterations = octets ? ReadUnsigned(reader) : std::nullopt;
    if (!iterations) return result;
    result.salt = *octets;
    result.iterations = *iterations;
    if (reader.NextIs(kBerInteger)) {
        const auto length = ReadUnsigned(reader);
        if (!length || *length == 0) return result;
        result.keyLength = *length;
    }
    if (!reader.AtEnd()) {
        const auto prf = ReadAlgorithm(reader);
        if (!prf || !reader.AtEnd()) return result;
        result.prf = NidOf(prf->oid);
    }
    result.error = JudgeWork(result.salt, result.iterations);
    return result;
}

// scrypt-params (RFC 7914, 7.1).
ErrorCode CheckScrypt(ByteView der) {
    const auto sequence = ReadSingleElement(der, kBerSequence);
    if (!sequence) return CRYPT_E_BAD_ENCODE;
    BerReader reader(sequence->content);
    if (!reader.Next(kBerOctetString)) return CRYPT_E_BAD_ENCODE;
    const auto cost = ReadUnsigned(reader);
    const auto block = cost ? ReadUnsigned(reader) : std::nullopt;
    const auto parallel = block ? ReadUnsigned(reader) : std::nullopt;
    if (!parallel || *cost == 0 || *block == 0 || *parallel == 0) return CRYPT_E_BAD_ENCODE;
    const bool bounded =
        *cost <= kMostScryptMemory && *block <= 1024 && *parallel <= 64 && *cost * *block * 128 <= kMostScryptMemory;
    return bounded ? ERROR_SUCCESS : NTE_BAD_ALGID;
}

// PBEParameter (RFC 8018, A.3) and pkcs-12PbeParams (RFC 7292, C).
ErrorCode CheckSaltAndIterations(ByteView der) {
    const auto sequence = ReadSingleElement(der, kBerSequence);
    if (!sequence) return CRYPT_E_BAD_ENCODE;
    BerReader reader(sequence->content);
    const auto salt = reader.Next(kBerOctetString);
    const auto octets = salt ? OctetsOf(*salt) : std::nullopt;
    const auto iterations = octets ? ReadUnsigned(reader) : std::nullopt;
    return iterations ? JudgeWork(*octets, *iterations) : CRYPT_E_BAD_ENCODE;
}

// The digest behind an HMAC of PBKDF2 or PBMAC1, 0 if it is none.
int DigestOfPrf(int prf) {
    int digest = NID_undef;
    return EVP_PBE_find(EVP_PBE_TYPE_PRF, prf, nullptr, &digest, nullptr) == 1 ? digest : NID_undef;
}

bool SameDigest(ByteView computed, ByteView given) {
    return computed.size() == given.size() && CRYPTO_memcmp(computed.data(), given.data(), given.size()) == 0;
}

// The octets of a text in a code page as characters of their own.
Secret OctetsAsCharacters(std::string_view octets) {
    Bytes utf8;
    for (const char c : octets) {
        const auto octet = static_cast<std::uint8_t>(c);
        if (octet < 0x80) {
            utf8.push_back(octet);
        } else {
            utf8.push_back(static_cast<std::uint8_t>(0xC0 | octet >> 6));
            utf8.push_back(static_cast<std::uint8_t>(0x80 | (octet & 0x3F)));
        }
    }
    return Secret(std::move(utf8));
}

// UTF-16 with terminator, as the key derivation of PKCS#12 has it; one maker fed that to PBKDF2 as well.
Secret AsBmpString(std::u16string_view text) {
    Bytes bytes;
    bytes.reserve(text.size() * 2 + 2);
    for (const char16_t c : text) {
        bytes.push_back(static_cast<std::uint8_t>(c >> 8));
        bytes.push_back(static_cast<std::uint8_t>(c));
    }
    bytes.insert(bytes.end(), {0, 0});
    return Secret(std::move(bytes));
}

template <typename List>
void MoveToFront(List& list, std::size_t index) {
    std::rotate(list.begin(), list.begin() + static_cast<std::ptrdiff_t>(index),
                list.begin() + static_cast<std::ptrdiff_t>(index) + 1);
}

class WipedText {
  public:
    explicit WipedText(std::u16string text) : text_(std::move(text)) {}
    WipedText(const WipedText&) = delete;
    WipedText& operator=(const WipedText&) = delete;
    ~WipedText() { Wipe(text_.data(), text_.size() * sizeof(char16_t)); }
    [[nodiscard]] std::u16string_view View() const { return text_; }

  private:
    std::u16string text_;
};

}  // namespace

PfxPassword::PfxPassword(const Secret& password) {
    forDerivation.emplace_back(password.Copy());
    forPkcs5.push_back(password.Copy());
    if (password.Empty()) {
        forDerivation.emplace_back(std::nullopt);
        return;
    }
    const WipedText text(ToWide(password.Text()));
    const bool ascii = std::ranges::all_of(text.View(), [](char16_t c) { return c < 0x80; });
    if (!ascii) {
        // Programs that knew no UTF-8 took each octet of the user's locale for a character.
        forDerivation.emplace_back(OctetsAsCharacters(password.Text()));
        std::string local = WideCharToMultiByte(CP_1251, text.View());
        if (local.find('?') == std::string::npos) {
            forDerivation.emplace_back(OctetsAsCharacters(local));
            forPkcs5.emplace_back(std::string_view(local));
        }
        Wipe(local.data(), local.size());
    }
    forPkcs5.push_back(AsBmpString(text.View()));
}

PfxCrypto::PfxCrypto()
    : library_(OSSL_LIB_CTX_new()), current_(library_ ? OSSL_PROVIDER_load(library_.get(), "default") : nullptr) {}

bool PfxCrypto::HasCipher(int nid) {
    using CipherPtr = Owned<EVP_CIPHER, EVP_CIPHER_free>;
    if (nid == NID_undef) return false;
    if (CipherPtr(EVP_CIPHER_fetch(library_.get(), OBJ_nid2sn(nid), nullptr))) return true;
    if (!oldAsked_) {
        oldAsked_ = true;
        old_.reset(OSSL_PROVIDER_load(library_.get(), "legacy"));
        if (!old_) LogHost("The provider of old algorithms cannot be loaded: " + DrainErrorQueue());
    }
    const CipherPtr cipher(old_ ? EVP_CIPHER_fetch(library_.get(), OBJ_nid2sn(nid), nullptr) : nullptr);
    DrainErrorQueue();
    return cipher != nullptr;
}

bool PfxCrypto::HasDigest(int nid) {
    if (nid == NID_undef) return false;
    const Owned<EVP_MD, EVP_MD_free> digest(EVP_MD_fetch(library_.get(), OBJ_nid2sn(nid), nullptr));
    DrainErrorQueue();
    return digest && static_cast<std::size_t>(EVP_MD_get_size(digest.get())) <= kLargestDigest;
}

ErrorCode PfxCrypto::VerifyMac(const PfxMac& mac, ByteView content, PfxPassword& password) {
    BerReader reader(mac.algorithm);
    const auto algorithm = ReadAlgorithm(reader);
    if (!algorithm) return CRYPT_E_BAD_ENCODE;
    if (algorithm->oid == kPbmac1) return VerifyPbmac1(mac, algorithm->parameters, content, password);
    const int digest = NidOf(algorithm->oid);
    if (!HasDigest(digest)) return NTE_BAD_ALGID;
    if (mac.salt.empty() || mac.iterations == 0) return CRYPT_E_BAD_ENCODE;
    if (mac.iterations > kMostIterations) return NTE_BAD_ALGID;
    return VerifyClassicMac(mac, digest, content, password);
}

// RFC 7292, 4 and B.4.
ErrorCode PfxCrypto::VerifyClassicMac(const PfxMac& mac, int digest, ByteView content, PfxPassword& password) {
    const Owned<EVP_MD, EVP_MD_free> md(EVP_MD_fetch(library_.get(), OBJ_nid2sn(digest), nullptr));
    const std::size_t size = static_cast<std::size_t>(EVP_MD_get_size(md.get()));
    if (mac.digest.size() != size) return CRYPT_E_BAD_ENCODE;
    Bytes salt = mac.salt;
    for (std::size_t i = 0; i < password.forDerivation.size(); ++i) {
        const auto& form = password.forDerivation[i];
        const std::string_view text = form ? form->Text() : std::string_view();
        unsigned char key[kLargestDigest], computed[kLargestDigest];
        unsigned int length = 0;
        const bool done =
            PKCS12_key_gen_utf8_ex(form ? (text.empty() ? "" : text.data()) : nullptr, static_cast<int>(text.size()),
                                   salt.data(), static_cast<int>(salt.size()), PKCS12_MAC_ID,
                                   static_cast<int>(mac.iterations), static_cast<int>(size), key, md.get(),
                                   library_.get(), nullptr) == 1 &&
            HMAC(md.get(), key, static_cast<int>(size), content.data(), content.size(), computed, &length) != nullptr;
        Wipe(key, sizeof key);
        DrainErrorQueue();
        if (!done || !SameDigest({computed, length}, mac.digest)) continue;
        MoveToFront(password.forDerivation, i);
        return ERROR_SUCCESS;
    }
    return ERROR_INVALID_PASSWORD;
}

// RFC 9579: the key length must be told; salt and iterations of the MacData play no part.
ErrorCode PfxCrypto::VerifyPbmac1(const PfxMac& mac, ByteView parameters, ByteView content, PfxPassword& password) {
    const auto sequence = ReadSingleElement(parameters, kBerSequence);
    if (!sequence) return CRYPT_E_BAD_ENCODE;
    BerReader reader(sequence->content);
    const auto derivation = ReadAlgorithm(reader);
    const auto scheme = derivation ? ReadAlgorithm(reader) : std::nullopt;
    if (!scheme || !reader.AtEnd()) return CRYPT_E_BAD_ENCODE;
    const int hash = DigestOfPrf(NidOf(scheme->oid));
    if (derivation->oid != kPbkdf2 || !HasDigest(hash)) return NTE_BAD_ALGID;
    const auto work = ReadPbkdf2(derivation->parameters);
    if (work.error != ERROR_SUCCESS) return work.error;
    if (work.keyLength == 0 || work.keyLength > kLongestMacKey) return CRYPT_E_BAD_ENCODE;
    const int prf = DigestOfPrf(work.prf);
    if (!HasDigest(prf)) return NTE_BAD_ALGID;
    const Owned<EVP_MD, EVP_MD_free> prfDigest(EVP_MD_fetch(library_.get(), OBJ_nid2sn(prf), nullptr));
    const Owned<EVP_MD, EVP_MD_free> macDigest(EVP_MD_fetch(library_.get(), OBJ_nid2sn(hash), nullptr));
    if (mac.digest.size() != static_cast<std::size_t>(EVP_MD_get_size(macDigest.get()))) return CRYPT_E_BAD_ENCODE;
    for (std::size_t i = 0; i < password.forPkcs5.size(); ++i) {
        const std::string_view octets = password.forPkcs5[i].Text();
        unsigned char key[kLongestMacKey], computed[kLargestDigest];
        unsigned int length = 0;
        const int keyLength = static_cast<int>(work.keyLength);
        const bool done =
            PKCS5_PBKDF2_HMAC(octets.empty() ? "" : octets.data(), static_cast<int>(octets.size()), work.salt.data(),
                              static_cast<int>(work.salt.size()), static_cast<int>(work.iterations), prfDigest.get(),
                              keyLength, key) == 1 &&
            HMAC(macDigest.get(), key, keyLength, content.data(), content.size(), computed, &length) != nullptr;
        Wipe(key, sizeof key);
        DrainErrorQueue();
        if (!done || !SameDigest({computed, length}, mac.digest)) continue;
        MoveToFront(password.forPkcs5, i);
        return ERROR_SUCCESS;
    }
    return ERROR_INVALID_PASSWORD;
}

ErrorCode PfxCrypto::CheckPbes2(ByteView parameters) {
    const auto sequence = ReadSingleElement(parameters, kBerSequence);
    if (!sequence) return CRYPT_E_BAD_ENCODE;
    BerReader reader(sequence->content);
    const auto derivation = ReadAlgorithm(reader);
    const auto cipher = derivation ? ReadAlgorithm(reader) : std::nullopt;
    if (!cipher) return CRYPT_E_BAD_ENCODE;
    if (!HasCipher(NidOf(cipher->oid))) return NTE_BAD_ALGID;
    if (derivation->oid == kScrypt) return CheckScrypt(derivation->parameters);
    if (derivation->oid != kPbkdf2) return NTE_BAD_ALGID;
    const auto work = ReadPbkdf2(derivation->parameters);
    if (work.error != ERROR_SUCCESS) return work.error;
    return HasDigest(DigestOfPrf(work.prf)) ? ERROR_SUCCESS : NTE_BAD_ALGID;
}

ErrorCode PfxCrypto::CheckScheme(const std::string& scheme, ByteView parameters) {
    if (scheme == kPbes2) return CheckPbes2(parameters);
    int cipher = NID_undef, digest = NID_undef;
    if (EVP_PBE_find(EVP_PBE_TYPE_OUTER, NidOf(scheme), &cipher, &digest, nullptr) != 1) return NTE_BAD_ALGID;
    if (!HasCipher(cipher) || !HasDigest(digest)) return NTE_BAD_ALGID;
    return CheckSaltAndIterations(parameters);
}

// The padding is not looked at: some makers got it wrong, and what comes out must be a SEQUENCE that ends where padding
// may begin, which a wrong key does not give.
std::optional<Secret> PfxCrypto::DecryptWith(const X509_ALGOR& algorithm, const Secret* password, ByteView cipherText) {
    constexpr std::size_t kLongestPadding = 16;
    const std::string_view text = password != nullptr ? password->Text() : std::string_view();
    const char* octets = password == nullptr ? nullptr : (text.empty() ? "" : text.data());
    const Owned<EVP_CIPHER_CTX, EVP_CIPHER_CTX_free> context(EVP_CIPHER_CTX_new());
    Bytes buffer(cipherText.size() + EVP_MAX_BLOCK_LENGTH);
    int size = 0, tail = 0;
    const bool done = EVP_PBE_CipherInit_ex(algorithm.algorithm, octets, static_cast<int>(text.size()),
                                            algorithm.parameter, context.get(), 0, library_.get(), nullptr) == 1 &&
                      EVP_CIPHER_CTX_set_padding(context.get(), 0) == 1 &&
                      EVP_CipherUpdate(context.get(), buffer.data(), &size, cipherText.data(),
                                       static_cast<int>(cipherText.size())) == 1 &&
                      EVP_CipherFinal_ex(context.get(), buffer.data() + size, &tail) == 1;
    DrainErrorQueue();
    const Secret plain(std::move(buffer));
    if (!done) return std::nullopt;
    const ByteView bytes = plain.View().first(static_cast<std::size_t>(size) + static_cast<std::size_t>(tail));
    const auto element = BerReader(bytes).Next(kBerSequence);
    if (!element || bytes.size() - element->whole.size() > kLongestPadding) return std::nullopt;
    return Secret(CopyOf(element->whole));
}

std::optional<Secret> PfxCrypto::Decrypt(ByteView algorithm, ByteView cipherText, PfxPassword& password) {
    BerReader reader(algorithm);
    const auto scheme = ReadAlgorithm(reader);
    const ErrorCode error = scheme ? CheckScheme(scheme->oid, scheme->parameters) : CRYPT_E_BAD_ENCODE;
    const unsigned char* in = algorithm.data();
    const Owned<X509_ALGOR, X509_ALGOR_free> native(
        error == ERROR_SUCCESS ? d2i_X509_ALGOR(nullptr, &in, static_cast<long>(algorithm.size())) : nullptr);
    SetLastError(error == ERROR_SUCCESS ? CRYPT_E_BAD_ENCODE : error);
    DrainErrorQueue();
    if (!native || cipherText.empty() || cipherText.size() > INT_MAX) return std::nullopt;
    if (scheme->oid.starts_with(kPkcs12Schemes)) {
        for (std::size_t i = 0; i < password.forDerivation.size(); ++i) {
            const auto& form = password.forDerivation[i];
            auto plain = DecryptWith(*native, form ? &*form : nullptr, cipherText);
            if (!plain) continue;
            MoveToFront(password.forDerivation, i);
            return plain;
        }
    } else {
        for (std::size_t i = 0; i < password.forPkcs5.size(); ++i) {
            auto plain = DecryptWith(*native, &password.forPkcs5[i], cipherText);
            if (!plain) continue;
            MoveToFront(password.forPkcs5, i);
            return plain;
        }
    }
    failedToDecrypt_ = true;
    SetLastError(CRYPT_E_BAD_ENCODE);
    return std::nullopt;
}

}  // namespace platform::posix
