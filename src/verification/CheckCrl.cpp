#include "src/verification/CheckCrl.h"

#include <algorithm>
#include <iostream>
#include <optional>
#include <stdexcept>

#include "crypt/CryptCertificate.h"
#include "platform/Crls.h"
#include "platform/Download.h"
#include "platform/Files.h"
#include "platform/Hash.h"
#include "platform/System.h"
#include "platform/Text.h"
#include "src/Norvik.h"

namespace verification {
namespace {

using platform::CRYPT_E_NO_REVOCATION_CHECK;
using platform::CRYPT_E_REVOKED;
using tessaly::CertStatusResult;

constexpr std::size_t kShortestUrl = 4;
constexpr std::u16string_view kValid = u"Сертификатът е валиден.";
constexpr std::string_view kReasonCode = "2.5.29.21";

// By CRLReason (RFC 5280, 5.3.1). Long texts go on in a second literal.
// NOLINTBEGIN(bugprone-suspicious-missing-comma)
constexpr std::u16string_view kReasons[] = {
    u"Не е посочена причина за отмяна.",
    u"Известно е или се подозира, че частният ключ на субекта или \nдруги аспекти на темата, валидирани в "
    u"сертификата, са \nкомпрометирани.",
    u"Известно е или се подозира, че частният ключ на \nсертифициращия орган (CA) или други аспекти на CA, валидирани "
    u"\nв сертификата, са компрометирани.\n",
    u"Името на субекта или друга информация в сертификата е \nпроменена, но няма причина да се подозира, че частният "
    u"ключ е \nкомпрометиран.",
    u"Сертификатът е заменен, но няма причина да се подозира, че \nчастният ключ е компрометиран.",
    u"Сертификатът вече не е необходим за целта, за която е \nиздаден, но няма причина да се подозира, че частният "
    u"ключ е \nкомпрометиран.",
    u"Сертификатът е спрян.",
};
// NOLINTEND(bugprone-suspicious-missing-comma)
constexpr std::u16string_view kUnknownReason = u"Не известна причина за спиране.";

CertStatusResult Undecided() {
    return {tessaly::StatusText(CRYPT_E_NO_REVOCATION_CHECK), CRYPT_E_NO_REVOCATION_CHECK};
}

// The reason is read from the first extension whichever it is; authorities put the reason code there.
std::u16string_view ReasonText(const platform::CRL_ENTRY& entry) {
    const platform::Bytes& value = entry.rgExtension.front().Value;
    if (value.empty() || value.back() >= std::size(kReasons)) return kUnknownReason;
    return kReasons[value.back()];
}

CertStatusResult Revoked(const platform::CRL_ENTRY& entry) {
    std::u16string text = u"Сертификатът е отменен на " + tessaly::FormatShortDate(entry.RevocationDate) + u"\n";
    if (std::ranges::find(entry.rgExtension, kReasonCode, &platform::CERT_EXTENSION::pszObjId) !=
        entry.rgExtension.end())
        text.append(u"Причина за прекратяване: ").append(ReasonText(entry)).append(u"\n");
    return {std::move(text), CRYPT_E_REVOKED};
}

platform::ByteView BytesOf(const std::u16string& text) {
    return {reinterpret_cast<const std::uint8_t*>(text.data()), text.size() * sizeof(char16_t)};
}

bool DownloadFile(const std::u16string& url, const std::filesystem::path& path) {
    const auto download = platform::Download(platform::ToUtf8(url));
    switch (download.state) {
        case platform::DownloadResult::State::noHandle:
            throw std::runtime_error("Failed creating CURL easy object");
        case platform::DownloadResult::State::failed:
            std::cerr << "curl_easy_perform() failed: " << download.reason << std::endl;
            return false;
        case platform::DownloadResult::State::done:
            break;
    }
    // Which CRLs a person needs tells with whom they deal.
    (void)platform::WriteWholeFile(path, download.body, 0600);
    return true;
}

platform::CrlContext ReadCrl(platform::ByteView bytes) {
    const auto decoded =
        platform::CryptStringToBinaryA(platform::AsText(bytes), platform::CRYPT_STRING_BASE64X509CRLHEADER);
    return platform::CertCreateCRLContext(decoded ? platform::ByteView(*decoded) : bytes);
}

// Nothing: the CRL of this address does not decide.
std::optional<CertStatusResult> AskUrl(const platform::CertificateContext& certificate, const std::u16string& url,
                                       const std::filesystem::path& workDir) {
    const std::filesystem::path file = workDir / (HashToHex(BytesOf(url), u"SHA256") + u".crl");
    std::error_code error;
    std::filesystem::remove(file, error);
    if (!DownloadFile(url, file)) return std::nullopt;
    const auto bytes = platform::ReadWholeFile(file);
    if (!bytes) return std::nullopt;

    const platform::CrlContext crl = ReadCrl(*bytes);
    const auto info = crl ? platform::CrlInfoOf(crl) : std::nullopt;
    if (!info || platform::CertVerifyCRLTimeValidity(platform::GetSystemTimeAsFileTime(), *info) != 0)
        return std::nullopt;
    std::optional<platform::CRL_ENTRY> entry;
    if (!platform::CertFindCertificateInCRL(certificate, *info, entry)) return Undecided();
    if (!entry) return CertStatusResult{std::u16string(kValid), 0};
    return Revoked(*entry);
}

}  // namespace

std::u16string HashToHex(platform::ByteView data, std::u16string_view algorithm) {
    if (data.empty()) return {};
    const auto known = platform::HashFromName(platform::ToUtf8(algorithm));
    if (!known) platform::SetLastError(platform::NTE_BAD_ALGID);
    const platform::Bytes digest = known ? platform::Digest(*known, data) : platform::Bytes();
    if (!digest.empty()) return tessaly::HexText(digest);
    const auto reason = tessaly::FormatErrorText(platform::GetLastError());
    if (const auto application = CNorvikApp::Current()) application->Interface().ShowMessage({.text = reason});
    return {};
}

CertStatusResult CheckCrl(const platform::CertificateContext& certificate, HashRoutine hashRoutine,
                          const std::filesystem::path& cacheDir, const std::filesystem::path& workDir,
                          const std::u16string& alternateUrl) {
    if (hashRoutine == nullptr || !certificate) return Undecided();
    auto urls = alternateUrl.empty() ? tessaly::CryptCertificate(certificate, true).GetCrlUrls()
                                     : std::vector<std::u16string>{alternateUrl};
    // Without a folder the files would land wherever the application happens to stand.
    if (urls.empty() || workDir.empty()) return Undecided();
    std::error_code error;
    if (!std::filesystem::is_directory(cacheDir, error)) std::filesystem::create_directories(cacheDir, error);
    for (const auto& url : urls) {
        if (url.size() < kShortestUrl || url.find(u"http") == std::u16string::npos) continue;
        if (auto verdict = AskUrl(certificate, url, workDir)) return *verdict;
    }
    return Undecided();
}

}  // namespace verification
