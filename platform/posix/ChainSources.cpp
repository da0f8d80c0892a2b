#include "platform/posix/ChainSources.h"

#include <algorithm>
#include <array>
#include <atomic>

#include "platform/posix/Native.h"

namespace platform {
namespace posix {
namespace {

std::atomic<bool> systemRootsAreTrusted = true;

constexpr std::u16string_view kIntermediates = u"CA", kRoots = u"ROOT", kOwn = u"MY", kDistrusted = u"Disallowed";
// Where a signer's path is looked for beyond CA and ROOT.
constexpr std::array<std::u16string_view, 6> kFurtherSignerStores = {
    kOwn, u"ADDRESSBOOK", u"CertificationAuthority", u"AuthRoot", u"TrustedPeople", u"TrustedPublisher"};

bool Holds(const CertStore& store, const CertificateContext& certificate) {
    const CertificateContext found = CertFindBySha1(store, Sha1Of(certificate));
    return found && found == certificate;  // whole: SHA-1 alone could be made to collide
}

// As it is now: a chain asks a store several times, and looks for changes once.
CertStore SnapshotOf(const CertStore& store) {
    auto snapshot = store.Backend()->Snapshot();
    return snapshot ? CertStore(std::move(snapshot)) : store;
}

// The store without the sources that cost something to open: those have a tier of their own.
CertStore FoldersOf(const CertStore& store) {
    auto folders = store.Backend()->WithoutHostSources();
    return SnapshotOf(folders ? CertStore(std::move(folders)) : store);
}

std::vector<std::u16string> FurtherSystemStores() {
    std::vector<std::u16string> names = CertEnumSystemStore();
    std::erase_if(names, [](const std::u16string& name) { return name == kIntermediates || name == kRoots; });
    return names;
}

}  // namespace

bool SystemRootsAreTrusted() {
    return systemRootsAreTrusted;
}

ChainSources::ChainSources(const CertificateContext& leaf, const ChainParameters& parameters) {
    if (const ChainEngine* engine = parameters.engine) {
        roots_ = engine->roots;
        issuers_.insert(issuers_.end(), engine->intermediates.begin(), engine->intermediates.end());
        issuers_.insert(issuers_.end(), roots_.begin(), roots_.end());
        crlStores_.insert(crlStores_.end(), engine->crls.begin(), engine->crls.end());
        if (engine->distrusted) distrusted_.push_back(engine->distrusted);
        AddOwnStores(leaf, parameters.additionalStore);
        return;
    }
    AddRootsAndIntermediates(SystemRootsAreTrusted());
    AddFolders(kDistrusted, distrusted_);
    AddOwnStores(leaf, parameters.additionalStore);
    tiers_.push_back({[](ChainSources& sources) {
        for (const std::u16string& name : FurtherSystemStores())
            sources.AddFolders(name, sources.issuers_);
    }});
    AddHostTiers(SystemRootsAreTrusted());
    openCrlStores_ = [](ChainSources& sources) {
        for (const std::u16string& name : CertEnumSystemStore())
            sources.AddFolders(name, sources.crlStores_);
    };
}

ChainSources::ChainSources(const CertificateContext& leaf) {
    AddRootsAndIntermediates(true);
    AddOwnStores(leaf, {});
    tiers_.push_back({[](ChainSources& sources) {
        for (const std::u16string_view name : kFurtherSignerStores)
            sources.AddFolders(name, sources.issuers_);
    }});
    AddHostTiers(true);
}

void ChainSources::AddRootsAndIntermediates(bool rootsAreTrusted) {
    AddFolders(kRoots, issuers_);
    if (rootsAreTrusted) roots_ = issuers_;
    AddFolders(kIntermediates, issuers_);
}

// Behind the folders: of a certificate that lies in both, the folder's is decoded already.
void ChainSources::AddOwnStores(const CertificateContext& leaf, const CertStore& additional) {
    for (const CertStore& store : {leaf.Store(), additional}) {
        if (!store) continue;
        issuers_.push_back(FoldersOf(store));
        crlStores_.push_back(issuers_.back());
        std::ranges::move(store.Backend()->OcspAnswers(), std::back_inserter(ocspAnswers_));
    }
    if (!ocspAnswers_.empty()) message_ = leaf.Store();
}

void ChainSources::AddHostTiers(bool rootsAreTrusted) {
    tiers_.push_back({[rootsAreTrusted](ChainSources& sources) {
        const CertStore anchors = CertOpenHostStore(kRoots);
        if (!anchors) return;
        sources.issuers_.push_back(anchors);
        if (rootsAreTrusted) sources.roots_.push_back(anchors);
    }});
    tiers_.push_back({[](ChainSources& sources) {
                          if (const CertStore tokens = CertOpenHostStore(kOwn)) sources.issuers_.push_back(tokens);
                      },
                      true});
}

void ChainSources::AddFolders(std::u16string_view name, std::vector<CertStore>& stores) {
    const auto [entry, isNew] = folders_.try_emplace(std::u16string(name));
    std::vector<CertStore>& folders = entry->second;
    for (const StoreLocation location : {StoreLocation::currentUser, StoreLocation::localMachine}) {
        const bool none = location == StoreLocation::localMachine && !machineHasStores_;
        const CertStore store = isNew && !none ? CertOpenSystemStoreAt(location, name, false) : CertStore();
        if (store) folders.push_back(SnapshotOf(store));
    }
    stores.insert(stores.end(), folders.begin(), folders.end());
}

std::vector<CertificateContext> ChainSources::MessageCertificates() const {
    return message_ ? CertEnumCertificatesInStore(message_) : std::vector<CertificateContext>();
}

bool ChainSources::OpenNextTier(bool incomplete) {
    if (tiers_.empty() || (tiers_.front().tokens && !incomplete)) return false;
    const Tier tier = std::move(tiers_.front());
    tiers_.erase(tiers_.begin());
    tier.open(*this);
    foundIssuers_.clear();
    return true;
}

const std::vector<CertificateContext>& ChainSources::IssuersOf(const CertificateContext& certificate) {
    return Find(certificate.Info().Issuer, [&] { return certificate.Backend()->decoded->CanonicalIssuer(); });
}

const std::vector<CertificateContext>& ChainSources::CertificatesNamed(ByteView name) {
    return Find(name, [&] { return CanonicalName(name); });
}

const std::vector<CertificateContext>& ChainSources::Find(ByteView name,
                                                          const std::function<std::u16string()>& canonicalName) {
    const auto [entry, isNew] = foundIssuers_.try_emplace(std::string(AsText(name)));
    std::vector<CertificateContext>& issuers = entry->second;
    if (!isNew) return issuers;
    const std::u16string wanted = canonicalName();
    for (const CertStore& store : issuers_) {
        for (CertificateContext& found : FindByCanonicalSubject(store, wanted)) {
            if (std::ranges::find(issuers, found) == issuers.end()) issuers.push_back(std::move(found));
        }
    }
    return issuers;
}

bool ChainSources::AddIntermediates(const std::vector<CertificateContext>& certificates) {
    if (!added_) {
        added_ = CertOpenMemoryStore();
        issuers_.push_back(added_);
    }
    const std::size_t before = CertEnumCertificatesInStore(added_).size();
    for (const CertificateContext& certificate : certificates) {
        const auto& known = CertificatesNamed(certificate.Info().Subject);
        if (std::ranges::find(known, certificate) == known.end())
            CertAddCertificateContextToStore(added_, certificate, CERT_STORE_ADD_ALWAYS);
    }
    foundIssuers_.clear();
    return CertEnumCertificatesInStore(added_).size() > before;
}

bool ChainSources::IsTrusted(const CertificateContext& certificate) const {
    return std::ranges::any_of(roots_, [&](const CertStore& store) { return Holds(store, certificate); });
}

bool ChainSources::IsDistrusted(const CertificateContext& certificate) const {
    const CERT_INFO& info = certificate.Info();
    for (const CertStore& store : distrusted_) {
        for (const CertificateContext& found :
             FindByCanonicalSubject(store, certificate.Backend()->decoded->CanonicalSubject())) {
            const CERT_INFO& other = found.Info();
            if (other.SerialNumber == info.SerialNumber && other.Issuer == info.Issuer &&
                other.SubjectPublicKeyInfo == info.SubjectPublicKeyInfo)
                return true;
        }
    }
    return false;
}

const std::vector<CrlContext>& ChainSources::Crls() {
    if (crls_) return *crls_;
    if (openCrlStores_) openCrlStores_(*this);
    std::vector<CrlContext>& all = crls_.emplace();
    for (const CertStore& store : crlStores_) {
        std::vector<CrlContext> crls = CertEnumCRLsInStore(store);
        std::ranges::move(crls, std::back_inserter(all));
    }
    return all;
}

void ChainSources::AddCrl(const CrlContext& crl) {
    (void)Crls();
    if (std::ranges::find(*crls_, crl.Backend(), &CrlContext::Backend) == crls_->end()) crls_->push_back(crl);
}

}  // namespace posix

void TrustSystemRoots(bool trust) {
    posix::systemRootsAreTrusted = trust;
}

}  // namespace platform
