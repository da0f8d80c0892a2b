#include "src/signing/SignEngine.h"

#include <filesystem>

#include "crypt/CryptCertificate.h"
#include "platform/Keys.h"
#include "src/Norvik.h"
#include "toolkit/CkCertW.h"
#include "toolkit/CkCrypt2W.h"
#include "toolkit/CkHttpW.h"
#include "toolkit/CkJsonObjectW.h"
#include "toolkit/CkTrustedRootsW.h"
#include "units/Registry.h"

namespace signing {
namespace {

void Tell(std::u16string text) {
    if (const auto app = CNorvikApp::Current()) app->Interface().ShowMessage({.text = std::move(text)});
}

// Only the exact text "SHA1" selects SHA-1, so that an unknown setting means SHA-256.
const char16_t* HashFromSettings() {
    CRegistry registry;
    registry.Open(u"software\\tessaly\\Tessaly Norvik\\Verification", true);
    return registry.ReadString(u"HashAlg", u"SHA256") == u"SHA1" ? u"sha1" : u"sha256";
}

// The input's extension stays inside: report.pdf gives report.pdf.p7m.
std::filesystem::path OutputPath(std::filesystem::path path, const std::u16string& resultFolder, bool detached) {
    if (!resultFolder.empty()) {
        const std::filesystem::path folder(resultFolder);
        if (!std::filesystem::exists(folder)) std::filesystem::create_directory(folder);
        path = folder / path.filename();
    }
    const auto extension = path.extension().string() + (detached ? ".p7s" : ".p7m");
    return path.replace_extension(extension);
}

void DescribeAttributes(toolkit::CkJsonObjectW& attributes) {
    for (const auto* name :
         {u"contentType", u"signingTime", u"messageDigest", u"signingCertificateV2", u"IssuerAndSerialNumber"})
        attributes.UpdateBool(name, true);
}

void DescribeTimestamp(toolkit::CkJsonObjectW& attributes, const settings::TsaRecord& authority, const char16_t* hash) {
    attributes.UpdateBool(u"timestampToken.enabled", true);
    attributes.UpdateBool(u"timestampToken.addNonce", true);
    attributes.UpdateBool(u"timestampToken.requestTsaCert", true);
    attributes.UpdateString(u"timestampToken.tsaUrl", authority.url.c_str());
    attributes.UpdateString(u"timestampToken.hashAlg", hash);
}

// The signer keeps a share of the client, so this object may go. Half of a user name and password is none.
void UseAuthority(toolkit::CkCrypt2W& crypt, const settings::TsaRecord& authority) {
    toolkit::CkHttpW http;
    if (!authority.username.empty() && !authority.password.empty()) {
        http.put_BasicAuth(true);
        http.put_Login(authority.username.c_str());
        http.put_Password(authority.password.c_str());
    }
    http.put_VerboseLogging(true);
    crypt.SetTsaHttpObj(http);
}

bool ActivateTrustedRoots() {
    toolkit::CkTrustedRootsW roots;
    roots.put_TrustSystemCaRoots(true);
    roots.put_VerboseLogging(true);
    if (roots.Activate()) return true;
    LogInfo(roots.lastErrorText());
    Tell(u"Грешка при зареждане на доверените сертификати!");
    return false;
}

}  // namespace

bool SignEngine(const std::u16string& file, const platform::CertificateContext& certificate,
                const settings::TsaRecord* authority, bool detached, std::u16string& resultFile,
                const std::u16string& resultFolder, const SignExtras& extras) {
    if (!std::filesystem::exists(file)) {
        LogInfo(u"Missing file for signing " + file);
        Tell(u"Файлът за подписване не съществува!!!");
        return false;
    }
    const auto app = CNorvikApp::Current();
    const platform::PinPromptScope pinScope(app->Interface());
    const auto* hash = HashFromSettings();
    toolkit::CkCertW signer;
    if (!signer.LoadByThumbprint(tessaly::CryptCertificate(certificate, true).GetThumbprint().c_str(), u"hex")) {
        Tell(u"Няма намерен сертификат!");
        return false;
    }
    // The text forbids, and yet the signing goes on: the person decides with the knowledge.
    if (signer.CheckRevoked() == 1) Tell(u"Не може да подпишете с прекратен сертификат.");

    toolkit::CkCrypt2W crypt;
    crypt.put_VerboseLogging(true);
    crypt.SetSigningCert(signer);
    crypt.put_HashAlgorithm(hash);
    crypt.put_CadesEnabled(true);
    crypt.put_IncludeCertChain(true);
    crypt.put_DerOrder(extras.derOrder);
    crypt.SetProgress(extras.progress);
    toolkit::CkJsonObjectW attributes;
    DescribeAttributes(attributes);
    if (!ActivateTrustedRoots()) return false;
    if (authority != nullptr) {
        DescribeTimestamp(attributes, *authority, hash);
        UseAuthority(crypt, *authority);
    }
    crypt.put_SigningAttributes(attributes.Emit());

    const auto output = OutputPath(file, resultFolder, detached).u16string();
    const bool signedNow =
        detached ? crypt.CreateP7S(file.c_str(), output.c_str()) : crypt.CreateP7M(file.c_str(), output.c_str());
    if (!signedNow) {
        LogInfo(crypt.lastErrorText());
        Tell(u"Грешка при подписване на файл!\nЗа повече информация може да погледнете log файла.");
        return false;
    }
    resultFile = output;
    return true;
}

}  // namespace signing
