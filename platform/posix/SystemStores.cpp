// The system's named stores: a folder of the user, a folder of the machine, and what the host itself has.

#include <algorithm>
#include <array>
#include <map>
#include <mutex>
#include <set>
#include <unordered_map>

#include "platform/System.h"
#include "platform/Text.h"
#include "platform/posix/FolderStore.h"
#include "platform/posix/Native.h"

namespace platform {
namespace {

using posix::FolderStore;

enum class HostSource { none, tokens, trustAnchors };

std::vector<CertificateContext> CertificatesOf(HostSource source) {
    switch (source) {
        case HostSource::tokens:
            return posix::CertificatesOnTokens();
        case HostSource::trustAnchors: {
            auto anchors = posix::HostTrustAnchors();
            for (auto& anchor : anchors)
                anchor = posix::WithOwnState(anchor, nullptr);
            return anchors;
        }
        case HostSource::none:
            break;
    }
    return {};
}

// Each certificate once, at its first place; the one with a key is told if any has.
std::vector<CertificateContext> EachOnce(const std::vector<CertificateContext>& certificates) {
    std::vector<CertificateContext> result;
    std::unordered_map<std::string_view, std::size_t> places;
    for (const auto& certificate : certificates) {
        const auto [place, added] = places.emplace(AsText(certificate.Encoded()), result.size());
        if (added) {
            result.push_back(certificate);
        } else if (!posix::AttachedKeyOf(result[place->second]) && posix::AttachedKeyOf(certificate)) {
            result[place->second] = certificate;
        }
    }
    return result;
}

// Folders in the order in which they are asked, then the host's own source, which is opened only when it is needed: a
// card reader takes seconds to start. Additions and removals go to the first folder.
class SystemStore : public CertStore::Impl {
  public:
    SystemStore(std::vector<std::shared_ptr<FolderStore>> folders, HostSource host)
        : folders_(std::move(folders)), host_(host) {}

    std::vector<CertificateContext> Certificates() override {
        std::vector<CertificateContext> all;
        for (const auto& folder : folders_)
            std::ranges::move(folder->Certificates(), std::back_inserter(all));
        std::ranges::move(CertificatesOf(host_), std::back_inserter(all));
        return EachOnce(all);
    }

    std::vector<CrlContext> Crls() override {
        std::vector<CrlContext> all;
        for (const auto& folder : folders_)
            std::ranges::move(folder->Crls(), std::back_inserter(all));
        return all;
    }

    // Among equals the one with a key. A token is asked also for a certificate that lies in a folder without its key:
    // people put the certificate of their card there.
    CertificateContext FindBySha1(ByteView sha1) override {
        CertificateContext found;
        for (const auto& folder : folders_) {
            auto candidate = folder->FindBySha1(sha1);
            if (!candidate) continue;
            if (!found) found = candidate;
            if (posix::AttachedKeyOf(candidate)) return candidate;
        }
        if (host_ == HostSource::trustAnchors && !found)
            return posix::WithOwnState(posix::FindHostTrustAnchor(sha1), nullptr);
        if (host_ != HostSource::tokens) return found;
        for (const auto& candidate : CertificatesOf(host_)) {
            if (std::ranges::equal(posix::Sha1Of(candidate), sha1)) return candidate;
        }
        return found;
    }

    std::vector<CertificateContext> FindBySubject(const std::u16string& canonicalName) override {
        std::vector<CertificateContext> found;
        for (const auto& folder : folders_)
            std::ranges::move(folder->FindBySubject(canonicalName), std::back_inserter(found));
        if (found.size() > 1) return EachOnce(found);
        if (!found.empty()) return found;
        found = CertificatesOf(host_);
        std::erase_if(found, [&](const CertificateContext& certificate) {
            return certificate.Backend()->decoded->CanonicalSubject() != canonicalName;
        });
        return found;
    }

    std::shared_ptr<Impl> WithoutHostSources() override {
        if (host_ == HostSource::none) return nullptr;
        return std::make_shared<SystemStore>(folders_, HostSource::none);
    }

    std::shared_ptr<Impl> Snapshot() override {
        std::vector<std::shared_ptr<FolderStore>> folders;
        for (const auto& folder : folders_)
            folders.push_back(std::static_pointer_cast<FolderStore>(folder->Snapshot()));
        return std::make_shared<SystemStore>(std::move(folders), host_);
    }

    bool Add(const CertificateContext& certificate, std::uint32_t disposition) override {
        return folders_.empty() ? Impl::Add(certificate, disposition) : folders_[0]->Add(certificate, disposition);
    }
    bool AddCrl(const CrlContext& crl) override {
        return folders_.empty() ? Impl::AddCrl(crl) : folders_[0]->AddCrl(crl);
    }
    bool Remove(const CertificateContext& certificate) override {
        return folders_.empty() ? Impl::Remove(certificate) : folders_[0]->Remove(certificate);
    }

