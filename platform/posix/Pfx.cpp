// PFX files (RFC 7292), read by ourselves: the certificates keep their exact bytes, BER is read too, and each reason
// why nothing comes out is told apart.

#include <algorithm>

#include "platform/Stores.h"
#include "platform/posix/Ber.h"
#include "platform/posix/Native.h"
#include "platform/posix/PfxCrypto.h"
#include "platform/posix/SoftwareKey.h"

namespace platform {
namespace {

using posix::BerReader;

constexpr std::string_view kData = "1.2.840.113549.1.7.1", kSignedData = "1.2.840.113549.1.7.2",
                           kEncryptedData = "1.2.840.113549.1.7.6", kBags = "1.2.840.113549.1.12.10.1.",
                           kX509Certificate = "1.2.840.113549.1.9.22.1", kFriendlyName = "1.2.840.113549.1.9.20";
// Safes in safes: nobody nests them, but the format has it.
constexpr int kMaximumDepth = 4;

struct PfxFile {
    std::string type;  // of the authenticated safe
    ByteView safe;     // its content, tagged [0]
    std::optional<posix::PfxMac> mac;
};

// What the bags held.
struct PfxContent {
    struct Entry {
        CertificateContext certificate;
        Bytes friendlyName;  // UTF-16BE, empty if none
    };
    struct Key {
        std::shared_ptr<PrivateKey::Impl> key;
        Bytes friendlyName;
        bool used = false;
    };
    std::vector<Entry> certificates;
    std::vector<Key> keys;
    std::size_t undecodedKeys = 0;
};

// MacData.
std::optional<posix::PfxMac> ReadMac(ByteView content) {
    BerReader reader(content);
    const auto info = reader.Next(posix::kBerSequence);
    if (!info) return std::nullopt;
    BerReader inside(info->content);
    const auto algorithm = inside.Next(posix::kBerSequence);
    const auto digest = algorithm ? inside.Next(posix::kBerOctetString) : std::nullopt;
    const auto salt = digest ? reader.Next(posix::kBerOctetString) : std::nullopt;
    if (!salt) return std::nullopt;
    posix::PfxMac mac{algorithm->whole, CopyOf(digest->content), CopyOf(salt->content), 1};
    if (!reader.AtEnd()) {
        const auto iterations = posix::ReadUnsigned(reader);
        if (!iterations || !reader.AtEnd()) return std::nullopt;
        mac.iterations = *iterations;
    }
    return mac;
}

std::optional<PfxFile> ReadPfx(ByteView bytes) {
    const auto sequence = posix::ReadSingleElement(bytes, posix::kBerSequence);
    if (!sequence) return std::nullopt;
    BerReader reader(sequence->content);
    const auto version = posix::ReadUnsigned(reader);
    if (!version || *version != 3) return std::nullopt;
    const auto contentInfo = reader.Next(posix::kBerSequence);
    if (!contentInfo) return std::nullopt;
    BerReader inside(contentInfo->content);
    PfxFile file;
    auto type = posix::ReadOid(inside);
    const auto content = type ? inside.Next(posix::BerContext(0)) : std::nullopt;
    if (!content) return std::nullopt;
    file.type = std::move(*type);
    file.safe = content->content;
    if (reader.AtEnd()) return file;
    const auto mac = reader.Next(posix::kBerSequence);
    if (!mac || !reader.AtEnd()) return std::nullopt;
    file.mac = ReadMac(mac->content);
    return file.mac ? std::optional(std::move(file)) : std::nullopt;
}

// Reads the bags of one PFX. A failing call leaves the last error; what is merely of no use here is passed over.
class BagReader {
  public:
    BagReader(posix::PfxCrypto& crypto, posix::PfxPassword& password) : crypto_(crypto), password_(password) {}

    // AuthenticatedSafe: SEQUENCE OF ContentInfo.
    bool ReadSafes(ByteView der) {
        const auto sequence = posix::ReadSingleElement(der, posix::kBerSequence);
        if (!sequence) return false;
        for (BerReader reader(sequence->content); !reader.AtEnd();) {
            const auto contentInfo = reader.Next(posix::kBerSequence);
            if (!contentInfo || !ReadSafe(contentInfo->content)) return false;
        }
        return true;
    }
    PfxContent& Content() { return content_; }

