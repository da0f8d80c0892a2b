#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <map>
#include <memory>
#include <set>

#include "platform/Files.h"
#include "platform/Keys.h"
#include "platform/Stores.h"
#include "platform/System.h"
#include "platform/Text.h"
#include "src/Norvik.h"
#include "src/ProgressDlg.h"
#include "src/settings/TsaList.h"
#include "src/signing/SignEngine.h"
#include "tools/norvik/Command.h"

namespace cli {
namespace {

using platform::CertificateContext;

struct SignOptions {
    std::vector<std::string> files;
    std::optional<std::string> certificate, tsa;
    std::string outputFolder;
    bool detached = false, noTsa = false, pinFromStdin = false, derOrder = false, tokens = false, dialog = false;
};

// --- Which certificate ---

// A certificate that says what its key is for must allow signatures (RFC 5280, 4.2.1.3).
bool AllowsSigning(const CertificateContext& certificate) {
    constexpr std::uint16_t digitalSignature = 0x80, nonRepudiation = 0x40;
    const auto usage = platform::CertGetIntendedKeyUsage(certificate);
    return !usage || (*usage & (digitalSignature | nonRepudiation)) != 0;
}

// Why a certificate is not offered; empty if it is.
std::string WhyUnusable(const CertificateContext& certificate) {
    const auto time = platform::CertVerifyTimeValidity(platform::GetSystemTimeAsFileTime(), certificate);
    if (time != 0) return time < 0 ? "още не е валиден" : "с изтекъл срок";
    if (!AllowsSigning(certificate)) return "не е за подписване";
    return platform::CertHasPrivateKey(certificate) ? "" : "без частен ключ";
}

std::vector<CertificateContext> UsableIn(const platform::CertStore& store) {
    auto certificates = platform::CertEnumCertificatesInStore(store);
    std::erase_if(certificates, [](const auto& certificate) { return !WhyUnusable(certificate).empty(); });
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

CertificateContext Choose(const std::vector<CertificateContext>& certificates) {
    std::vector<tessaly::CryptCertificate> offered;
    offered.reserve(certificates.size());
    for (const auto& certificate : certificates)
        offered.emplace_back(certificate, true);
    const auto list = ui::NumberedList(offered);
    if (!CanAsk()) throw WrongUse("Има няколко сертификата. Посочете един с --certificate ОТПЕЧАТЪК:\n" + list);
    for (;;) {
        const auto answer = AskLine("Изберете сертификат:\n" + list + "Номер: ");
        if (!answer || answer->empty()) throw WrongUse("Не е избран сертификат.");
        const auto number = std::strtoul(answer->c_str(), nullptr, 10);
        if (number >= 1 && number <= certificates.size()) return certificates[number - 1];
    }
}

constexpr char kHowToGetAKey[] = "Внесете ключа с: norvik store import ФАЙЛ.p12, или поставете картата.";

// Whoever names a certificate has chosen, and may have a reason that we do not know, but nobody signs without a key.
CertificateContext FindByThumbprint(const std::string& thumbprint) {
    auto found = platform::CertFindBySha1(platform::CertOpenSystemStoreW(u"MY"), Sha1FromThumbprint(thumbprint));
    if (!found)
        throw std::runtime_error("В хранилището MY няма сертификат с отпечатък " + thumbprint + ".\n" + kHowToGetAKey);
    const auto subject = Describe(found).subject;
    if (!platform::CertHasPrivateKey(found))
        throw std::runtime_error("Сертификатът на „" + subject + "“ е без частен ключ.\n" + kHowToGetAKey);
    if (const auto why = WhyUnusable(found); !why.empty()) Fail("Внимание: сертификат „" + subject + "“: " + why + ".");
    return found;
}

[[noreturn]] void ThrowNoneUsable() {
    std::string text = "Няма валиден сертификат с частен ключ в хранилището MY.\n";
    for (const auto& certificate : platform::CertEnumCertificatesInStore(platform::CertOpenSystemStoreW(u"MY"))) {
        const auto line = Describe(certificate);
        text += "  " + line.subject + ": " + WhyUnusable(certificate) + "  " + line.thumbprint + "\n";
    }
    throw std::runtime_error(text + kHowToGetAKey);
}

CertificateContext FindCertificate(const SignOptions& options) {
    if (options.certificate) return FindByThumbprint(*options.certificate);
    const auto usable = UsableCertificates(options.tokens);
    if (usable.empty()) ThrowNoneUsable();
    return usable.size() == 1 ? usable.front() : Choose(usable);
}

// --- Which authority ---

bool LooksLikeUrl(const std::string& text) {
    return text.starts_with("http://") || text.starts_with("https://");
}

std::optional<settings::TsaRecord> FindAuthority(const SignOptions& options) {
    if (options.noTsa) return std::nullopt;
    const auto list = settings::LoadTsaList(nullptr);
    const auto wanted = platform::ToWide(options.tsa.value_or(""));
    for (const auto& record : list) {
        if (options.tsa ? record.title == wanted : record.selected) return record;
    }
    if (!options.tsa) return std::nullopt;
    if (!LooksLikeUrl(*options.tsa)) throw WrongUse("Няма TSA с име „" + *options.tsa + "“. Списъкът: norvik tsa list");
    settings::TsaRecord record;
    record.url = record.title = wanted;
    return record;
}

// --- What the person decides in the window ---

bool IsSignature(const std::string& file) {
    return file.ends_with(".p7m") || file.ends_with(".p7s");
}

std::vector<settings::TsaRecord> OfferedAuthorities(const SignOptions& options) {
    auto list = settings::LoadTsaList(nullptr);
    const auto wanted = FindAuthority(options);
    for (auto& record : list)
        record.selected = wanted && record.title == wanted->title && record.url == wanted->url;
    const bool listed = std::ranges::any_of(list, &settings::TsaRecord::selected);
    if (!wanted || listed) return list;
    list.push_back(*wanted);
    list.back().selected = true;
    return list;
}

// The window starts with what the options say, and what is decided in it holds for all files.
std::optional<ui::SignDecision> AskInWindow(const SignOptions& options) {
    ui::SignQuestion question;
    const auto certificates =
        options.certificate ? std::vector{FindByThumbprint(*options.certificate)} : UsableCertificates(true);
    for (const auto& certificate : certificates)
        question.certificates.emplace_back(certificate, true);
    question.authorities = OfferedAuthorities(options);
    question.detached = options.detached;
    question.showDetachedBox = !std::ranges::all_of(options.files, IsSignature);
    return CNorvikApp::Current()->Interface().AskSign(std::move(question));
}

std::optional<ui::SignDecision> Decide(const SignOptions& options) {
    if (options.dialog) return AskInWindow(options);
    return ui::SignDecision{FindCertificate(options), FindAuthority(options), options.detached};
}

// --- Signing ---

// The engine takes text: a name whose bytes are none would come out as the name of another file.
bool IsText(const std::string& name) {
    return platform::ToUtf8(platform::ToWide(name)) == name;
}

// Two files of one name would leave one result.
void RefuseEqualNames(const SignOptions& options) {
    std::map<std::filesystem::path, std::string> results;
    for (const auto& file : options.files) {
        const std::filesystem::path path(file);
        const auto result = options.outputFolder.empty() ? path.lexically_normal() : path.filename();
        const auto [other, first] = results.emplace(result, file);
        if (!first)
            throw WrongUse(other->second + " и " + file + " биха дали един и същ файл. Подпишете ги поотделно.");
    }
}

// A signature that is to be signed must not be replaced by that of another file first.
void RefuseResultsAmongFiles(const SignOptions& options, bool detached) {
    const auto whole = [](const std::filesystem::path& path) {
        return std::filesystem::absolute(path).lexically_normal();
    };
    const std::filesystem::path folder(options.outputFolder);
    std::set<std::filesystem::path> files;
    for (const auto& file : options.files)
        files.insert(whole(file));
    for (const auto& file : options.files) {
        const std::filesystem::path path(file);
        auto result = options.outputFolder.empty() ? path : folder / path.filename();
        result += detached ? ".p7s" : ".p7m";
        if (files.contains(whole(result)))
            throw WrongUse(result.string() + " е сред файловете, а подписът на " + file +
                           " би го заменил. Подпишете ги поотделно.");
    }
}

void MakeOutputFolder(const std::filesystem::path& folder) {
    std::error_code error;
    if (folder.empty() || std::filesystem::is_directory(folder, error)) return;
    // False without a reason: another process was faster, or a file has the name.
    if (!std::filesystem::create_directory(folder, error) && !std::filesystem::is_directory(folder)) {
        auto code = error ? platform::ErrorFromErrno(error.value()) : platform::ERROR_FILE_EXISTS;
        if (code == platform::ERROR_FILE_NOT_FOUND) code = platform::ERROR_PATH_NOT_FOUND;
        throw std::runtime_error(folder.string() + ": папката не може да се създаде. " +
                                 (code == platform::ERROR_FILE_EXISTS ? "Има файл с това име." : Explain(code)));
    }
}

enum class Outcome { done, failed, stop };

// After these nobody may be asked again by itself: a card counts wrong PINs, and a person who said no meant it.
bool EndsTheRun(platform::ErrorCode code) {
    return code == platform::SCARD_W_WRONG_CHV || code == platform::SCARD_W_CHV_BLOCKED ||
           code == platform::SCARD_E_INVALID_CHV || code == platform::SCARD_W_CANCELLED_BY_USER ||
           code == platform::SCARD_W_REMOVED_CARD || code == platform::ERROR_INVALID_PASSWORD;
}

Outcome SignOne(const std::string& file, const ui::SignDecision& decision, const SignOptions& options) {
    if (!IsText(file)) {
        Fail(file + ": името на файла не е в UTF-8. Преименувайте го и го подпишете отново.");
        return Outcome::failed;
    }
    // What is there but cannot be read is told by its reason; what is not there the engine tells.
    if (!platform::InputFile::Open(file) && platform::GetLastError() != platform::ERROR_FILE_NOT_FOUND) {
        Fail(file + ": не може да се прочете. " + Explain(platform::GetLastError()));
        return Outcome::failed;
    }
    const auto path = platform::ToWide(file);
    std::u16string result;
    platform::SetLastError(platform::ERROR_SUCCESS);
    const bool signedNow = [&] {
        DelayedProgress progress(CNorvikApp::Current()->Interface(), path);
        return signing::SignEngine(
            path, decision.certificate, decision.authority ? &*decision.authority : nullptr, decision.detached, result,
            platform::ToWide(options.outputFolder),
            {options.derOrder, [&](std::uint64_t done, std::uint64_t total) { progress.Update(done, total); }});
    }();
    if (signedNow) {
        PrintLine(platform::ToUtf8(result));
        return Outcome::done;
    }
    const auto why = platform::GetLastError();
    const bool known = why != platform::ERROR_FILE_NOT_FOUND && why != platform::CRYPT_E_NOT_FOUND;
    Fail(file + ": не е подписан." + (known && why != platform::ERROR_SUCCESS ? " " + Explain(why) : ""));
    const bool couldAsk = options.pinFromStdin || options.dialog || CanAsk();
    if (why == platform::SCARD_W_CANCELLED_BY_USER && !couldAsk)
        Fail("Без терминал ПИН кодът се подава с --pin-stdin.");
    return EndsTheRun(why) ? Outcome::stop : Outcome::failed;
}

int Sign(const SignOptions& options, ui::TerminalInterface& interface) {
    if (!IsText(options.outputFolder)) throw WrongUse("Името на папката не е в UTF-8: " + options.outputFolder);
    RefuseEqualNames(options);
    if (options.pinFromStdin) interface.UsePin(ReadSecretLine());
    WarnOfUnreadableSettings();
    if (!options.noTsa) WarnOfDamagedAuthorities();
    const auto decision = Decide(options);
    if (!decision) return Fail("Подписването е отказано.");
    RefuseResultsAmongFiles(options, decision->detached);
    MakeOutputFolder(options.outputFolder);
    int status = kDone;
    for (std::size_t i = 0; i < options.files.size(); ++i) {
        const auto outcome = SignOne(options.files[i], *decision, options);
        if (outcome != Outcome::done) status = kFailed;
        if (outcome != Outcome::stop) continue;
        const auto left = options.files.size() - i - 1;
        if (left > 0) Fail("Останалите файлове не са подписани: " + std::to_string(left) + ".");
        break;
    }
    return status;
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
    auto* pin = command->add_flag("--pin-stdin", options->pinFromStdin, "Чете ПИН от първия ред на стандартния вход");
    command
        ->add_flag("--dialog", options->dialog,
                   "Сертификатът, видът на подписа и TSA се избират в прозорец, веднъж за всички файлове")
        ->excludes(pin);
    command->add_flag("--der-order", options->derOrder,
                      "Подписаните атрибути в реда на DER, за проверяващи програми, които държат на него");
    command->callback([options, &chosen] {
        chosen = {[options](ui::TerminalInterface& interface) { return Sign(*options, interface); }, options->dialog};
    });
}

}  // namespace cli
