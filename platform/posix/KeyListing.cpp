// The keys of a provider: the user's files, a PKCS#11 module or a token.

#include <algorithm>

#include "platform/Text.h"
#include "platform/posix/SoftwareKey.h"
#include "platform/posix/Token.h"
#include "platform/posix/TokenFault.h"

namespace platform {
namespace {

using posix::Pkcs11Module;
using posix::Pkcs11Modules;
using posix::TokenKeyObject;
using posix::TokenSlot;

std::u16string NameOf(KeyAlgorithm algorithm) {
    switch (algorithm) {
        case KeyAlgorithm::rsa:
            return u"RSA";
        case KeyAlgorithm::ecdsa:
            return u"ECDSA";
        case KeyAlgorithm::dsa:
            return u"DSA";
    }
    return {};
}

std::u16string NameOfKeyType(CK_ULONG type) {
    if (type == CKK_RSA) return NameOf(KeyAlgorithm::rsa);
    return NameOf(type == CKK_EC ? KeyAlgorithm::ecdsa : KeyAlgorithm::dsa);
}

std::vector<NCryptKeyName> SoftwareKeys() {
    std::vector<NCryptKeyName> names;
    const auto store = CertOpenSystemStoreAt(StoreLocation::currentUser, u"MY", false);
    for (const auto& certificate : CertEnumCertificatesInStore(store)) {
        if (!CertHasPrivateKey(certificate)) continue;
        const auto algorithm = posix::AlgorithmOf(posix::PublicKeyOf(certificate));
        names.push_back({ToWide(posix::KeyFileIn({}, certificate).stem().string()),
                         algorithm ? NameOf(*algorithm) : std::u16string(), certificate});
    }
    return names;
}

std::u16string NameOfTokenKey(const TokenKeyObject& key) {
    if (!key.label.empty()) return ToWide(key.label);
    static constexpr char16_t kDigits[] = u"0123456789abcdef";
    std::u16string text;
    for (const std::uint8_t byte : key.id) {
        text += kDigits[byte >> 4];
        text += kDigits[byte & 15];
    }
    return text;
}

CertificateContext CertificateOf(const posix::Pkcs11Session& session, const TokenKeyObject& key) {
    CK_OBJECT_CLASS objectClass = CKO_CERTIFICATE;
    CK_ATTRIBUTE wanted{CKA_CLASS, &objectClass, sizeof objectClass};
    const auto handles = session.Find({&wanted, 1});
    if (!handles) return {};
    for (const CK_OBJECT_HANDLE handle : *handles) {
        auto certificate = CertCreateCertificateContext(session.Attribute(handle, CKA_VALUE));
        const bool matches = posix::NativeOf(certificate) != nullptr &&
                             MatchKey(certificate, session.Attribute(handle, CKA_ID), key) != posix::KeyMatch::no;
        if (matches) return certificate;
    }
    return {};
}

// A key pair shows as one key, also where only its public half is visible before login.
void AddKeysOf(const TokenSlot& token, std::vector<NCryptKeyName>& names) {
    const auto session = posix::Pkcs11Session::Open(token);
    if (!session) return;
    const auto held = posix::TokenLogin::HoldLogouts();
    auto keys = KeysOf(*session);
    if (!keys) return;
    std::vector<TokenKeyObject> listed;
    for (TokenKeyObject& key : *keys) {
        const bool known = std::ranges::any_of(listed, [&](const TokenKeyObject& other) {
            return other.isPrivate != key.isPrivate && !key.id.empty() && other.id == key.id && other.type == key.type;
        });
        if (known) continue;
        names.push_back({NameOfTokenKey(key), NameOfKeyType(key.type), CertificateOf(*session, key)});
        listed.push_back(std::move(key));
    }
}

// Whether the name stands for the whole module.
bool IsNamed(const Pkcs11Module& module, const std::string& provider) {
    return module.name == provider || module.file == provider || module.file.filename() == provider;
}

// False if no module or token has that name.
bool AddTokenKeys(const std::shared_ptr<const Pkcs11Modules>& modules, const std::string& provider,
                  std::vector<NCryptKeyName>& names) {
    bool found = false;
    for (const Pkcs11Module& module : modules->List()) {
        const bool whole = IsNamed(module, provider);
        found = found || whole;
        for (const TokenSlot& token : TokensOf(modules, module)) {
            if (!whole && token.label != provider) continue;
            found = true;
            AddKeysOf(token, names);
        }
    }
    return found;
}

}  // namespace

std::vector<NCryptKeyName> NCryptEnumKeys(std::u16string_view provider) {
    posix::ForgetTokenFault();
    std::vector<NCryptKeyName> names;
    if (provider.empty()) {
        names = SoftwareKeys();
        SetLastError(NTE_NO_MORE_ITEMS);
        return names;
    }
    const std::string name = ToUtf8(provider);
    auto modules = Pkcs11Modules::Load();
    bool found = modules && AddTokenKeys(modules, name, names);
    std::error_code ignored;
    if (!found && name.starts_with('/') && std::filesystem::is_regular_file(name, ignored)) {
        modules = Pkcs11Modules::LoadFile(name);
        if (!modules) return {};
        for (const Pkcs11Module& module : modules->List())
            for (const TokenSlot& token : TokensOf(modules, module))
                AddKeysOf(token, names);
        found = true;
    }
    SetLastError(found ? NTE_NO_MORE_ITEMS : NTE_KEYSET_NOT_DEF);
    return names;
}

}  // namespace platform
