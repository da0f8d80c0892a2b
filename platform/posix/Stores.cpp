#include "platform/Stores.h"

#include <algorithm>

#include "platform/Files.h"
#include "platform/posix/Ber.h"
#include "platform/posix/CertificateFile.h"
#include "platform/posix/DecodedTable.h"
#include "platform/posix/MemoryStore.h"
#include "platform/posix/Native.h"

namespace platform {
namespace {

// Whole CRLs of big authorities have some megabytes; a store file beyond this is none.
constexpr std::uint64_t kMaximumFile = std::uint64_t{64} << 20;

bool IsSet(const CertStore& store) {
    if (!store) SetLastError(ERROR_INVALID_HANDLE);
    return static_cast<bool>(store);
}

CertificateContext NotFound() {
    SetLastError(CRYPT_E_NOT_FOUND);
    return {};
}

// TBSCertList up to the issuer (RFC 5280, 5.1).
std::optional<Bytes> CrlIssuer(ByteView der) {
    const auto list = posix::ReadSingleElement(der, posix::kBerSequence);
    if (!list) return std::nullopt;
    posix::BerReader outer(list->content);
    const auto toBeSigned = outer.Next(posix::kBerSequence);
    if (!toBeSigned || !outer.Next(posix::kBerSequence) || !outer.Next(posix::kBerBitString)) return std::nullopt;
    posix::BerReader reader(toBeSigned->content);
    if (reader.NextIs(posix::kBerInteger) && !reader.Next()) return std::nullopt;
    if (!reader.Next(posix::kBerSequence)) return std::nullopt;
    const auto issuer = reader.Next(posix::kBerSequence);
    if (!issuer || !posix::ReadTime(reader)) return std::nullopt;
    return CopyOf(issuer->whole);
}

}  // namespace

namespace posix {

X509_CRL* NativeOf(const CrlContext& crl) {
    if (!crl) return nullptr;
    return crl.Backend()->crl.Get(crl.Backend()->encoded, [](ByteView der) {
        const unsigned char* in = der.data();
        X509CrlPtr native(d2i_X509_CRL(nullptr, &in, static_cast<long>(der.size())));
        if (in != der.data() + der.size()) native.reset();
        if (!native) DrainErrorQueue();
        return native;
    });
}

const X509_NAME* IssuerNameOf(const CrlContext& crl) {
    return crl.Backend()->issuerName.Get(crl.Backend()->issuer, [](ByteView der) {
        const unsigned char* in = der.data();
        X509NamePtr name(d2i_X509_NAME(nullptr, &in, static_cast<long>(der.size())));
        if (!name) DrainErrorQueue();
        return name;
    });
}

}  // namespace posix

ByteView CrlContext::Encoded() const {
    return impl_ ? ByteView(impl_->encoded) : ByteView();
}

ByteView CrlContext::Issuer() const {
    return impl_ ? ByteView(impl_->issuer) : ByteView();
}

CrlContext CertCreateCRLContext(ByteView der) {
    if (auto known = posix::FindDecodedCrl(der)) return CrlContext(std::move(known));
    auto issuer = CrlIssuer(der);
    if (!issuer) return {};
    auto impl = std::make_shared<CrlContext::Impl>();
    impl->encoded = CopyOf(der);
    impl->issuer = std::move(*issuer);
    posix::KeepDecodedCrl(impl);
    return CrlContext(std::move(impl));
}

CertificateContext CertStore::Impl::FindBySha1(ByteView sha1) {
    for (auto& certificate : Certificates()) {
        if (std::ranges::equal(posix::Sha1Of(certificate), sha1)) return certificate;
    }
    return {};
}

std::vector<CertificateContext> CertStore::Impl::FindBySubject(const std::u16string& canonicalName) {
    auto certificates = Certificates();
    std::erase_if(certificates, [&](const CertificateContext& certificate) {
        return certificate.Backend()->decoded->CanonicalSubject() != canonicalName;
    });
    return certificates;
}

bool CertStore::Impl::Add(const CertificateContext&, std::uint32_t) {
    SetLastError(ERROR_ACCESS_DENIED);
    return false;
}

bool CertStore::Impl::AddCrl(const CrlContext&) {
    SetLastError(ERROR_ACCESS_DENIED);
    return false;
}

bool CertStore::Impl::Remove(const CertificateContext&) {
    SetLastError(CRYPT_E_NOT_FOUND);
    return false;
}

CertStore CertOpenMemoryStore() {
    return CertStore(std::make_shared<posix::MemoryStore>());
}

CertStore CertOpenBytesStore(ByteView bytes) {
    const auto file = posix::ReadCertificateFile(bytes);
    if (file.Count() == 0) return {};
    if (file.damaged > 0) posix::LogHost("certificates: " + std::to_string(file.damaged) + " pieces did not decode");
    auto store = CertOpenMemoryStore();
    for (const auto& certificate : file.certificates)
        CertAddCertificateContextToStore(store, certificate, CERT_STORE_ADD_ALWAYS);
    for (const auto& crl : file.crls)
        CertAddCRLContextToStore(store, crl);
    SetLastError(file.damaged > 0 ? CRYPT_E_BAD_ENCODE : ERROR_SUCCESS);
    return store;
}

CertStore CertOpenFileStore(const std::filesystem::path& path) {
    const auto bytes = ReadWholeFile(path, kMaximumFile);
    return bytes ? CertOpenBytesStore(*bytes) : CertStore();
}

std::vector<CertificateContext> CertEnumCertificatesInStore(const CertStore& store) {
    if (!IsSet(store)) return {};
    auto certificates = store.Backend()->Certificates();
    for (auto& certificate : certificates)
        certificate = certificate.FromStore(store);
    return certificates;
}

std::vector<CrlContext> CertEnumCRLsInStore(const CertStore& store) {
    return IsSet(store) ? store.Backend()->Crls() : std::vector<CrlContext>();
}

CertificateContext CertFindBySha1(const CertStore& store, ByteView sha1) {
    if (!IsSet(store)) return {};
    const auto found = store.Backend()->FindBySha1(sha1);
    return found ? found.FromStore(store) : NotFound();
}

CertificateContext CertFindByIssuerAndSerial(const CertStore& store, ByteView issuerName, ByteView serialLittleEndian) {
    if (!IsSet(store)) return {};
    for (const auto& certificate : store.Backend()->Certificates()) {
        const CERT_INFO& info = certificate.Info();
        if (std::ranges::equal(info.SerialNumber, serialLittleEndian) && std::ranges::equal(info.Issuer, issuerName))
            return certificate.FromStore(store);
    }
    return NotFound();
}

std::vector<CertificateContext> posix::FindByCanonicalSubject(const CertStore& store,
                                                              const std::u16string& canonicalName) {
    if (!IsSet(store)) return {};
    auto found = store.Backend()->FindBySubject(canonicalName);
    for (auto& certificate : found)
        certificate = certificate.FromStore(store);
    if (found.empty()) SetLastError(CRYPT_E_NOT_FOUND);
    return found;
}

std::vector<CertificateContext> CertFindBySubject(const CertStore& store, ByteView subjectName) {
    return posix::FindByCanonicalSubject(store, posix::CanonicalName(subjectName));
}

bool CertAddCertificateContextToStore(const CertStore& store, const CertificateContext& certificate,
                                      std::uint32_t disposition) {
    if (!IsSet(store)) return false;
    const bool known = disposition == CERT_STORE_ADD_NEW || disposition == CERT_STORE_ADD_REPLACE_EXISTING ||
                       disposition == CERT_STORE_ADD_ALWAYS || disposition == CERT_STORE_ADD_NEWER;
    if (!certificate || !known) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return false;
    }
    return store.Backend()->Add(certificate, disposition);
}

bool CertAddCRLContextToStore(const CertStore& store, const CrlContext& crl) {
    if (!IsSet(store)) return false;
    if (crl) return store.Backend()->AddCrl(crl);
    SetLastError(ERROR_INVALID_PARAMETER);
    return false;
}

bool CertDeleteCertificateFromStore(const CertStore& store, const CertificateContext& certificate) {
    if (!IsSet(store)) return false;
    if (certificate) return store.Backend()->Remove(certificate);
    SetLastError(ERROR_INVALID_PARAMETER);
    return false;
}

}  // namespace platform
