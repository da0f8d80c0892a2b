#pragma once
// The files of a store's folder, decoded once in a process and seen anew as soon as one of them changes.

#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <unordered_map>
#include <vector>

#include "platform/posix/CertificateFile.h"
#include "platform/posix/FileState.h"

namespace platform::posix {

// One file of the folder, decoded.
struct FolderFile {
    std::string name;
    FileState state;
    bool settled = false;
    CertificateFile content;
};

// A folder as it was at one moment. Immutable.
class FolderContent {
  public:
    // Null if there is no such folder. Files that `earlier` had and that did not change are not decoded again.
    static std::shared_ptr<const FolderContent> Read(const std::string& folder, const FolderContent* earlier);

    struct Entry {
        CertificateContext certificate;
        const FolderFile* file;
    };
    // In the order of the file names; a certificate that lies in several files stands once.
    [[nodiscard]] const std::vector<Entry>& Certificates() const { return certificates_; }
    [[nodiscard]] std::vector<CrlContext> Crls() const;
    [[nodiscard]] const std::vector<std::shared_ptr<const FolderFile>>& Files() const { return files_; }
    // Null if there is none. Hashes every certificate at the first call.
    [[nodiscard]] const Entry* FindBySha1(ByteView sha1) const;
    // By the name in canonical form; in the order of the file names. Reads every name at the first call.
    [[nodiscard]] std::vector<const Entry*> FindBySubject(const std::u16string& canonicalName) const;
    // Whether a key file of that name lies here.
    [[nodiscard]] bool HasKeyFile(const std::string& name) const { return keyFiles_.contains(name); }
    [[nodiscard]] bool HasKeyFiles() const { return !keyFiles_.empty(); }

    // Whether nothing was added, taken away or renamed since.
    [[nodiscard]] bool FolderUnchanged(const std::string& folder) const;
    [[nodiscard]] bool FileUnchanged(const std::string& folder, const FolderFile& file) const;
    // Both, for all files.
    [[nodiscard]] bool Unchanged(const std::string& folder) const;

  private:
    FileState state_;
    bool settled_ = false;
    std::vector<std::shared_ptr<const FolderFile>> files_;
    std::vector<Entry> certificates_;
    std::set<std::string> keyFiles_;
    mutable std::once_flag indexOnce_, subjectsOnce_;
    mutable std::unordered_map<std::string, std::size_t> bySha1_;
    mutable std::unordered_map<std::u16string_view, std::vector<const Entry*>> bySubject_;
};

}  // namespace platform::posix
