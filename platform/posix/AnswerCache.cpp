#include "platform/posix/AnswerCache.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <map>
#include <mutex>

#include "platform/Files.h"
#include "platform/Hash.h"
#include "platform/System.h"
#include "platform/posix/CertificateFile.h"
#include "platform/posix/FileState.h"
#include "platform/posix/Native.h"

namespace platform::posix {
namespace {

namespace fs = std::filesystem;

constexpr std::uint64_t kMostBytes = std::uint64_t{128} << 20;
constexpr std::size_t kMostFiles = 2048;
constexpr std::int64_t kWeek = std::int64_t{7} * 86'400 * 1'000'000'000;
constexpr std::uint64_t kMostDecodedBytes = std::uint64_t{32} << 20;

constexpr const char* PrefixOf(AnswerCache::Kind kind) {
    switch (kind) {
        case AnswerCache::Kind::crl:
            return "crl-";
        case AnswerCache::Kind::ocsp:
            return "ocsp-";
        case AnswerCache::Kind::issuer:
            break;
    }
    return "issuer-";
}

// Which answers a person needs tells with whom they deal, and who could change them could hide them.
bool IsOursAlone(const fs::path& folder) {
    struct stat status {};
    return lstat(folder.c_str(), &status) == 0 && S_ISDIR(status.st_mode) && status.st_uid == geteuid() &&
           (status.st_mode & (S_IRWXG | S_IRWXO)) == 0;
}

fs::path FolderPath() {
    const fs::path own = CacheFolder();
    return own.empty() ? own : own / "revocation";
}

bool MakeFolder(const fs::path& folder) {
    if (folder.empty()) return false;
    std::error_code error;
    fs::create_directories(folder.parent_path().parent_path(), error);
    for (const fs::path& part : {folder.parent_path(), folder}) {
        if (mkdir(part.c_str(), S_IRWXU) != 0 && errno != EEXIST) return false;
    }
    if (IsOursAlone(folder)) return true;
    LogHost("Answers about certificates are not kept: " + folder.string() + " is not a folder of this user alone.");
    return false;
}

bool IsOld(const FileState& state) {
    const std::int64_t now = WallClock();
    return state.modified > now || now - state.modified > kWeek;
}

// Lists that were read from the cache, decoded, by file. What is in it is as little believed as the file.
class DecodedLists {
  public:
    CrlContext Find(const fs::path& file, const FileState& state) {
        const std::scoped_lock lock(lock_);
        const auto found = entries_.find(file);
        return found != entries_.end() && found->second.state == state ? found->second.crl : CrlContext();
    }
    void Keep(const fs::path& file, const FileState& state, const CrlContext& crl) {
        const std::scoped_lock lock(lock_);
        std::uint64_t size = crl.Encoded().size();
        for (const auto& [_, entry] : entries_)
            size += entry.crl.Encoded().size();
        if (size > kMostDecodedBytes) entries_.clear();
        entries_[file] = {state, crl};
    }

  private:
    struct Entry {
        FileState state;
        CrlContext crl;
    };
    std::mutex lock_;
    std::map<fs::path, Entry> entries_;
};

DecodedLists& Decoded() {
    // Never destroyed: the crypto library may be gone before the process's static objects are.
    static DecodedLists& lists = *new DecodedLists;
    return lists;
}

}  // namespace

bool AnswerCache::Open() const {
    if (!folder_.empty()) return true;
    fs::path folder = FolderPath();
    if (folder.empty() || !IsOursAlone(folder)) return false;
    folder_ = std::move(folder);
    return true;
}

fs::path AnswerCache::FileOf(Kind kind, std::string_view key) const {
    constexpr std::string_view kDigits = "0123456789abcdef";
    std::string name = PrefixOf(kind);
    for (const std::uint8_t byte : Digest(HashAlgorithm::sha256, AsBytes(key)))
        name.append({kDigits[byte >> 4], kDigits[byte & 0x0F]});
    return folder_ / name;
}

std::optional<AnswerCache::Kept> AnswerCache::Find(Kind kind, std::string_view key) const {
    if (!Open()) return std::nullopt;
    const fs::path file = FileOf(kind, key);
    const auto state = FileState::Of(file);
    if (!state || !state->IsRegular()) return std::nullopt;
    auto bytes = ReadWholeFile(file, kMostBytes);
    if (!bytes) return std::nullopt;
    return Kept{std::move(*bytes), IsOld(*state)};
}

std::optional<AnswerCache::KeptCrl> AnswerCache::FindCrl(std::string_view url) const {
    if (!Open()) return std::nullopt;
    const fs::path file = FileOf(Kind::crl, url);
    const auto state = FileState::Of(file);
    if (!state || !state->IsRegular()) return std::nullopt;
    if (const CrlContext known = Decoded().Find(file, *state)) return KeptCrl{known, IsOld(*state)};
    const auto bytes = ReadWholeFile(file, kMostBytes);
    if (!bytes) return std::nullopt;
    CertificateFile content = ReadCertificateFile(*bytes);
    if (content.crls.size() != 1) {
        Drop(Kind::crl, url);
        return std::nullopt;
    }
    Decoded().Keep(file, *state, content.crls.front());
    return KeptCrl{content.crls.front(), IsOld(*state)};
}

void AnswerCache::Keep(Kind kind, std::string_view key, ByteView bytes) const {
    if (bytes.size() > kMostBytes / 2) return;
    if (!Open() && (!MakeFolder(FolderPath()) || !Open())) return;
    if (WriteWholeFile(FileOf(kind, key), bytes, S_IRUSR | S_IWUSR)) MakeRoom();
}

void AnswerCache::Drop(Kind kind, std::string_view key) const {
    std::error_code error;
    if (Open()) fs::remove(FileOf(kind, key), error);
}

// Everything in the folder counts, so that what a killed process left half-written goes one day, too.
void AnswerCache::MakeRoom() const {
    struct File {
        std::int64_t modified;
        std::uint64_t size;
        fs::path path;
    };
    std::vector<File> files;
    std::uint64_t total = 0;
    std::error_code error;
    for (fs::directory_iterator entry(folder_, error); !error && entry != fs::directory_iterator();
         entry.increment(error)) {
        const auto state = FileState::Of(entry->path());
        if (!state || !state->IsRegular()) continue;
        total += static_cast<std::uint64_t>(state->size);
        files.push_back({state->modified, static_cast<std::uint64_t>(state->size), entry->path()});
    }
    std::size_t count = files.size();
    if (total <= kMostBytes && count <= kMostFiles) return;
    std::ranges::sort(files, {}, &File::modified);
    for (const File& file : files) {
        // Some room more than needed, so that not every answer from now on has to look for it.
        if (total <= kMostBytes / 4 * 3 && count <= kMostFiles / 4 * 3) return;
        if (!fs::remove(file.path, error)) continue;
        total -= file.size;
        --count;
    }
}

}  // namespace platform::posix
