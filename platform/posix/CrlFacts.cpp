#include "platform/posix/CrlFacts.h"

#include <algorithm>
#include <ctime>

#include "platform/posix/Ber.h"
#include "platform/posix/SignatureFacts.h"

namespace platform::posix {
namespace {

constexpr std::size_t kMaxTable = 1024;
constexpr std::size_t kMaxSigners = 16;
constexpr FILETIME kWeek = 7 * 86'400 * kFileTimeUnitsPerSecond;

bool IsKnownCriticalExtension(const X509_EXTENSION* extension) {
    switch (OBJ_obj2nid(X509_EXTENSION_get_object(const_cast<X509_EXTENSION*>(extension)))) {
        case NID_issuing_distribution_point:
        case NID_delta_crl:
        case NID_crl_number:
        case NID_authority_key_identifier:
            return true;
        default:
            return false;
    }
}

bool IsKnownCriticalEntryExtension(const X509_EXTENSION* extension, bool isIndirect) {
    const int nid = OBJ_obj2nid(X509_EXTENSION_get_object(const_cast<X509_EXTENSION*>(extension)));
    return nid == NID_crl_reason || nid == NID_invalidity_date || (isIndirect && nid == NID_certificate_issuer);
}

bool HasOnlyKnownExtensions(X509_CRL* crl) {
    for (int i = 0; i < X509_CRL_get_ext_count(crl); ++i) {
        const X509_EXTENSION* extension = X509_CRL_get_ext(crl, i);
        if (X509_EXTENSION_get_critical(extension) && !IsKnownCriticalExtension(extension)) return false;
    }
    return true;
}

// RFC 5280, 5.3: an unknown critical entry extension bars the whole CRL, not the entry alone.
bool HasOnlyKnownEntries(X509_CRL* crl, bool mayHaveExtensions, bool isIndirect) {
    STACK_OF(X509_REVOKED)* entries = X509_CRL_get_REVOKED(crl);
    for (int i = 0; i < sk_X509_REVOKED_num(entries); ++i) {
        const X509_REVOKED* entry = sk_X509_REVOKED_value(entries, i);
        const int count = X509_REVOKED_get_ext_count(entry);
        if (count > 0 && !mayHaveExtensions) return false;
        for (int j = 0; j < count; ++j) {
            const X509_EXTENSION* extension = X509_REVOKED_get_ext(entry, j);
            if (X509_EXTENSION_get_critical(extension) && !IsKnownCriticalEntryExtension(extension, isIndirect))
                return false;
        }
        if (!FileTimeOf(X509_REVOKED_get0_revocationDate(entry))) return false;
    }
    return true;
}

// RFC 5280, 5.1.1.2: the algorithm is named inside and outside of what is signed, and only the inner name is protected.
bool NamesOneAlgorithm(ByteView encoded) {
    const auto list = ReadSingleElement(encoded, kBerSequence);
    if (!list) return false;
    BerReader outer(list->content);
    const auto toBeSigned = outer.Next(kBerSequence);
    const auto outerName = outer.Next(kBerSequence);
    if (!toBeSigned || !outerName) return false;
    BerReader inner(toBeSigned->content);
    if (inner.NextIs(kBerInteger)) (void)inner.Next();
    const auto innerName = inner.Next(kBerSequence);
    return innerName && std::ranges::equal(innerName->whole, outerName->whole);
}

// Null and false if there is one that does not decode, stands twice or contradicts itself.
bool ReadDistribution(X509_CRL* crl, IssuingDistPointPtr& distribution) {
    int critical = 0;
    distribution.reset(static_cast<ISSUING_DIST_POINT*>(
        X509_CRL_get_ext_d2i(crl, NID_issuing_distribution_point, &critical, nullptr)));
    if (!distribution) return critical == -1;
    if (distribution->distpoint) DIST_POINT_set_dpname(distribution->distpoint, X509_CRL_get_issuer(crl));
    const int kinds = (distribution->onlyuser > 0) + (distribution->onlyCA > 0) + (distribution->onlyattr > 0);
    const bool isEmpty =
        !distribution->distpoint && !distribution->onlysomereasons && distribution->indirectCRL <= 0 && kinds == 0;
    return kinds <= 1 && !isEmpty;
}

// False if it does not decode or stands twice.
bool ReadNumber(X509_CRL* crl, int nid, IntegerPtr& number) {
    int critical = 0;
    number.reset(static_cast<ASN1_INTEGER*>(X509_CRL_get_ext_d2i(crl, nid, &critical, nullptr)));
    return number || critical == -1;
}

bool Read(X509_CRL* crl, CrlFacts& facts) {
    const long version = X509_CRL_get_version(crl);
    const bool isV2 = version == X509_CRL_VERSION_2;
    if (version != X509_CRL_VERSION_1 && !isV2) return false;
    if (!isV2 && X509_CRL_get_ext_count(crl) > 0) return false;
    if (!ReadDistribution(crl, facts.distribution)) return false;
    if (facts.distribution) {
        facts.indirect = facts.distribution->indirectCRL > 0;
        facts.reasons = ReasonsOf(facts.distribution->onlysomereasons);
    }
    if (!HasOnlyKnownExtensions(crl) || !HasOnlyKnownEntries(crl, isV2, facts.indirect)) return false;
    if (!ReadNumber(crl, NID_crl_number, facts.number) || !ReadNumber(crl, NID_delta_crl, facts.baseNumber))
        return false;

    const X509_ALGOR* algorithm = nullptr;
    X509_CRL_get0_signature(crl, nullptr, &algorithm);
    facts.breakable = IsBreakableDigest(algorithm);

    const auto thisUpdate = FileTimeOf(X509_CRL_get0_lastUpdate(crl));
    if (!thisUpdate) return false;
    facts.thisUpdate = *thisUpdate;
    facts.goodUntil = *thisUpdate + kWeek;
    if (const ASN1_TIME* nextUpdate = X509_CRL_get0_nextUpdate(crl)) {
        const auto until = FileTimeOf(nextUpdate);
        if (!until) return false;
        facts.goodUntil = *until;
        facts.hasEnd = true;
    }
    return true;
}

struct Entry {
    std::weak_ptr<const CrlContext::Impl> owner;
    std::shared_ptr<const CrlFacts> facts;
};

class FactTable {
  public:
    std::shared_ptr<const CrlFacts> Find(const std::shared_ptr<const CrlContext::Impl>& crl) {
        const std::scoped_lock lock(lock_);
        const auto found = entries_.find(crl.get());
        if (found == entries_.end() || found->second.owner.lock() != crl) return nullptr;
        return found->second.facts;
    }
    void Keep(const std::shared_ptr<const CrlContext::Impl>& crl, std::shared_ptr<const CrlFacts> facts) {
        const std::scoped_lock lock(lock_);
        std::erase_if(entries_, [](const auto& entry) { return entry.second.owner.expired(); });
        if (entries_.size() >= kMaxTable) entries_.clear();
        entries_[crl.get()] = {crl, std::move(facts)};
    }