  private:
    bool ReadSafe(ByteView contentInfo) {
        BerReader reader(contentInfo);
        const auto type = posix::ReadOid(reader);
        const auto content = type ? reader.Next(posix::BerContext(0)) : std::nullopt;
        if (!content) return false;
        if (*type == kData) {
            const auto octets = DecodeOctetString(content->content);
            return octets && ReadBags(*octets, 0);
        }
        if (*type == kEncryptedData) return ReadEncrypted(content->content);
        posix::LogHost("PFX: a part is protected in a way that is not read here: " + *type);
        SetLastError(NTE_BAD_ALGID);
        return false;
    }

    // EncryptedData (RFC 5652, 8).
    bool ReadEncrypted(ByteView der) {
        const auto sequence = posix::ReadSingleElement(der, posix::kBerSequence);
        if (!sequence) return false;
        BerReader outer(sequence->content);
        if (!posix::ReadUnsigned(outer)) return false;
        const auto info = outer.Next(posix::kBerSequence);
        if (!info) return false;
        BerReader reader(info->content);
        if (!posix::ReadOid(reader)) return false;
        const auto algorithm = reader.Next(posix::kBerSequence);
        const auto content = algorithm ? reader.Next() : std::nullopt;
        if (!content || (content->identifier & ~0x20) != posix::BerContextPrimitive(0)) return false;
        const auto cipherText = posix::OctetsOf(*content);
        if (!cipherText) return false;
        const auto plain = crypto_.Decrypt(algorithm->whole, *cipherText, password_);
        return plain && ReadBags(plain->View(), 0);
    }

    // SafeContents.
    bool ReadBags(ByteView der, int depth) {
        const auto sequence = posix::ReadSingleElement(der, posix::kBerSequence);
        if (!sequence) return false;
        for (BerReader reader(sequence->content); !reader.AtEnd();) {
            const auto bag = reader.Next(posix::kBerSequence);
            if (!bag || !ReadBag(bag->content, depth)) return false;
        }
        return true;
    }

    bool ReadBag(ByteView bag, int depth) {
        BerReader reader(bag);
        const auto id = posix::ReadOid(reader);
        const auto value = id ? reader.Next(posix::BerContext(0)) : std::nullopt;
        if (!value) return false;
        const Bytes name = FriendlyName(reader);
        if (!id->starts_with(kBags)) return true;
        const std::string_view kind = std::string_view(*id).substr(kBags.size());
        if (kind == "1") return AddKey(value->content, name);
        if (kind == "2") return ReadShroudedKey(value->content, name);
        if (kind == "3") return ReadCertificate(value->content, name);
        if (kind == "6" && depth < kMaximumDepth) return ReadBags(value->content, depth + 1);
        return true;  // CRLs, secrets and what others may have put there
    }

    static Bytes FriendlyName(BerReader& reader) {
        if (!reader.NextIs(posix::kBerSet)) return {};
        const auto attributes = reader.Next();
        if (!attributes) return {};
        for (BerReader each(attributes->content); !each.AtEnd();) {
            const auto attribute = each.Next(posix::kBerSequence);
            if (!attribute) return {};
            BerReader inside(attribute->content);
            const auto id = posix::ReadOid(inside);
            const auto values = id && *id == kFriendlyName ? inside.Next(posix::kBerSet) : std::nullopt;
            if (!values) continue;
            BerReader value(values->content);
            const auto text = value.Next(posix::kBerBmpString);
            return text ? CopyOf(text->content) : Bytes();
        }
        return {};
    }

    bool ReadCertificate(ByteView der, const Bytes& name) {
        const auto sequence = posix::ReadSingleElement(der, posix::kBerSequence);
        if (!sequence) return false;
        BerReader reader(sequence->content);
        const auto type = posix::ReadOid(reader);
        const auto value = type ? reader.Next(posix::BerContext(0)) : std::nullopt;
        if (!value) return false;
        if (*type != kX509Certificate) return true;
        const auto octets = DecodeOctetString(value->content);
        if (!octets) return false;
        auto certificate = CertCreateCertificateContext(*octets);
        if (!certificate) {
            posix::LogHost("PFX: a certificate does not decode and is left out.");
            return true;
        }
        const bool held = std::ranges::any_of(
            content_.certificates, [&](const PfxContent::Entry& entry) { return entry.certificate == certificate; });
        if (!held) content_.certificates.push_back({std::move(certificate), name});
        return true;
    }

    // EncryptedPrivateKeyInfo (RFC 5208, 6).
    bool ReadShroudedKey(ByteView der, const Bytes& name) {
        const auto sequence = posix::ReadSingleElement(der, posix::kBerSequence);
        if (!sequence) return false;
        BerReader reader(sequence->content);
        const auto algorithm = reader.Next(posix::kBerSequence);
        const auto cipherText = algorithm ? DecodeOctetString(reader.Rest()) : std::nullopt;
        if (!cipherText) return false;
        const auto plain = crypto_.Decrypt(algorithm->whole, *cipherText, password_);
        return plain && AddKey(plain->View(), name);
    }

