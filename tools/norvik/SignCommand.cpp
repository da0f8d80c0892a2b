#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <list>
#include <memory>

#include "platform/Keys.h"
#include "platform/Stores.h"
#include "platform/System.h"
#include "platform/Text.h"
#include "src/settings/TsaList.h"
#include "src/signing/SignEngine.h"
#include "tools/norvik/Command.h"

namespace cli {
namespace {

using platform::CertificateContext;

struct SignOptions {
    std::vector<std::string> files;
    std::string certificate, tsa, outputFolder;
    bool detached = false, noTsa = false, pinFromStdin = false, derOrder = false, tokens = false;
};

// --- Which certificate ---

// A certificate that says what its key is for must allow signatures (RFC 5280, 4.2.1.3).
bool AllowsSigning(const CertificateContext& certificate) {
    constexpr std::uint16_t digitalSignature = 0x80, nonRepudiation = 0x40;
    const auto usage = platform::CertGetIntendedKeyUsage(certificate);
    return !usage || (*usage & (digitalSignature | nonRepudiation)) != 0;
}

bool IsUsable(const CertificateContext& certificate) {
    return platform::CertVerifyTimeValidity(platform::GetSystemTimeAsFileTime(), certificate) == 0 &&
           AllowsSigning(certificate) && platform::CertHasPrivateKey(certificate);
}

std::vector<CertificateContext> UsableIn(const platform::CertStore& store) {
    auto certificates = platform::CertEnumCertificatesInStore(store);
    std::erase_if(certificates, [](const auto& certificate) { return !IsUsable(certificate); });
    return certificates;
}

// Cards are looked at only when they are wanted or no folder has what is sought: a reader takes its time.
std::vector<CertificateContext> UsableCertificates(bool withTokens) {
    if (!withTokens) {
        std::vector<CertificateContext> found;
        for (const auto location : {platform::StoreLocation::currentUser, platform::StoreLocation::localMachine}) {
            for (auto& certificate : UsableIn(platform::CertOpenSystemStoreAt(location, u"MY", false))) {
                if (std::find(found.begin(), found.end(), certificate) == found.end())
                    found.push_back(std::move(certificate));
            }
        }
        if (!found.empty()) return found;
    }
    return UsableIn(platform::CertOpenSystemStoreW(u"MY"));
}

std::string ListOf(const std::vector<CertificateContext>& certificates) {
    std::string text;
    for (std::size_t i = 0; i < certificates.size(); ++i) {
        const auto line = Describe(certificates[i]);
        text += "  " + std::to_string(i + 1) + ". " + line.subject + " (издател: " + line.issuer + ", до " +
                line.validTo + ")\n     " + line.thumbprint + "\n";
    }
    return text;
}

CertificateContext Choose(const std::vector<CertificateContext>& certificates) {
    const auto list = ListOf(certificates);
    if (!CanAsk()) throw WrongUse("Има няколко сертификата. Посочете един с --certificate ОТПЕЧАТЪК:\n" + list);
    for (;;) {
        const auto answer = AskLine("Изберете сертификат:\n" + list + "Номер: ");
        if (!answer || answer->empty()) throw WrongUse("Не е избран сертификат.");
        const auto number = std::strtoul(answer->c_str(), nullptr, 10);
        if (number >= 1 && number <= certificates.size()) return certificates[number - 1];
    }
}

CertificateContext FindCertificate(const SignOptions& options) {
    if (!options.certificate.empty()) {
        const auto found =
            platform::CertFindBySha1(platform::CertOpenSystemStoreW(u"MY"), Sha1FromThumbprint(options.certificate));
        if (!found) throw std::runtime_error("В хранилището MY няма сертификат с отпечатък " + options.certificate);
        return found;
    }
    const auto usable = UsableCertificates(options.tokens);
    if (usable.empty())
        throw std::runtime_error(
            "Няма валиден сертификат с частен ключ в хранилището MY.\n"
            "Внесете го с: norvik store import ФАЙЛ.p12");
    return usable.size() == 1 ? usable.front() : Choose(usable);
}

// --- Which authority ---

bool LooksLikeUrl(const std::string& text) {
    return text.starts_with("http://") || text.starts_with("https://");
}

std::optional<settings::TsaRecord> FindAuthority(const SignOptions& options) {
    if (options.noTsa) return std::nullopt;
    const auto list = settings::LoadTsaList(nullptr);
    const auto wanted = platform::ToWide(options.tsa);
    for (const auto& record : list) {
        if (options.tsa.empty() ? record.selected : record.title == wanted) return record;
    }
    if (options.tsa.empty()) return std::nullopt;
    if (!LooksLikeUrl(options.tsa)) throw WrongUse("Няма TSA с име „" + options.tsa + "“. Списъкът: norvik tsa list");
    settings::TsaRecord record;
    record.url = record.title = wanted;
    return record;
}

// --- Progress ---

// One line on a terminal for files that take a while.
class ProgressLine {
  public:
    explicit ProgressLine(std::string name) : name_(std::move(name)) {}
    ~ProgressLine() {
        if (shown_ >= 0) std::fputs("\r\033[K", stderr);
    }
    ProgressLine(const ProgressLine&) = delete;
    ProgressLine& operator=(const ProgressLine&) = delete;
    void Show(std::uint64_t done, std::uint64_t total) {
        const int percent = total == 0 ? 100 : static_cast<int>(done * 100 / total);
        if (percent == shown_) return;
        shown_ = percent;
        std::fprintf(stderr, "\r\033[K%s: %d %%", name_.c_str(), percent);
        std::fflush(stderr);
    }

