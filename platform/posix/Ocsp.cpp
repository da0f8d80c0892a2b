#include "platform/posix/Ocsp.h"

#include <algorithm>
#include <mutex>
#include <unordered_map>

#include "platform/Hash.h"
#include "platform/posix/CrlFacts.h"
#include "platform/posix/PathBuilder.h"
#include "platform/posix/SignatureFacts.h"

namespace platform::posix {
namespace {

using CertIdPtr = Owned<OCSP_CERTID, OCSP_CERTID_free>;
using ResponsePtr = Owned<OCSP_RESPONSE, OCSP_RESPONSE_free>;
using BasicPtr = Owned<OCSP_BASICRESP, OCSP_BASICRESP_free>;
struct FreeStack {
    void operator()(STACK_OF(X509) * stack) const noexcept { sk_X509_free(stack); }
};
using Path = std::span<const CertificateContext>;

constexpr FILETIME kTolerance = 5 * 60 * kFileTimeUnitsPerSecond;
constexpr FILETIME kWeek = 7 * 86'400 * kFileTimeUnitsPerSecond;
constexpr int kNonceSize = 16;
constexpr int kMostSigners = 8;
constexpr int kMostSingles = 256;
constexpr std::size_t kMostFacts = 1024;

// --- What is asked and answered ---

CertIdPtr IdOf(Path path, const EVP_MD* digest) {
    X509* certificate = NativeOf(path[0]);
    X509* issuer = NativeOf(path[1]);
    return CertIdPtr(certificate && issuer ? OCSP_cert_to_id(digest, certificate, issuer) : nullptr);
}

// A responder may name the certificate by another digest than the question did.
bool IsAbout(OCSP_SINGLERESP* single, Path path) {
    auto* answered = const_cast<OCSP_CERTID*>(OCSP_SINGLERESP_get0_id(single));
    ASN1_OBJECT* algorithm = nullptr;
    OCSP_id_get0_info(nullptr, &algorithm, nullptr, nullptr, answered);
    const EVP_MD* digest = algorithm ? EVP_get_digestbyobj(algorithm) : nullptr;
    if (!digest) return false;
    const CertIdPtr id = IdOf(path, digest);
    return id && OCSP_id_cmp(id.get(), answered) == 0;
}

bool HasOnlyKnownExtensions(OCSP_BASICRESP* basic) {
    for (int i = 0; i < OCSP_BASICRESP_get_ext_count(basic); ++i) {
        X509_EXTENSION* extension = OCSP_BASICRESP_get_ext(basic, i);
        const bool isNonce = OBJ_obj2nid(X509_EXTENSION_get_object(extension)) == NID_id_pkix_OCSP_Nonce;
        if (X509_EXTENSION_get_critical(extension) && !isNonce) return false;
    }
    return true;
}

bool HasCriticalExtensions(OCSP_SINGLERESP* single) {
    return OCSP_SINGLERESP_get_ext_by_critical(single, 1, -1) >= 0;
}

std::optional<OcspAnswer> ReadSingle(OCSP_SINGLERESP* single, FILETIME at) {
    ASN1_GENERALIZEDTIME *thisUpdate = nullptr, *nextUpdate = nullptr;
    int reason = 0;
    OcspAnswer answer;
    switch (OCSP_single_get0_status(single, &reason, nullptr, &thisUpdate, &nextUpdate)) {
        case V_OCSP_CERTSTATUS_GOOD:
            answer.status = RevocationStatus::good;
            break;
        case V_OCSP_CERTSTATUS_REVOKED:
            answer.status = RevocationStatus::revoked;
            break;
        case V_OCSP_CERTSTATUS_UNKNOWN:
            break;
        default:
            return std::nullopt;
    }
    const auto since = FileTimeOf(thisUpdate);
    if (!since || *since > at + kTolerance) return std::nullopt;
    answer.thisUpdate = *since;
    if (nextUpdate) {
        answer.nextUpdate = FileTimeOf(nextUpdate);
        if (!answer.nextUpdate || *answer.nextUpdate < answer.thisUpdate) return std::nullopt;
    }
    const FILETIME until = answer.nextUpdate.value_or(answer.thisUpdate + kWeek);
    if (until + kTolerance < at) return std::nullopt;
    return answer;
}

// Of several words about the certificate the worst counts.
std::optional<OcspAnswer> ReadAnswer(OCSP_BASICRESP* basic, Path path, FILETIME at) {
    const auto rank = [](const OcspAnswer& answer) {
        return answer.status == RevocationStatus::revoked ? 2 : answer.status == RevocationStatus::unknown ? 1 : 0;
    };
    std::optional<OcspAnswer> worst;
    for (int i = 0; i < std::min(OCSP_resp_count(basic), kMostSingles); ++i) {
        OCSP_SINGLERESP* single = OCSP_resp_get0(basic, i);
        if (!IsAbout(single, path)) continue;
        if (HasCriticalExtensions(single)) return std::nullopt;
        const auto answer = ReadSingle(single, at);
        if (answer && (!worst || rank(*answer) > rank(*worst))) worst = answer;
    }
    return worst;
}

// --- Who signed ---

// Which answer was signed by whom is a fact about bytes that never changes: a kept answer about the signer of thousands
// of files is checked once in a process.
class SignedAnswers {
  public:
    std::optional<bool> Find(const std::string& key) {
        const std::scoped_lock lock(lock_);
        const auto found = facts_.find(key);
        return found == facts_.end() ? std::nullopt : std::optional(found->second);
    }
    void Keep(const std::string& key, bool isSigned) {
        const std::scoped_lock lock(lock_);
        if (facts_.size() >= kMostFacts) facts_.clear();
        facts_[key] = isSigned;
    }