    // A key of a kind that does not sign here leaves its certificate without one.
    bool AddKey(ByteView pkcs8, const Bytes& name) {
        auto native = posix::ReadPkcs8(pkcs8);
        auto key = native ? posix::MakeMemoryKey(std::move(native)) : nullptr;
        posix::DrainErrorQueue();
        if (key) {
            content_.keys.push_back({std::move(key), name});
        } else {
            ++content_.undecodedKeys;
            posix::LogHost("PFX: a private key is of a kind that is not used here, or does not decode.");
        }
        return true;
    }

    posix::PfxCrypto& crypto_;
    posix::PfxPassword& password_;
    PfxContent content_;
};

// UTF-16LE with terminator, as the property has it.
Bytes AsProperty(const Bytes& bigEndian) {
    Bytes value;
    value.reserve(bigEndian.size() + 2);
    for (std::size_t i = 0; i + 1 < bigEndian.size(); i += 2)
        value.insert(value.end(), {bigEndian[i + 1], bigEndian[i]});
    value.insert(value.end(), {0, 0});
    return value;
}

// Keys belong to the certificates that have their public key, whatever the identifiers in the file say.
CertStore MakeStore(PfxContent& content) {
    CertStore store = CertOpenMemoryStore();
    for (const auto& entry : content.certificates) {
        const auto found = std::ranges::find_if(content.keys, [&](const PfxContent::Key& key) {
            return posix::IsKeyOf(entry.certificate, key.key->PublicKeyInfo());
        });
        const bool keyed = found != content.keys.end();
        if (keyed) found->used = true;
        const auto certificate = posix::WithOwnState(entry.certificate, keyed ? found->key : nullptr);
        const Bytes& name = entry.friendlyName.empty() && keyed ? found->friendlyName : entry.friendlyName;
        if (!name.empty()) CertSetCertificateContextProperty(certificate, CERT_FRIENDLY_NAME_PROP_ID, AsProperty(name));
        CertAddCertificateContextToStore(store, certificate, CERT_STORE_ADD_ALWAYS);
    }
    const auto unused = std::ranges::count_if(content.keys, [](const PfxContent::Key& key) { return !key.used; });
    if (unused > 0) posix::LogHost("PFX: " + std::to_string(unused) + " private keys have no certificate.");
    return store;
}

CertStore Fail(ErrorCode error) {
    SetLastError(error);
    return {};
}

}  // namespace

bool PFXIsPFXBlob(ByteView bytes) {
    const bool shaped = ReadPfx(bytes).has_value();
    if (!shaped) SetLastError(CRYPT_E_BAD_ENCODE);
    return shaped;
}

CertStore PFXImportCertStore(ByteView pfx, const Secret& password) {
    const auto file = ReadPfx(pfx);
    if (!file) return Fail(CRYPT_E_BAD_ENCODE);
    if (file->type != kData) {
        // Sealed with somebody's signature instead of a password (RFC 7292, 3.1): nobody makes those.
        return Fail(file->type == kSignedData ? NTE_BAD_ALGID : CRYPT_E_BAD_ENCODE);
    }
    const auto safes = DecodeOctetString(file->safe);
    if (!safes) return Fail(CRYPT_E_BAD_ENCODE);

    posix::PfxCrypto crypto;
    posix::PfxPassword forms(password);
    const ErrorCode mac = file->mac ? crypto.VerifyMac(*file->mac, *safes, forms) : ERROR_SUCCESS;
    if (mac != ERROR_SUCCESS) return Fail(mac);
    BagReader bags(crypto, forms);
    if (!bags.ReadSafes(*safes)) {
        if (GetLastError() == NTE_BAD_ALGID) return {};
        // Without a MAC nothing tells a wrong password from damage; the first is what happens.
        const bool encrypted = !file->mac && crypto.FailedToDecrypt();
        return Fail(encrypted ? ERROR_INVALID_PASSWORD : CRYPT_E_BAD_ENCODE);
    }
    PfxContent& content = bags.Content();
    if (content.certificates.empty() && content.keys.empty() && content.undecodedKeys == 0)
        return Fail(CRYPT_E_BAD_ENCODE);
    return MakeStore(content);
}

}  // namespace platform