  private:
    std::mutex lock_;
    std::map<const CrlContext::Impl*, Entry> entries_;
};

}  // namespace

bool CrlFacts::IsSignedBy(const CrlContext& crl, const CertificateContext& issuer) const {
    const std::string keyInfo(AsText(issuer.Info().SubjectPublicKeyInfo));
    {
        const std::scoped_lock lock(lock_);
        if (const auto known = signedBy_.find(keyInfo); known != signedBy_.end()) return known->second;
    }
    X509_CRL* native = NativeOf(crl);
    EVP_PKEY* key = PublicKeyOf(issuer);
    const bool isSigned = native && key && X509_CRL_verify(native, key) == 1;
    DrainErrorQueue();
    const std::scoped_lock lock(lock_);
    if (signedBy_.size() >= kMaxSigners) signedBy_.clear();
    signedBy_[keyInfo] = isSigned;
    return isSigned;
}

ReasonSet ReasonsOf(const ASN1_BIT_STRING* flags) {
    if (!flags) return kAllReasons;
    ReasonSet reasons = 0;
    for (int bit = 1; bit <= 8; ++bit) {
        if (ASN1_BIT_STRING_get_bit(flags, bit)) reasons |= ReasonSet{1} << bit;
    }
    return reasons;
}

std::shared_ptr<const CrlFacts> FactsOf(const CrlContext& crl) {
    // Never destroyed: the crypto library may be gone before the process's static objects are.
    static FactTable& table = *new FactTable;
    if (auto known = table.Find(crl.Backend())) return known;
    auto facts = std::make_shared<CrlFacts>();
    X509_CRL* native = NativeOf(crl);
    facts->usable = native && NamesOneAlgorithm(crl.Encoded()) && Read(native, *facts);
    DrainErrorQueue();
    table.Keep(crl.Backend(), facts);
    return facts;
}

std::optional<FILETIME> FileTimeOf(const ASN1_TIME* time) {
    std::tm parts{};
    if (!time || ASN1_TIME_to_tm(time, &parts) != 1) return std::nullopt;
    const std::int64_t seconds = timegm(&parts);
    return FileTimeFromUnix(seconds);
}

}  // namespace platform::posix