  private:
    std::mutex lock_;
    std::unordered_map<std::string, bool> facts_;  // by SHA-256 of the answer and of the signer's certificate
};

bool Verifies(OCSP_BASICRESP* basic, const CertificateContext& signer) {
    const X509Ptr native = DecodeWithKey(signer);
    const std::unique_ptr<STACK_OF(X509), FreeStack> alone(sk_X509_new_null());
    if (!native || !sk_X509_push(alone.get(), native.get())) return false;
    const bool isSigned = OCSP_basic_verify(basic, alone.get(), nullptr, OCSP_NOINTERN | OCSP_NOVERIFY) == 1;
    DrainErrorQueue();
    return isSigned;
}

// An answer that was decoded, and the digest of its bytes.
struct Answer {
    OCSP_BASICRESP* basic;
    std::string digest;
};

// Whether the answer names this certificate as its responder and this key made the signature.
bool IsSignedBy(const Answer& answer, const CertificateContext& signer) {
    static SignedAnswers facts;
    const Bytes& ofSigner = signer.Backend()->decoded->Sha256();
    if (answer.digest.empty() || ofSigner.empty()) return false;  // no such digest on this host
    const std::string key = answer.digest + std::string(AsText(ofSigner));
    if (const auto known = facts.Find(key)) return *known;
    const bool isSigned = Verifies(answer.basic, signer);
    facts.Keep(key, isSigned);
    return isSigned;
}

bool MaySignAnswers(const CertificateContext& signer) {
    X509* native = NativeOf(signer);
    const std::uint32_t flags = X509_get_extension_flags(native);
    if (flags & (EXFLAG_INVALID | EXFLAG_CRITICAL)) return false;
    if ((flags & EXFLAG_XKUSAGE) == 0 || (X509_get_extended_key_usage(native) & XKU_OCSP_SIGN) == 0) return false;
    return (X509_get_key_usage(native) & (KU_DIGITAL_SIGNATURE | KU_NON_REPUDIATION)) != 0;
}

// RFC 6960, 4.2.2.2: certified by the very issuer, for this purpose. It must not vouch for itself. `open` becomes the
// responder's path if nobody tells whether it is revoked.
bool IsDelegate(const CertificateContext& signer, Path path, FILETIME at, ChainSources& sources,
                std::vector<CertificateContext>& open) {
    open.clear();
    const CertificateContext& issuer = path[1];
    if (!NativeOf(signer) || signer == path[0] || !MaySignAnswers(signer)) return false;
    if (CertVerifyTimeValidity(at, signer) != 0 || sources.IsDistrusted(signer)) return false;
    if (HasBreakableKey(signer) || HasBreakableDigest(signer)) return false;
    if (!IsIssuerName(signer, issuer) || !posix::IsSignedBy(signer, issuer)) return false;
    if (X509_get_ext_by_NID(NativeOf(signer), NID_id_pkix_OCSP_noCheck, -1) >= 0) return true;
    std::vector<CertificateContext> ofSigner(path.begin(), path.end());
    ofSigner.front() = signer;
    const RevocationStatus status = CheckCrls(ofSigner, at, sources);
    if (status == RevocationStatus::unknown) open = std::move(ofSigner);
    return status != RevocationStatus::revoked;
}

bool IsSignedByWhoMay(const Answer& answer, Path path, FILETIME at, ChainSources& sources,
                      std::vector<CertificateContext>& open) {
    if (IsBreakableDigest(OCSP_resp_get0_tbs_sigalg(answer.basic))) return false;
    if (IsSignedBy(answer, path[1])) return true;
    const STACK_OF(X509)* certificates = OCSP_resp_get0_certs(answer.basic);
    for (int i = 0; i < std::min(sk_X509_num(certificates), kMostSigners); ++i) {
        const CertificateContext signer =
            CertCreateCertificateContext(EncodeDer<i2d_X509>(sk_X509_value(certificates, i)));
        if (signer && IsDelegate(signer, path, at, sources, open) && IsSignedBy(answer, signer)) return true;
    }
    // Messages for long-term use may hold the responder's certificate in place of the answer.
    int tried = 0;
    for (const CertificateContext& signer : sources.MessageCertificates()) {
        if (!NativeOf(signer) || !MaySignAnswers(signer)) continue;
        if (++tried > kMostSigners) return false;
        if (IsDelegate(signer, path, at, sources, open) && IsSignedBy(answer, signer)) return true;
    }
    return false;
}

BasicPtr ReadBasic(ByteView der) {
    const unsigned char* in = der.data();
    const ResponsePtr response(d2i_OCSP_RESPONSE(nullptr, &in, static_cast<long>(der.size())));
    if (!response || in != der.data() + der.size()) return nullptr;
    if (OCSP_response_status(response.get()) != OCSP_RESPONSE_STATUS_SUCCESSFUL) return nullptr;
    return BasicPtr(OCSP_response_get1_basic(response.get()));
}

}  // namespace

OcspQuestion::OcspQuestion(std::span<const CertificateContext> path) : path_(path) {
    if (path.size() < 2) return;
    CertIdPtr id = IdOf(path, EVP_sha1());  // the one digest that every responder knows
    Owned<OCSP_REQUEST, OCSP_REQUEST_free> request(OCSP_REQUEST_new());
    if (id && request) {
        key_ = AsText(EncodeDer<i2d_OCSP_CERTID>(id.get()));
        if (OCSP_request_add0_id(request.get(), id.get())) {
            (void)id.release();
            if (OCSP_request_add1_nonce(request.get(), nullptr, kNonceSize) == 1) request_ = std::move(request);
        }
    }
    DrainErrorQueue();
}

Bytes OcspQuestion::Request() const {
    return EncodeDer<i2d_OCSP_REQUEST>(request_.get());
}

std::optional<OcspAnswer> OcspQuestion::Judge(ByteView response, Nonce nonce, FILETIME at,
                                              ChainSources& sources) const {
    const BasicPtr basic = ReadBasic(response);
    DrainErrorQueue();
    if (!basic || !HasOnlyKnownExtensions(basic.get())) return std::nullopt;
    if (nonce == Nonce::compare && OCSP_check_nonce(request_.get(), basic.get()) == 0) return std::nullopt;
    auto answer = ReadAnswer(basic.get(), path_, at);
    DrainErrorQueue();
    const Bytes digest = Digest(HashAlgorithm::sha256, response);
    const Answer decoded{basic.get(), std::string(AsText(digest))};
    if (!answer || !IsSignedByWhoMay(decoded, path_, at, sources, answer->openSigner)) return std::nullopt;
    return answer;
}

}  // namespace platform::posix
