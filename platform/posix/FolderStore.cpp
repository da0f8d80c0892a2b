#include "platform/posix/FolderStore.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <map>

#include "platform/Files.h"
#include "platform/Hash.h"
#include "platform/posix/MemoryStore.h"

namespace platform::posix {
namespace {

// The folders that this process has decoded.
class ContentCache {
  public:
    using Content = std::shared_ptr<const FolderContent>;
    Content Find(const std::string& folder) {
        const std::scoped_lock lock(lock_);
        const auto found = contents_.find(folder);
        return found == contents_.end() ? nullptr : found->second;
    }
    void Keep(const std::string& folder, Content content) {
        const std::scoped_lock lock(lock_);
        if (!content) {
            contents_.erase(folder);
            return;
        }
        if (contents_.size() >= kMost) contents_.clear();
        contents_[folder] = std::move(content);
    }

  private:
    static constexpr std::size_t kMost = 64;
    std::mutex lock_;
    std::map<std::string, Content> contents_;
};

// Whatever the umask: who could change these files would choose what is trusted.
constexpr mode_t kFileMode = 0644;

ContentCache& Cache() {
    static ContentCache cache;
    return cache;
}

std::string UpperHex(ByteView bytes) {
    constexpr std::string_view kDigits = "0123456789ABCDEF";
    std::string text;
    for (const std::uint8_t octet : bytes) {
        text += kDigits[octet >> 4];
        text += kDigits[octet & 15];
    }
    return text;
}

std::string KeyFileName(const CertificateContext& certificate) {
    return UpperHex(Sha1Of(certificate)) + ".key";
}

bool FailWithErrno() {
    SetLastError(ErrorFromErrno(errno));
    return false;
}

// Deletes a file that holds nothing else; what else it holds (other certificates, somebody's private key) stays, as
// open or closed to others as it was.
bool RewriteWithout(const std::filesystem::path& path, const CertificateContext& certificate) {
    struct stat status {};
    if (stat(path.c_str(), &status) != 0) return errno == ENOENT || FailWithErrno();
    const auto bytes = ReadWholeFile(path);
    if (!bytes) return false;
    const auto rest = WithoutCertificate(*bytes, certificate);
    if (!rest) return true;
    if (!rest->empty()) return WriteWholeFile(path, AsBytes(*rest), status.st_mode & 0777);
    return unlink(path.c_str()) == 0 || errno == ENOENT || FailWithErrno();
}

}  // namespace

std::filesystem::path KeyFileIn(const std::filesystem::path& folder, const CertificateContext& certificate) {
    return folder / KeyFileName(certificate);
}

std::shared_ptr<const FolderContent> FolderStore::Current() const {
    if (pinned_) return *pinned_;
    auto cached = Cache().Find(folder_);
    if (cached && cached->Unchanged(folder_)) return cached;
    auto content = FolderContent::Read(folder_, cached.get());
    if (content || cached) Cache().Keep(folder_, content);
    return content;
}

CertificateContext FolderStore::Present(const FolderContent& content, const CertificateContext& certificate) const {
    const bool keyed = keys_ == Keys::besideCertificates && content.HasKeyFiles();
    if (!keyed || !content.HasKeyFile(KeyFileName(certificate))) return WithOwnState(certificate, nullptr);
    return WithOwnState(certificate, MakeFileKey(KeyFileIn(folder_, certificate),
                                                 CertGetNameStringW(certificate, CERT_NAME_SIMPLE_DISPLAY_TYPE, 0)));
}

std::vector<CertificateContext> FolderStore::Certificates() {
    const auto content = Current();
    if (!content) return {};
    std::vector<CertificateContext> certificates;
    certificates.reserve(content->Certificates().size());
    for (const auto& entry : content->Certificates())
        certificates.push_back(Present(*content, entry.certificate));
    return certificates;
}

std::vector<CrlContext> FolderStore::Crls() {
    const auto content = Current();
    return content ? content->Crls() : std::vector<CrlContext>();
}

CertificateContext FolderStore::FindBySha1(ByteView sha1) {
    auto content = pinned_ ? nullptr : Cache().Find(folder_);
    const auto* entry = content && content->FolderUnchanged(folder_) ? content->FindBySha1(sha1) : nullptr;
    if (entry == nullptr || !content->FileUnchanged(folder_, *entry->file)) {
        content = Current();
        entry = content ? content->FindBySha1(sha1) : nullptr;
    }
    return entry == nullptr ? CertificateContext() : Present(*content, entry->certificate);
}

std::vector<CertificateContext> FolderStore::FindBySubject(const std::u16string& canonicalName) {
    const auto content = Current();
    if (!content) return {};
    std::vector<CertificateContext> found;
    for (const auto* entry : content->FindBySubject(canonicalName))
        found.push_back(Present(*content, entry->certificate));
    return found;
}

std::shared_ptr<CertStore::Impl> FolderStore::Snapshot() {
    auto snapshot = std::make_shared<FolderStore>(*this);
    snapshot->pinned_ = Current();
    return snapshot;
}

bool FolderStore::MakeFolder() const {
    if (folder_.empty()) {
        SetLastError(ERROR_PATH_NOT_FOUND);
        return false;
    }
    const mode_t mode = ownerOnly_ ? 0700 : 0755;
    std::filesystem::path path;
    for (const auto& part : std::filesystem::path(folder_)) {
        path /= part;
        if (mkdir(path.c_str(), mode) != 0 && errno != EEXIST && access(path.c_str(), X_OK) != 0)
            return FailWithErrno();
    }
    return true;
}

// Only a key that lies open in memory goes along: one in another file may have a passphrase, and would lose it here.
// The public key of such a file, like that of no key in memory, is unknown before it is unlocked.
bool FolderStore::WriteKey(const CertificateContext& certificate) const {
    const auto key = keys_ == Keys::besideCertificates ? AttachedKeyOf(certificate) : nullptr;
    if (!key || !key->IsExportable() || key->PublicKeyInfo().empty()) return true;
    const auto file = KeyFileIn(folder_, certificate);
    switch (LookAtKeyFile(file, certificate)) {
        case KeyFileState::good:
            return true;
        case KeyFileState::foreign:
            SetLastError(NTE_BAD_KEY_STATE);
            return false;
        case KeyFileState::none:
            break;
    }
    const Secret pkcs8 = key->ExportPkcs8();
    return pkcs8.Empty() || WriteKeyFile(file, pkcs8, Secret());
}

// A renewed encoding of a certificate keeps the private key if it has the same public key.
bool FolderStore::CarryKey(const CertificateContext& from, const CertificateContext& to) const {
    if (keys_ != Keys::besideCertificates || from.Info().SubjectPublicKeyInfo != to.Info().SubjectPublicKeyInfo)
        return true;
    const auto source = KeyFileIn(folder_, from), target = KeyFileIn(folder_, to);
    if (!FileState::Of(source) || FileState::Of(target)) return true;
    return rename(source.c_str(), target.c_str()) == 0 || FailWithErrno();
}

bool FolderStore::TakeOut(const FolderContent& content, const CertificateContext& certificate) const {
    for (const auto& file : content.Files()) {
        if (std::ranges::find(file->content.certificates, certificate) == file->content.certificates.end()) continue;
        if (!RewriteWithout(std::filesystem::path(folder_) / file->name, certificate)) return false;
    }
    return true;
}

bool FolderStore::Add(const CertificateContext& certificate, std::uint32_t disposition) {
    if (!MakeFolder()) return false;
    const auto content = Current();
    if (!content) {
        SetLastError(ERROR_ACCESS_DENIED);
        return false;
    }
    std::vector<CertificateContext> replaced;
    bool present = false;
    for (const auto& [other, file] : content->Certificates()) {
        if (!SameIssuerAndSerial(other, certificate)) continue;
        if (disposition == CERT_STORE_ADD_NEW) {
            SetLastError(CRYPT_E_EXISTS);
            return false;
        }
        present = present || other == certificate;
        if (other == certificate || disposition == CERT_STORE_ADD_ALWAYS) continue;
        if (disposition == CERT_STORE_ADD_NEWER && other.Info().NotBefore >= certificate.Info().NotBefore) return true;
        replaced.push_back(other);
    }
    // The key first: a certificate that is listed has its key. What is replaced goes last: nothing is lost half-way.
    if (!WriteKey(certificate)) return false;
    for (const auto& other : replaced) {
        if (!CarryKey(other, certificate)) return false;
    }
    const auto path = std::filesystem::path(folder_) / (UpperHex(Sha1Of(certificate)) + ".cer");
    if (!present && !WriteWholeFile(path, certificate.Encoded(), kFileMode)) return false;
    return std::ranges::all_of(replaced, [&](const auto& other) { return TakeOut(*content, other); });
}

bool FolderStore::AddCrl(const CrlContext& crl) {
    if (!MakeFolder()) return false;
    for (const CrlContext& other : Crls()) {
        if (std::ranges::equal(other.Encoded(), crl.Encoded())) return true;
    }
    const auto name = UpperHex(Digest(HashAlgorithm::sha1, crl.Encoded())) + ".crl";
    return WriteWholeFile(std::filesystem::path(folder_) / name, crl.Encoded(), kFileMode);
}

bool FolderStore::Remove(const CertificateContext& certificate) {
    const auto content = Current();
    const bool present = content && std::ranges::any_of(content->Certificates(), [&](const auto& entry) {
                             return entry.certificate == certificate;
                         });
    if (!present) {
        SetLastError(CRYPT_E_NOT_FOUND);
        return false;
    }
    if (!TakeOut(*content, certificate)) return false;
    const auto key = KeyFileIn(folder_, certificate);
    if (keys_ == Keys::none || unlink(key.c_str()) == 0 || errno == ENOENT) return true;
    return FailWithErrno();
}

}  // namespace platform::posix