  private:
    std::vector<std::shared_ptr<FolderStore>> folders_;
    HostSource host_;
};

// Names compare without letter case for the stores that everybody knows; their folders have this spelling.
constexpr auto kKnownNames =
    std::to_array<std::u16string_view>({u"MY", u"CA", u"ROOT", u"ADDRESSBOOK", u"AuthRoot", u"CertificationAuthority",
                                        u"Disallowed", u"TrustedPeople", u"TrustedPublisher"});

bool EqualWithoutCase(std::u16string_view a, std::u16string_view b) {
    const auto small = [](char16_t c) { return c >= u'A' && c <= u'Z' ? static_cast<char16_t>(c + 32) : c; };
    return std::ranges::equal(a, b, [&](char16_t x, char16_t y) { return small(x) == small(y); });
}

// Empty with ERROR_INVALID_PARAMETER for a name that is no single folder below the stores.
std::u16string FolderName(std::u16string_view name) {
    const bool leaves = name.empty() || name[0] == u'.' || name.size() > 120 ||
                        name.find_first_of(std::u16string_view(u"/\\\0", 3)) != std::u16string_view::npos;
    if (leaves) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return {};
    }
    const auto known = std::ranges::find_if(kKnownNames, [&](auto other) { return EqualWithoutCase(other, name); });
    return std::u16string(known == kKnownNames.end() ? name : *known);
}

std::shared_ptr<FolderStore> FolderStoreAt(StoreLocation location, const std::u16string& name) {
    std::string folder = posix::StoresFolder(location);
    if (!folder.empty()) folder.append(1, '/').append(ToUtf8(name));
    return std::make_shared<FolderStore>(
        std::move(folder), name == u"MY" ? FolderStore::Keys::besideCertificates : FolderStore::Keys::none,
        location == StoreLocation::currentUser);
}

CertStore Joined(const std::u16string& name, const std::vector<StoreLocation>& locations, HostSource host) {
    std::vector<std::shared_ptr<FolderStore>> folders;
    folders.reserve(locations.size());
    for (const StoreLocation location : locations)
        folders.push_back(FolderStoreAt(location, name));
    return CertStore(std::make_shared<SystemStore>(std::move(folders), host));
}

HostSource HostSourceFor(const std::u16string& name) {
    if (name == u"MY") return HostSource::tokens;
    return name == u"ROOT" ? HostSource::trustAnchors : HostSource::none;
}

std::set<std::u16string> ReadFolderNames(const std::filesystem::path& folder) {
    std::set<std::u16string> names;
    std::error_code error;
    std::filesystem::directory_iterator entry(folder, error);
    for (; !error && entry != std::filesystem::directory_iterator(); entry.increment(error)) {
        const auto name = ToWide(entry->path().filename().string());
        std::error_code ignored;
        if (entry->is_directory(ignored) && FolderName(name) == name) names.insert(name);
    }
    return names;
}

// Read again when the folder changed; each chain asks.
void AddFolderNames(StoreLocation location, std::set<std::u16string>& names) {
    struct Listing {
        posix::FileState state;
        std::set<std::u16string> names;
    };
    static std::mutex lock;
    static std::map<std::string, Listing> listings;
    const std::string folder = posix::StoresFolder(location);
    const auto state = folder.empty() ? std::nullopt : posix::FileState::Of(folder.c_str());
    if (!state) return;
    const std::scoped_lock guard(lock);
    const auto known = listings.find(folder);
    if (known != listings.end() && known->second.state == *state) {
        names.insert(known->second.names.begin(), known->second.names.end());
        return;
    }
    const std::int64_t moment = posix::WallClock();
    const std::set<std::u16string> read = ReadFolderNames(folder);
    names.insert(read.begin(), read.end());
    if (!state->SettledAt(moment)) return;
    if (listings.size() >= 16) listings.clear();
    listings[folder] = {*state, read};
}

}  // namespace

std::filesystem::path posix::StoreFolder(StoreLocation location, std::u16string_view name) {
    const auto folder = FolderName(name);
    if (folder.empty()) return {};
    const std::string base = StoresFolder(location);
    if (!base.empty()) return base + '/' + ToUtf8(folder);
    SetLastError(ERROR_PATH_NOT_FOUND);
    return {};
}

bool posix::HasStores(StoreLocation location) {
    const std::string base = StoresFolder(location);
    return !base.empty() && FileState::Of(base.c_str()).has_value();
}

CertStore CertOpenSystemStoreW(std::u16string_view name) {
    const auto folder = FolderName(name);
    if (folder.empty()) return {};
    return Joined(folder, {StoreLocation::currentUser, StoreLocation::localMachine}, HostSourceFor(folder));
}

// Tokens belong to the user, trust anchors to the machine.
CertStore CertOpenSystemStoreAt(StoreLocation location, std::u16string_view name, bool withHostSources) {
    const auto folder = FolderName(name);
    if (folder.empty()) return {};
    HostSource host = withHostSources ? HostSourceFor(folder) : HostSource::none;
    const auto belongsTo = host == HostSource::tokens ? StoreLocation::currentUser : StoreLocation::localMachine;
    if (location != belongsTo) host = HostSource::none;
    return Joined(folder, {location}, host);
}

CertStore CertOpenHostStore(std::u16string_view name) {
    const auto folder = FolderName(name);
    return folder.empty() ? CertStore() : Joined(folder, {}, HostSourceFor(folder));
}

std::vector<std::u16string> CertEnumSystemStore() {
    std::set<std::u16string> names{u"MY", u"CA", u"ROOT"};
    AddFolderNames(StoreLocation::currentUser, names);
    AddFolderNames(StoreLocation::localMachine, names);
    return {names.begin(), names.end()};
}

}  // namespace platform
