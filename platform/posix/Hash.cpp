#include "platform/Hash.h"

#include <algorithm>
#include <array>
#include <mutex>

#include "platform/posix/OpenSsl.h"

namespace platform {
namespace {

struct AlgorithmFacts {
    std::string_view name;
    std::string_view oid;
    const char* hostName;  // as the crypto library knows it
    std::size_t size;
};

// In the order of HashAlgorithm. OIDs: RFC 1319, RFC 3370, RFC 5754, and NIST's hash arc for SHA-3.
constexpr std::array<AlgorithmFacts, 10> kAlgorithms = {{
    {"md2", "1.2.840.113549.2.2", "MD2", 16},
    {"md5", "1.2.840.113549.2.5", "MD5", 16},
    {"sha1", "1.3.14.3.2.26", "SHA1", 20},
    {"sha224", "2.16.840.1.101.3.4.2.4", "SHA2-224", 28},
    {"sha256", "2.16.840.1.101.3.4.2.1", "SHA2-256", 32},
    {"sha384", "2.16.840.1.101.3.4.2.2", "SHA2-384", 48},
    {"sha512", "2.16.840.1.101.3.4.2.3", "SHA2-512", 64},
    {"sha3-256", "2.16.840.1.101.3.4.2.8", "SHA3-256", 32},
    {"sha3-384", "2.16.840.1.101.3.4.2.9", "SHA3-384", 48},
    {"sha3-512", "2.16.840.1.101.3.4.2.10", "SHA3-512", 64},
}};
static_assert(kAlgorithms.size() == static_cast<std::size_t>(HashAlgorithm::sha3_512) + 1);

const AlgorithmFacts& FactsOf(HashAlgorithm algorithm) {
    return kAlgorithms[static_cast<std::size_t>(algorithm)];
}

std::optional<HashAlgorithm> AlgorithmWhere(const auto& matches) {
    const auto* found = std::ranges::find_if(kAlgorithms, matches);
    if (found == kAlgorithms.end()) return std::nullopt;
    return static_cast<HashAlgorithm>(found - kAlgorithms.begin());
}

std::string LettersAndDigits(std::string_view name) {
    std::string out;
    for (const char c : name) {
        if (c != '-') out.push_back(c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c);
    }
    return out;
}

using MdPtr = posix::Owned<EVP_MD, EVP_MD_free>;
using MdContextPtr = posix::Owned<EVP_MD_CTX, EVP_MD_CTX_free>;

// Each algorithm is looked up once in a process, when it is first used: a lookup costs more than a digest of a
// kilobyte, and one that finds nothing more than that.
struct Lookup {
    std::once_flag once;
    MdPtr native;
};

const EVP_MD* NativeOf(HashAlgorithm algorithm) {
    // Never freed, because digests are still made while the process ends.
    static auto& lookups = *new std::array<Lookup, kAlgorithms.size()>;
    Lookup& lookup = lookups[static_cast<std::size_t>(algorithm)];
    std::call_once(lookup.once, [&] {
        lookup.native.reset(EVP_MD_fetch(nullptr, FactsOf(algorithm).hostName, ""));
        if (!lookup.native) posix::DrainErrorQueue();
    });
    if (!lookup.native) SetLastError(NTE_BAD_ALGID);
    return lookup.native.get();
}

}  // namespace

std::string_view NameOf(HashAlgorithm algorithm) {
    return FactsOf(algorithm).name;
}

std::string_view OidOf(HashAlgorithm algorithm) {
    return FactsOf(algorithm).oid;
}

std::optional<HashAlgorithm> HashFromName(std::string_view name) {
    const std::string wanted = LettersAndDigits(name);
    return AlgorithmWhere([&](const AlgorithmFacts& facts) { return LettersAndDigits(facts.name) == wanted; });
}

std::optional<HashAlgorithm> HashFromOid(std::string_view oid) {
    return AlgorithmWhere([&](const AlgorithmFacts& facts) { return facts.oid == oid; });
}

std::size_t DigestSize(HashAlgorithm algorithm) {
    return FactsOf(algorithm).size;
}

struct Hash::State {
    MdContextPtr context{EVP_MD_CTX_new()};
    const EVP_MD* native = nullptr;

    bool Start() { return context && EVP_DigestInit_ex2(context.get(), native, nullptr) == 1; }
};

Hash::Hash(HashAlgorithm algorithm) : algorithm_(algorithm) {
    const EVP_MD* native = NativeOf(algorithm);
    if (native == nullptr) return;
    auto state = std::make_unique<State>();
    state->native = native;
    if (state->Start()) state_ = std::move(state);
}

Hash::Hash(const Hash& other) : algorithm_(other.algorithm_) {
    if (!other.state_) return;
    auto state = std::make_unique<State>();
    state->native = other.state_->native;
    if (state->context && EVP_MD_CTX_copy_ex(state->context.get(), other.state_->context.get()) == 1)
        state_ = std::move(state);
}

Hash& Hash::operator=(const Hash& other) {
    if (this != &other) *this = Hash(other);
    return *this;
}

Hash::Hash(Hash&&) noexcept = default;
Hash& Hash::operator=(Hash&&) noexcept = default;
Hash::~Hash() = default;

void Hash::Update(ByteView bytes) {
    if (state_ && EVP_DigestUpdate(state_->context.get(), bytes.data(), bytes.size()) != 1) state_.reset();
}

Bytes Hash::Finish() {
    if (!state_) return {};
    Bytes digest(DigestSize(algorithm_));
    if (EVP_DigestFinal_ex(state_->context.get(), digest.data(), nullptr) != 1) digest.clear();
    if (digest.empty() || !state_->Start()) state_.reset();
    return digest;
}

Bytes Digest(HashAlgorithm algorithm, ByteView bytes) {
    const EVP_MD* native = NativeOf(algorithm);
    if (native == nullptr) return {};
    // One context a thread: for short texts its making costs as much as the digest.
    thread_local const MdContextPtr context{EVP_MD_CTX_new()};
    Bytes digest(DigestSize(algorithm));
    const bool done = context && EVP_DigestInit_ex2(context.get(), native, nullptr) == 1 &&
                      EVP_DigestUpdate(context.get(), bytes.data(), bytes.size()) == 1 &&
                      EVP_DigestFinal_ex(context.get(), digest.data(), nullptr) == 1;
    if (!done) digest.clear();
    return digest;
}

}  // namespace platform
