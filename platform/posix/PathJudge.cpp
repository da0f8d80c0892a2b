#include "platform/posix/PathJudge.h"

#include <algorithm>
#include <array>

#include "platform/posix/Native.h"
#include "platform/posix/SignatureFacts.h"

namespace platform::posix {
namespace {

using NameConstraintsPtr = Owned<NAME_CONSTRAINTS, NAME_CONSTRAINTS_free>;
using PolicyTreePtr = Owned<X509_POLICY_TREE, X509_policy_tree_free>;
struct FreeStack {
    void operator()(STACK_OF(X509) * stack) const noexcept { sk_X509_free(stack); }
};
using X509StackPtr = std::unique_ptr<STACK_OF(X509), FreeStack>;
struct FreeObjects {
    void operator()(STACK_OF(ASN1_OBJECT) * objects) const noexcept { sk_ASN1_OBJECT_free(objects); }
};
using ObjectsPtr = std::unique_ptr<STACK_OF(ASN1_OBJECT), FreeObjects>;
using ConstraintsPtr = Owned<POLICY_CONSTRAINTS, POLICY_CONSTRAINTS_free>;
using IntegerPtr = Owned<ASN1_INTEGER, ASN1_INTEGER_free>;
using PoliciesPtr = Owned<CERTIFICATEPOLICIES, CERTIFICATEPOLICIES_free>;

constexpr std::string_view kNameConstraints = "2.5.29.30", kCertificatePolicies = "2.5.29.32",
                           kPolicyMappings = "2.5.29.33", kPolicyConstraints = "2.5.29.36",
                           kInhibitAnyPolicy = "2.5.29.54", kAnyUsage = "2.5.29.37.0";

// Extensions that may be critical because something here acts on them: identifiers and names steer the search, the
// others are judged below.
constexpr std::array<std::string_view, 11> kKnownExtensions = {
    "2.5.29.14",     "2.5.29.15", "2.5.29.17",        "2.5.29.19", kNameConstraints, "2.5.29.31",
    kPolicyMappings, "2.5.29.35", kPolicyConstraints, "2.5.29.37", kInhibitAnyPolicy};

// Critical policies bind down to their qualifiers (RFC 5280, 4.2.1.4): only the two that are known may occur.
bool HasOnlyKnownQualifiers(const CertificateContext& certificate) {
    const PoliciesPtr policies(static_cast<CERTIFICATEPOLICIES*>(
        X509_get_ext_d2i(NativeOf(certificate), NID_certificate_policies, nullptr, nullptr)));
    for (int i = 0; i < sk_POLICYINFO_num(policies.get()); ++i) {
        const STACK_OF(POLICYQUALINFO)* qualifiers = sk_POLICYINFO_value(policies.get(), i)->qualifiers;
        for (int j = 0; j < sk_POLICYQUALINFO_num(qualifiers); ++j) {
            const int kind = OBJ_obj2nid(sk_POLICYQUALINFO_value(qualifiers, j)->pqualid);
            if (kind != NID_id_qt_cps && kind != NID_id_qt_unotice) return false;
        }
    }
    return true;
}

bool IsUnderstood(const CertificateContext& certificate, const CERT_EXTENSION& extension) {
    if (extension.pszObjId == kCertificatePolicies) return HasOnlyKnownQualifiers(certificate);
    return std::ranges::find(kKnownExtensions, extension.pszObjId) != kKnownExtensions.end();
}

class Judge {
  public:
    Judge(const CandidatePath& path, const Judgement& judgement, ChainSources& sources)
        : path_(path), judgement_(judgement), sources_(sources), size_(path.elements.size()) {
        for (const CertificateContext& certificate : path.elements)
            chain_.elements.push_back({certificate, 0, false});
        chain_.elements.back().selfSigned = path.selfSigned;
    }

    ChainContext Run() {
        for (std::size_t i = 0; i < size_; ++i) {
            JudgeSignature(i);
            if (!NativeOf(path_.elements[i])) continue;  // undecodable: nothing it says can be read
            JudgeItself(i);
            if (i > 0) JudgeAuthority(i);
            if (i > 0) JudgeNameConstraints(i);
        }
        JudgeEnd();
        JudgePolicies();
        for (const CERT_CHAIN_ELEMENT& element : chain_.elements)
            chain_.dwErrorStatus |= element.dwErrorStatus;
        return std::move(chain_);
    }