  private:
    std::string name_;
    int shown_ = -1;
};

std::unique_ptr<ProgressLine> ProgressFor(const std::filesystem::path& file) {
    constexpr std::uintmax_t worthShowing = 64u << 20;
    std::error_code error;
    const auto size = std::filesystem::file_size(file, error);
    if (error || size <= worthShowing || isatty(STDERR_FILENO) == 0) return nullptr;
    return std::make_unique<ProgressLine>(file.filename().string());
}

// --- Signing ---

// The engine takes text: a name whose bytes are none would come out as the name of another file.
bool IsText(const std::string& name) {
    return platform::ToUtf8(platform::ToWide(name)) == name;
}

bool SignOne(const std::string& file, const CertificateContext& certificate, const settings::TsaRecord* authority,
             const SignOptions& options) {
    if (!IsText(file)) {
        Fail(file + ": името на файла не е в UTF-8. Преименувайте го и го подпишете отново.");
        return false;
    }
    const auto progress = ProgressFor(file);
    signing::SignExtras extras{.derOrder = options.derOrder, .progress = {}};
    if (progress) extras.progress = [&](std::uint64_t done, std::uint64_t total) { progress->Show(done, total); };
    std::u16string result;
    platform::SetLastError(platform::ERROR_SUCCESS);
    const bool signedNow = signing::SignEngine(platform::ToWide(file), certificate, authority, options.detached, result,
                                               platform::ToWide(options.outputFolder), extras);
    if (signedNow) {
        PrintLine(platform::ToUtf8(result));
        return true;
    }
    const auto why = platform::TokenErrorMessage(platform::GetLastError());
    Fail(file + ": " + (why.empty() ? "не е подписан." : platform::ToUtf8(why)));
    return false;
}

int Sign(const SignOptions& options, ui::TerminalInterface& interface) {
    if (!IsText(options.outputFolder)) throw WrongUse("Името на папката не е в UTF-8: " + options.outputFolder);
    if (options.pinFromStdin) interface.UsePin(ReadSecretLine());
    const auto certificate = FindCertificate(options);
    const auto authority = FindAuthority(options);
    int failed = 0;
    for (const auto& file : options.files) {
        if (SignOne(file, certificate, authority ? &*authority : nullptr, options)) continue;
        ++failed;
        // A wrong PIN must not be tried again for the next file.
        if (interface.PinGiven()) break;
    }
    return failed == 0 ? kDone : kFailed;
}

}  // namespace

void AddSign(CLI::App& norvik, Action& chosen) {
    auto* command = norvik.add_subcommand("sign", "Подписва файлове: ФАЙЛ.p7m с данните вътре или ФАЙЛ.p7s до тях");
    const auto options = std::make_shared<SignOptions>();
    command->add_option("ФАЙЛ", options->files, "Файлове за подписване")->required()->option_text(" ");
    command->add_flag("--detached", options->detached, "Отделен подпис (.p7s) вместо подпис с данните (.p7m)");
    command->add_option("--certificate", options->certificate, "Сертификат от MY по SHA-1 отпечатък")
        ->option_text("ОТПЕЧАТЪК");
    command->add_flag("--tokens", options->tokens,
                      "Предлага и сертификатите от карти; без опцията те се търсят, когато в папките няма годен");
    auto* tsa = command->add_option("--tsa", options->tsa, "Удостоверява времето при TSA от списъка или с този адрес")
                    ->option_text("ИМЕ-ИЛИ-URL");
    command->add_flag("--no-tsa", options->noTsa, "Без удостоверяване на времето, и да има TSA по подразбиране")
        ->excludes(tsa);
    command->add_option("--output-folder", options->outputFolder, "Папка за резултата (по подразбиране: тази на файла)")
        ->option_text("ПАПКА");
    command->add_flag("--pin-stdin", options->pinFromStdin, "Чете ПИН от първия ред на стандартния вход");
    command->add_flag("--der-order", options->derOrder,
                      "Подписаните атрибути в реда на DER, за проверяващи програми, които държат на него");
    command->callback([options, &chosen] {
        chosen = [options](ui::TerminalInterface& interface) { return Sign(*options, interface); };
    });
}

}  // namespace cli
