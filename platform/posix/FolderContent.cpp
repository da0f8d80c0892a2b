#include "platform/posix/FolderContent.h"

#include <algorithm>
#include <string_view>
#include <unordered_set>

#include "platform/Files.h"
#include "platform/posix/Native.h"

namespace platform::posix {
namespace {

constexpr std::uint64_t kMaximumFile = std::uint64_t{64} << 20;
constexpr std::string_view kKeySuffix = ".key";

std::string PathOf(const std::string& folder, const std::string& name) {
    std::string path;
    path.reserve(folder.size() + 1 + name.size());
    return path.append(folder).append(1, '/').append(name);
}

// Names of what may be files of the store, sorted. Hidden ones are other programs' or half-written.
std::optional<std::vector<std::string>> ListNames(const std::string& folder) {
    std::vector<std::string> names;
    std::error_code error;
    std::filesystem::directory_iterator entry(folder, error);
    for (; !error && entry != std::filesystem::directory_iterator(); entry.increment(error)) {
        auto name = entry->path().filename().string();
        if (!name.starts_with('.')) names.push_back(std::move(name));
    }
    if (error) {
        const bool absent = error == std::errc::no_such_file_or_directory;
        if (!absent) LogHost("The store folder " + folder + " cannot be listed: " + error.message());
        return std::nullopt;
    }
    std::sort(names.begin(), names.end());
    return names;
}

std::shared_ptr<const FolderFile> ReadFile(const std::string& folder, const std::string& name, const FileState& state,
                                           std::int64_t moment) {
    auto file = std::make_shared<FolderFile>();
    file->name = name;
    file->state = state;
    file->settled = state.SettledAt(moment);
    const auto bytes = ReadWholeFile(PathOf(folder, name), kMaximumFile);
    if (bytes) file->content = ReadCertificateFile(*bytes);
    if (file->content.Count() == 0) {
        LogHost("Skipped " + PathOf(folder, name) + (bytes ? ": no certificate or CRL in it" : ": not readable"));
    } else if (file->content.damaged > 0) {
        LogHost("Skipped " + std::to_string(file->content.damaged) + " damaged pieces of " + PathOf(folder, name));
    }
    return file;
}

}  // namespace

std::shared_ptr<const FolderContent> FolderContent::Read(const std::string& folder, const FolderContent* earlier) {
    const std::int64_t moment = WallClock();
    const auto state = FileState::Of(folder.c_str());
    const auto names = state ? ListNames(folder) : std::nullopt;
    if (!names) return nullptr;
    auto content = std::make_shared<FolderContent>();
    content->state_ = *state;
    content->settled_ = state->SettledAt(moment);
    std::unordered_map<std::string_view, const std::shared_ptr<const FolderFile>*> known;
    if (earlier != nullptr) {
        for (const auto& file : earlier->files_)
            known.emplace(file->name, &file);
    }
    for (const auto& name : *names) {
        const auto fileState = FileState::Of(PathOf(folder, name).c_str());
        if (!fileState || !fileState->IsRegular()) continue;
        if (name.ends_with(kKeySuffix)) {
            content->keyFiles_.insert(name);
            continue;
        }
        const auto found = known.find(name);
        const bool same = found != known.end() && (*found->second)->settled && (*found->second)->state == *fileState;
        content->files_.push_back(same ? *found->second : ReadFile(folder, name, *fileState, moment));
    }
    std::unordered_set<std::string_view> seen;
    for (const auto& file : content->files_) {
        for (const auto& certificate : file->content.certificates) {
            if (seen.insert(AsText(certificate.Encoded())).second)
                content->certificates_.push_back({certificate, file.get()});
        }
    }
    return content;
}

std::vector<CrlContext> FolderContent::Crls() const {
    std::vector<CrlContext> crls;
    for (const auto& file : files_)
        crls.insert(crls.end(), file->content.crls.begin(), file->content.crls.end());
    return crls;
}

const FolderContent::Entry* FolderContent::FindBySha1(ByteView sha1) const {
    std::call_once(indexOnce_, [this] {
        for (std::size_t i = 0; i < certificates_.size(); ++i)
            bySha1_.emplace(AsText(Sha1Of(certificates_[i].certificate)), i);
    });
    const auto found = bySha1_.find(std::string(AsText(sha1)));
    return found == bySha1_.end() ? nullptr : &certificates_[found->second];
}

std::vector<const FolderContent::Entry*> FolderContent::FindBySubject(const std::u16string& canonicalName) const {
    std::call_once(subjectsOnce_, [this] {
        for (const Entry& entry : certificates_)
            bySubject_[entry.certificate.Backend()->decoded->CanonicalSubject()].push_back(&entry);
    });
    const auto found = bySubject_.find(canonicalName);
    return found == bySubject_.end() ? std::vector<const Entry*>() : found->second;
}

bool FolderContent::FolderUnchanged(const std::string& folder) const {
    return settled_ && FileState::Of(folder.c_str()) == state_;
}

bool FolderContent::FileUnchanged(const std::string& folder, const FolderFile& file) const {
    if (!file.settled) return false;
    return FileState::Of(PathOf(folder, file.name).c_str()) == file.state;
}

bool FolderContent::Unchanged(const std::string& folder) const {
    return FolderUnchanged(folder) &&
           std::ranges::all_of(files_, [&](const auto& file) { return FileUnchanged(folder, *file); });
}

}  // namespace platform::posix