  private:
    void Fault(std::size_t i, std::uint32_t bits) { chain_.elements[i].dwErrorStatus |= bits; }

    void JudgeSignature(std::size_t i) {
        const CertificateContext& certificate = path_.elements[i];
        // An unknown issuer is told as an incomplete chain; a trusted end is trusted whoever signed it.
        const bool isEnd = i + 1 == size_;
        const bool signatureCounts = !isEnd || (path_.selfSigned && !path_.trusted);
        const bool broken = path_.signatureWrong[i] || (signatureCounts && HasBreakableDigest(certificate));
        if (broken || HasBreakableKey(certificate) || !NativeOf(certificate))
            Fault(i, CERT_TRUST_IS_NOT_SIGNATURE_VALID);
    }

    void JudgeItself(std::size_t i) {
        const CertificateContext& certificate = path_.elements[i];
        if (CertVerifyTimeValidity(judgement_.at, certificate) != 0) Fault(i, CERT_TRUST_IS_NOT_TIME_VALID);
        if (sources_.IsDistrusted(certificate)) Fault(i, CERT_TRUST_IS_EXPLICIT_DISTRUST);
        for (const CERT_EXTENSION& extension : certificate.Info().rgExtension) {
            if (extension.fCritical && !IsUnderstood(certificate, extension))
                Fault(i, CERT_TRUST_HAS_NOT_SUPPORTED_CRITICAL_EXT);
        }
        const std::uint32_t flags = X509_get_extension_flags(NativeOf(certificate));
        if (flags & (EXFLAG_INVALID | EXFLAG_INVALID_POLICY)) Fault(i, CERT_TRUST_INVALID_EXTENSION);
        for (const std::string& usage : judgement_.usages) {
            if (!Allows(certificate, usage)) Fault(i, CERT_TRUST_IS_NOT_VALID_FOR_USAGE);
        }
    }

    static bool Allows(const CertificateContext& certificate, const std::string& usage) {
        const auto usages = CertGetEnhancedKeyUsage(certificate);
        if (!usages) return false;
        return usages->empty() || std::ranges::find(*usages, usage) != usages->end() ||
               std::ranges::find(*usages, kAnyUsage) != usages->end();
    }

    // What an issuer must be allowed (RFC 5280, 6.1.4 k to n).
    void JudgeAuthority(std::size_t i) {
        X509* native = NativeOf(path_.elements[i]);
        const std::uint32_t flags = X509_get_extension_flags(native);
        const bool isRoot = i + 1 == size_ && path_.IsComplete();
        const bool mayBeSilent = isRoot && (flags & EXFLAG_BCONS) == 0;
        if ((flags & EXFLAG_CA) == 0 && !mayBeSilent) Fault(i, CERT_TRUST_INVALID_BASIC_CONSTRAINTS);
        if ((X509_get_key_usage(native) & KU_KEY_CERT_SIGN) == 0) Fault(i, CERT_TRUST_IS_NOT_VALID_FOR_USAGE);
        const long limit = X509_get_pathlen(native);
        if (limit >= 0 && AuthoritiesBelow(i) > limit) Fault(i, CERT_TRUST_INVALID_PATH_LENGTH);
    }

    // Between the leaf and element `i`, not counting those that a changed key made necessary.
    [[nodiscard]] long AuthoritiesBelow(std::size_t i) const {
        return std::count_if(path_.elements.begin() + 1, path_.elements.begin() + static_cast<std::ptrdiff_t>(i),
                             [](const CertificateContext& element) { return !IsSelfIssued(element); });
    }

    void JudgeNameConstraints(std::size_t i) {
        if (!CertFindExtension(path_.elements[i], kNameConstraints)) return;
        const NameConstraintsPtr constraints(static_cast<NAME_CONSTRAINTS*>(
            X509_get_ext_d2i(NativeOf(path_.elements[i]), NID_name_constraints, nullptr, nullptr)));
        if (!constraints) return Fault(i, CERT_TRUST_INVALID_EXTENSION);
        for (std::size_t below = 0; below < i; ++below) {
            const CertificateContext& certificate = path_.elements[below];
            X509* native = NativeOf(certificate);
            if (!native || (below > 0 && IsSelfIssued(certificate))) continue;
            if (NAME_CONSTRAINTS_check(native, constraints.get()) != X509_V_OK)
                Fault(below, CERT_TRUST_INVALID_NAME_CONSTRAINTS);
        }
    }

