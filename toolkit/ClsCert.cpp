#include "toolkit/ClsCert.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <charconv>
#include <optional>
#include <string>

#include "platform/Chains.h"
#include "platform/Hash.h"
#include "platform/Keys.h"
#include "platform/Stores.h"
#include "platform/Text.h"
#include "toolkit/cms/PlatformFailure.h"
#include "toolkit/cms/TextMessage.h"

namespace toolkit {

using platform::Bytes;
using platform::CertificateContext;
using platform::CertStore;
using platform::StoreLocation;

namespace {

// In the order in which they are asked.
constexpr std::array<std::u16string_view, 8> kStores{u"MY",
                                                     u"ADDRESSBOOK",
                                                     u"CA",
                                                     u"ROOT",
                                                     u"CertificationAuthority",
                                                     u"AuthRoot",
                                                     u"TrustedPeople",
                                                     u"TrustedPublisher"};

constexpr std::size_t kMd5Size = 16;
constexpr std::size_t kSha1Size = 20;

// Blanks and colons between the digits do not matter. Nothing for anything else that is no digit, and for half a byte.
Bytes DecodeHex(std::string_view text) {
    std::string digits;
    for (const char c : text) {
        if (std::isxdigit(static_cast<unsigned char>(c))) {
            digits.push_back(c);
        } else if (std::string_view(" :\t\r\n").find(c) == std::string_view::npos) {
            return {};
        }
    }
    if (digits.size() % 2 != 0) return {};
    Bytes bytes(digits.size() / 2);
    for (std::size_t i = 0; i < bytes.size(); ++i)
        std::from_chars(&digits[2 * i], &digits[2 * i] + 2, bytes[i], 16);
    return bytes;
}

Bytes DecodeBase64(std::string_view text) {
    platform::MemorySource source(platform::AsBytes(text));
    const auto decoded = cms::DecodeText(source);
    if (!decoded) return {};
    return decoded->Copy(0, static_cast<std::size_t>(decoded->Size())).value_or(Bytes());
}

// Nothing for text that is not in the encoding, so that it fails as a hash of the wrong size.
Bytes DecodeThumbprint(std::string_view text, std::string_view encoding) {
    const auto is = [encoding](std::string_view name) {
        return std::equal(encoding.begin(), encoding.end(), name.begin(), name.end(),
                          [](char a, char b) { return std::tolower(static_cast<unsigned char>(a)) == b; });
    };
    if (is("hex")) return DecodeHex(text);
    if (is("base64")) return DecodeBase64(text);
    return {};
}

CertificateContext FindByHash(const CertStore& store, const Bytes& hash) {
    if (!store) return {};
    if (hash.size() == kSha1Size) return platform::CertFindBySha1(store, hash);
    for (const auto& certificate : platform::CertEnumCertificatesInStore(store)) {
        if (platform::CertGetCertificateContextProperty(certificate, platform::CERT_MD5_HASH_PROP_ID) == hash) {
            return certificate;
        }
    }
    return {};
}

CertificateContext FindInFolders(const Bytes& hash, OperationLog& log) {
    for (const std::u16string_view name : kStores) {
        for (const auto location : {StoreLocation::currentUser, StoreLocation::localMachine}) {
            auto found = FindByHash(platform::CertOpenSystemStoreAt(location, name, false), hash);
            if (!found) continue;
            log.Detail("foundInStore", platform::ToUtf8(name));
            log.Detail("storeLocation", location == StoreLocation::currentUser ? "CurrentUser" : "LocalMachine");
            return found;
        }
    }
    return {};
}

CertificateContext FindAtHost(std::u16string_view name, const Bytes& hash, OperationLog& log) {
    auto found = FindByHash(platform::CertOpenHostStore(name), hash);
    if (found) log.Detail("foundInHostStore", platform::ToUtf8(name));
    return found;
}

// A certificate that lies in a folder without its key may have been copied there from the token that holds the key.
CertificateContext Find(const Bytes& hash, OperationLog& log) {
    auto inFolder = FindInFolders(hash, log);
    if (inFolder && platform::CertHasPrivateKey(inFolder)) return inFolder;
    if (auto onToken = FindAtHost(u"MY", hash, log)) return onToken;
    return inFolder ? inFolder : FindAtHost(u"ROOT", hash, log);
}

}  // namespace

bool ClsCert::LoadByThumbprint(std::string_view thumbprint, std::string_view encoding) {
    Operation operation(*this, "LoadByThumbprint");
    OperationLog& log = operation.Log();
    log.Detail("thumbprint", thumbprint);
    log.Detail("encoding", encoding);
    const Bytes hash = DecodeThumbprint(thumbprint, encoding);
    if (hash.size() != kMd5Size && hash.size() != kSha1Size) {
        log.Line("Hash must be 16 bytes (md5) or 20 bytes (sha1)");
        log.Value("numBytes", std::to_string(hash.size()));
        return false;
    }
    auto found = Find(hash, log);
    if (!found) {
        log.Line("No store has a certificate with this thumbprint.");
        return false;
    }
    certificate_ = std::move(found);
    return operation.Finish(true);
}

void ClsCert::SetCertificate(CertificateContext certificate) {
    const auto lock = Lock();
    certificate_ = std::move(certificate);
}

int ClsCert::CheckRevoked() {
    Operation operation(*this, "CheckRevoked");
    if (!certificate_) {
        operation.Log().Line("No certificate is loaded.");
        return -1;
    }
    const platform::ErrorCode status = platform::CertVerifyRevocation(certificate_);
    if (status == platform::ERROR_SUCCESS || status == platform::CRYPT_E_REVOKED) {
        operation.Finish(true);
        return status == platform::ERROR_SUCCESS ? 0 : 1;
    }
    cms::LogPlatformFailure(operation.Log(), status, "The revocation status of the certificate is not known.");
    return -1;
}

CertificateContext ClsCert::Certificate() const {
    const auto lock = Lock();
    return certificate_;
}

}  // namespace toolkit
