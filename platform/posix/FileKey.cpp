// Software keys in files beside their certificates.

#include <openssl/pem.h>

#include <cerrno>
#include <list>

#include "platform/Files.h"
#include "platform/System.h"
#include "platform/posix/FileState.h"
#include "platform/posix/SoftwareKey.h"

namespace platform::posix {
namespace {

constexpr std::uint64_t kLongestKeyFile = 1U << 20;

// Decoded keys of unencrypted files: reading and decoding one again for each of many small signatures would cost a good
// part of the signature itself, and a key that lies open on the disk is not exposed further by staying in memory.
class PlainKeyCache {
  public:
    SoftwareKeyPtr Find(const std::filesystem::path& file, const FileState& state) {
        const std::lock_guard lock(mutex_);
        for (const auto& entry : entries_)
            if (entry.file == file && entry.state == state) return entry.key;
        return nullptr;
    }

    void Keep(const std::filesystem::path& file, const FileState& state, const SoftwareKeyPtr& key) {
        const std::lock_guard lock(mutex_);
        entries_.remove_if([&](const Entry& entry) { return entry.file == file; });
        entries_.push_front({file, state, key});
        if (entries_.size() > kMost) entries_.pop_back();
    }

    void Forget(const std::filesystem::path& file) {
        const std::lock_guard lock(mutex_);
        entries_.remove_if([&](const Entry& entry) { return entry.file == file; });
    }

  private:
    static constexpr std::size_t kMost = 8;
    struct Entry {
        std::filesystem::path file;
        FileState state;
        SoftwareKeyPtr key;
    };
    std::mutex mutex_;
    std::list<Entry> entries_;
};

PlainKeyCache& Cache() {
    static PlainKeyCache cache;
    return cache;
}

SoftwareKeyPtr ReadKeyFile(const std::filesystem::path& file, const std::u16string& subject) {
    const std::int64_t moment = WallClock();
    const auto state = FileState::Of(file);
    if (!state) {
        const ErrorCode reason = ErrorFromErrno(errno);
        Cache().Forget(file);
        LogHost("The key file " + file.string() + " is gone or out of reach.");
        SetLastError(reason == ERROR_ACCESS_DENIED ? ERROR_ACCESS_DENIED : NTE_BAD_KEY_STATE);
        return nullptr;
    }
    if (auto cached = Cache().Find(file, *state)) return cached;
    if ((state->mode & (S_IRWXG | S_IRWXO)) != 0) LogHost("The key file " + file.string() + " is open to others.");

    auto content = ReadWholeFile(file, kLongestKeyFile);
    if (!content) return nullptr;
    const Secret pem(std::move(*content));
    auto [key, encrypted] = ReadPemKey(pem, subject);
    if (!key) {
        if (GetLastError() == CRYPT_E_BAD_ENCODE)
            LogHost("The key file " + file.string() + " cannot be read as a key.");
        return nullptr;
    }
    auto decoded = MakeSoftwareKey(std::move(key));
    if (decoded && !encrypted && state->SettledAt(moment) && FileState::Of(file) == state)
        Cache().Keep(file, *state, decoded);
    return decoded;
}

class FileKey final : public PrivateKey::Impl {
  public:
    FileKey(std::filesystem::path file, std::u16string subject)
        : file_(std::move(file)), subject_(std::move(subject)) {}

    std::shared_ptr<Impl> NewHandle() const override { return std::make_shared<FileKey>(file_, subject_); }
    KeyAlgorithm Algorithm() const override { return key_ ? key_->Algorithm() : KeyAlgorithm::rsa; }
    bool IsExportable() const override { return true; }
    std::size_t SignatureSize() const override { return key_ ? key_->SignatureSize() : 0; }
    bool Unlock() override {
        if (!key_) key_ = MakeMemoryKey(ReadKeyFile(file_, subject_));
        return key_ != nullptr;
    }
    Bytes PublicKeyInfo() override { return key_ ? key_->PublicKeyInfo() : Bytes(); }
    Bytes Sign(HashAlgorithm algorithm, ByteView digest) override {
        return Unlock() ? key_->Sign(algorithm, digest) : Bytes();
    }
    Secret ExportPkcs8() override { return Unlock() ? key_->ExportPkcs8() : Secret(); }

  private:
    std::filesystem::path file_;
    std::u16string subject_;
    std::shared_ptr<Impl> key_;  // null until unlocked
};

class NobodyToAsk final : public PinPrompt {
  public:
    std::optional<Secret> AskPin(const PinRequest& /*request*/) override { return std::nullopt; }
};

// PBES2 (RFC 8018) with AES-256 and PBKDF2 over HMAC-SHA-256: every program that reads encrypted PKCS#8 reads it.
constexpr int kIterations = 600'000;

std::optional<Secret> EncodePem(EVP_PKEY* key, const Secret& passphrase) {
    const BioPtr text(BIO_new(BIO_s_secmem()));
    const Owned<PKCS8_PRIV_KEY_INFO, PKCS8_PRIV_KEY_INFO_free> info(EVP_PKEY2PKCS8(key));
    if (!text || !info) return std::nullopt;
    bool written = false;
    if (passphrase.Empty()) {
        written = PEM_write_bio_PKCS8_PRIV_KEY_INFO(text.get(), info.get()) == 1;
    } else {
        const std::string_view words = passphrase.Text();
        Owned<X509_ALGOR, X509_ALGOR_free> scheme(
            PKCS5_pbe2_set_iv(EVP_aes_256_cbc(), kIterations, nullptr, 16, nullptr, NID_hmacWithSHA256));
        const Owned<X509_SIG, X509_SIG_free> block(
            scheme ? PKCS8_set0_pbe(words.data(), static_cast<int>(words.size()), info.get(), scheme.get()) : nullptr);
        if (block) static_cast<void>(scheme.release());  // now the block's
        written = block && PEM_write_bio_PKCS8(text.get(), block.get()) == 1;
    }
    char* data = nullptr;
    const long size = BIO_get_mem_data(text.get(), &data);
    if (!written || size <= 0) return std::nullopt;
    return Secret(std::string_view(data, static_cast<std::size_t>(size)));
}

}  // namespace

std::shared_ptr<PrivateKey::Impl> MakeFileKey(std::filesystem::path file, std::u16string subject) {
    return std::make_shared<FileKey>(std::move(file), std::move(subject));
}

KeyFileState LookAtKeyFile(const std::filesystem::path& file, const CertificateContext& certificate) {
    if (!FileState::Of(file)) return KeyFileState::none;
    auto content = ReadWholeFile(file, kLongestKeyFile);
    if (!content) return KeyFileState::good;
    NobodyToAsk nobody;
    const PinPromptScope scope(nobody);
    auto [key, encrypted] = ReadPemKey(Secret(std::move(*content)), {});
    if (encrypted) return KeyFileState::good;
    if (!key) return KeyFileState::none;
    const auto decoded = MakeSoftwareKey(std::move(key));
    return decoded && IsKeyOf(certificate, decoded->publicKeyInfo) ? KeyFileState::good : KeyFileState::foreign;
}

bool WriteKeyFile(const std::filesystem::path& file, const Secret& pkcs8, const Secret& passphrase) {
    const EvpKeyPtr key = ReadPkcs8(pkcs8.View());
    if (!key) return false;
    const auto pem = EncodePem(key.get(), passphrase);
    if (!pem) {
        LogHost("A private key cannot be encoded: " + DrainErrorQueue());
        SetLastError(NTE_BAD_KEY_STATE);
        return false;
    }
    return WriteWholeFile(file, pem->View(), 0600);
}

}  // namespace platform::posix