    void JudgeEnd() {
        if (!path_.IsComplete()) {
            Fault(size_ - 1, CERT_TRUST_IS_PARTIAL_CHAIN | (path_.cyclic ? CERT_TRUST_IS_CYCLIC : 0));
        } else if (!path_.trusted) {
            Fault(size_ - 1, CERT_TRUST_IS_UNTRUSTED_ROOT);
        }
    }

    [[nodiscard]] bool Has(std::size_t i, std::initializer_list<std::string_view> oids) const {
        return std::ranges::any_of(
            oids, [&](std::string_view oid) { return CertFindExtension(path_.elements[i], oid) != nullptr; });
    }

    // The crypto library leaves the last certificate out, as the one that is trusted; what a root restricts goes in as
    // where the check starts from.
    void JudgePolicies() {
        if (!path_.IsComplete() || size_ < 2) return;
        const X509StackPtr stack(sk_X509_new_null());
        bool anyPolicies = false;
        for (std::size_t i = 0; i < size_; ++i) {
            X509* native = NativeOf(path_.elements[i]);
            if (!native || !sk_X509_push(stack.get(), native)) return;
            anyPolicies =
                anyPolicies || Has(i, {kCertificatePolicies, kPolicyMappings, kPolicyConstraints, kInhibitAnyPolicy});
        }
        if (!anyPolicies) return;
        const ObjectsPtr anyPolicy(sk_ASN1_OBJECT_new_null());  // the acceptable ones: without it, none would be
        if (!sk_ASN1_OBJECT_push(anyPolicy.get(), OBJ_nid2obj(NID_any_policy))) return;
        X509_POLICY_TREE* tree = nullptr;
        int isExplicit = 0;
        const int result = X509_policy_check(&tree, &isExplicit, stack.get(), anyPolicy.get(), RestrictionsOfRoot());
        const PolicyTreePtr owner(tree);
        DrainErrorQueue();
        if (result != X509_PCY_TREE_VALID && result != X509_PCY_TREE_EMPTY)
            Fault(0, CERT_TRUST_INVALID_POLICY_CONSTRAINTS);
    }

    // RFC 5937, 3.2. A policy is required once as many certificates were passed as the root lets pass without; what it
    // inhibits only further down is left to the authorities there.
    [[nodiscard]] unsigned RestrictionsOfRoot() const {
        X509* root = NativeOf(path_.elements.back());
        unsigned flags = 0;
        if (Has(size_ - 1, {kPolicyConstraints})) {
            const ConstraintsPtr constraints(
                static_cast<POLICY_CONSTRAINTS*>(X509_get_ext_d2i(root, NID_policy_constraints, nullptr, nullptr)));
            const long passed = AuthoritiesBelow(size_ - 1) + 1;
            if (constraints && constraints->requireExplicitPolicy &&
                ASN1_INTEGER_get(constraints->requireExplicitPolicy) <= passed)
                flags |= X509_V_FLAG_EXPLICIT_POLICY;
            if (constraints && constraints->inhibitPolicyMapping &&
                ASN1_INTEGER_get(constraints->inhibitPolicyMapping) == 0)
                flags |= X509_V_FLAG_INHIBIT_MAP;
        }
        if (Has(size_ - 1, {kInhibitAnyPolicy})) {
            const IntegerPtr skip(
                static_cast<ASN1_INTEGER*>(X509_get_ext_d2i(root, NID_inhibit_any_policy, nullptr, nullptr)));
            if (skip && ASN1_INTEGER_get(skip.get()) == 0) flags |= X509_V_FLAG_INHIBIT_ANY;
        }
        return flags;
    }

    const CandidatePath& path_;
    const Judgement& judgement_;
    ChainSources& sources_;
    std::size_t size_;
    ChainContext chain_;
};

}  // namespace

ChainContext JudgePath(const CandidatePath& path, const Judgement& judgement, ChainSources& sources) {
    return Judge(path, judgement, sources).Run();
}

}  // namespace platform::posix
