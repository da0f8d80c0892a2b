#pragma once
// A folder of certificate and CRL files as a store.

#include <filesystem>

#include "platform/posix/FolderContent.h"
#include "platform/posix/Native.h"

namespace platform::posix {

// What is decoded is kept for the whole process. Each operation looks whether it still holds: a find by thumbprint that
// has an answer asks after the folder (additions, removals, renames) and the file of that answer, since no other file
// can make it wrong; everything else asks after every file. So no change goes unseen, also not one made twice within a
// tick of the file system's clock.
class FolderStore : public CertStore::Impl {
  public:
    enum class Keys { none, besideCertificates };
    // `folder` need not exist; it is made at the first addition, for its owner alone when `ownerOnly`.
    FolderStore(std::string folder, Keys keys, bool ownerOnly)
        : folder_(std::move(folder)), keys_(keys), ownerOnly_(ownerOnly) {}

    std::vector<CertificateContext> Certificates() override;
    std::vector<CrlContext> Crls() override;
    CertificateContext FindBySha1(ByteView sha1) override;
    std::vector<CertificateContext> FindBySubject(const std::u16string& canonicalName) override;
    std::shared_ptr<Impl> Snapshot() override;
    // Writes the certificate as `<thumbprint>.cer`, behind its key if it came with one in memory. A key file that is
    // already here is never replaced, and none is deleted but by Remove.
    bool Add(const CertificateContext& certificate, std::uint32_t disposition) override;
    bool AddCrl(const CrlContext& crl) override;
    bool Remove(const CertificateContext& certificate) override;
    [[nodiscard]] bool MakeFolder() const;

  private:
    // Null if there is no folder.
    [[nodiscard]] std::shared_ptr<const FolderContent> Current() const;
    [[nodiscard]] CertificateContext Present(const FolderContent& content, const CertificateContext& certificate) const;
    [[nodiscard]] bool WriteKey(const CertificateContext& certificate) const;
    [[nodiscard]] bool CarryKey(const CertificateContext& from, const CertificateContext& to) const;
    [[nodiscard]] bool TakeOut(const FolderContent& content, const CertificateContext& certificate) const;

    std::string folder_;  // no path, which would be taken apart each time
    Keys keys_;
    bool ownerOnly_;
    std::optional<std::shared_ptr<const FolderContent>> pinned_;  // of a snapshot
};

}  // namespace platform::posix
