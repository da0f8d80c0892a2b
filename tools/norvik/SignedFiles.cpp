#include "tools/norvik/SignedFiles.h"

#include <algorithm>
#include <filesystem>

#include "platform/Files.h"
#include "platform/Text.h"
#include "platform/cms/SignerInfo.h"
#include "src/Norvik.h"
#include "toolkit/cms/TextMessage.h"
#include "tools/norvik/Command.h"
#include "units/Helpers.h"

namespace cli {
namespace {

namespace fs = std::filesystem;
using toolkit::cms::Findings;
using toolkit::cms::SignerFindings;

std::shared_ptr<platform::ByteSource> OpenForReading(const fs::path& file) {
    auto input = platform::InputFile::Open(file);
    if (!input)
        throw std::runtime_error(file.string() + ": не може да се прочете. " + Explain(platform::GetLastError()));
    return std::make_shared<platform::FileSource>(std::move(*input));
}

std::shared_ptr<platform::ByteSource> OpenData(const std::string& file, const std::optional<std::string>& named) {
    const fs::path data = named ? fs::path(*named) : verification::WithoutExtension(file);
    std::error_code error;
    if (!fs::exists(data, error) || data == file)
        throw WrongUse("Подписът е отделен, а данните му ги няма" +
                       (data == file ? std::string() : ": " + data.string()) + ". Посочете ги с --data ФАЙЛ.");
    return OpenForReading(data);
}

const SignerFindings* SignerAt(const Findings* findings, std::size_t index) {
    return findings != nullptr && index < findings->signers.size() ? &findings->signers[index] : nullptr;
}

bool SignatureHolds(const verification::SignatureEntry& entry, const SignerFindings* findings) {
    return entry.signStatus == 0 && (findings == nullptr || findings->passed);
}

// An algorithm that nobody here knows proves nothing either way, as long as the content is what the signer says.
Verdict SignatureVerdict(const verification::SignatureEntry& entry, const SignerFindings* findings) {
    if (SignatureHolds(entry, findings)) return Verdict::good;
    const bool untried =
        findings != nullptr && findings->unsupported && entry.signStatus != platform::CRYPT_E_HASH_VALUE;
    return untried ? Verdict::unchecked : Verdict::bad;
}

bool HoldsTimestamps(const toolkit::cms::AttributeFindings& attribute) {
    return attribute.oid == platform::cms::oid::kTimestampToken;
}

// An attribute for tokens that holds none promises a time that nobody vouches for.
bool TimestampsHold(const SignerFindings& findings) {
    return std::ranges::all_of(findings.unsignedAttributes, [](const auto& attribute) {
        const auto& tokens = attribute.timestamps;
        return !HoldsTimestamps(attribute) ||
               (!tokens.empty() && std::ranges::all_of(tokens, &toolkit::cms::TimestampFindings::validated));
    });
}

JudgedFile JudgeWith(const std::string& file, const std::function<std::shared_ptr<platform::ByteSource>()>& openData,
                     bool alwaysBeside) {
    JudgedFile judged{.name = file, .message = OpenMessage(file)};
    try {
        judged.findings = verification::VerifyMessage(
            {.message = judged.message, .openData = openData, .alwaysBeside = alwaysBeside, .emptyIsContent = true},
            judged.entries);
        judged.verdict = VerdictOn(judged.entries, judged.findings.get());
    } catch (const verification::MessageFault& fault) {
        judged.fault = FaultText(fault);
        // Who has the certificate can still find the signature good.
        const bool noneBad = judged.entries.empty() || VerdictOn(judged.entries, nullptr) != Verdict::bad;
        if (fault.Code() == platform::CRYPT_E_SIGNER_NOT_FOUND && noneBad) judged.verdict = Verdict::unchecked;
        LogError(units::WideFromWhat(fault.what()));
    }
    return judged;
}

std::string Word(Verdict verdict) {
    switch (verdict) {
        case Verdict::good:
            return "верен";
        case Verdict::unchecked:
            return "НЕ Е ПРОВЕРЕН";
        case Verdict::bad:
            break;
    }
    return "НЕ Е ВЕРЕН";
}

Verdict CertificateVerdict(const verification::SignatureEntry& entry) {
    switch (tessaly::ClassifyStatus(entry.certStatus)) {
        case tessaly::StatusClass::valid:
            return Verdict::good;
        case tessaly::StatusClass::unverified:
            return Verdict::unchecked;
        case tessaly::StatusClass::invalid:
            break;
    }
    return Verdict::bad;
}

std::string SignatureLine(const verification::SignatureEntry& entry, const SignerFindings* findings) {
    const auto verdict = SignatureVerdict(entry, findings);
    std::string line = "   подпис: " + Word(verdict);
    if (findings != nullptr) line += ", " + findings->signingAlgName + " " + findings->digestAlgName;
    line += ", " + platform::ToUtf8(entry.profile) + "\n";
    if (verdict == Verdict::good) return line;
    if (entry.signStatus != 0) line += "   " + platform::ToUtf8(entry.signMessage) + "\n";
    if (entry.signStatus == platform::CRYPT_E_HASH_VALUE) line += "   данните не са тези, които са подписани\n";
    if (findings != nullptr && findings->unsupported)
        line += "   алгоритъмът на подписа не се поддържа и подписът не може да се провери\n";
    return line;
}

std::string CertificateLines(const verification::SignatureEntry& entry) {
    const auto verdict = CertificateVerdict(entry);
    std::string lines = "   сертификат: " + Word(verdict);
    if (verdict != Verdict::good) lines += ": " + platform::OneLineUtf8(entry.certMessage);
    lines += "\n";
    if (entry.certTimeValidity > 0) lines += "   срокът на сертификата е изтекъл\n";
    if (entry.certTimeValidity < 0) lines += "   срокът на сертификата още не е започнал\n";
    return lines;
}

std::string TimestampLine(const toolkit::cms::TimestampFindings& timestamp) {
    std::string line = "   удостоверено време: ";
    line += timestamp.info ? ShownTime(timestamp.info->genTime) : "не се чете";
    if (timestamp.verify && !timestamp.verify->signers.empty() && timestamp.verify->signers.front().certificate)
        line += " от " + Describe(timestamp.verify->signers.front().certificate).subject;
    return line + (timestamp.validated ? ", вярно\n" : ", НЕ Е ВЯРНО\n");
}

std::string TimeLines(const verification::SignatureEntry& entry, const SignerFindings* findings) {
    const auto claimed = findings != nullptr && !findings->signingTime.empty()
                             ? ShownTime(findings->signingTime)
                             : platform::ToUtf8(entry.signingTimeText);
    std::string lines;
    if (!claimed.empty()) lines += "   време на подписване според подписалия: " + claimed + "\n";
    if (findings == nullptr) return lines;
    for (const auto& attribute : findings->unsignedAttributes) {
        for (const auto& token : attribute.timestamps)
            lines += TimestampLine(token);
        if (HoldsTimestamps(attribute) && attribute.timestamps.empty())
            lines += "   удостоверено време: липсва, НЕ Е ВЯРНО\n";
    }
    return lines;
}

std::string SignerBlock(const verification::SignatureEntry& entry, const SignerFindings* findings, std::size_t number) {
    const auto who = Describe(entry.certificate->Context());
    std::string block = "  " + std::to_string(number) + ". " + who.subject + " (издател: " + who.issuer + ", валиден " +
                        who.validFrom + " - " + who.validTo + ")\n";
    block += SignatureLine(entry, findings) + CertificateLines(entry) + TimeLines(entry, findings);
    if (!entry.comment.empty()) block += "   коментар: " + platform::OneLineUtf8(entry.comment) + "\n";
    return block;
}

std::string FileLine(const JudgedFile& file) {
    if (!file.fault.empty())
        return (file.verdict == Verdict::unchecked ? "НЕ Е ПРОВЕРЕН: " : "НЕ Е ВАЛИДЕН: ") + file.fault;
    switch (file.verdict) {
        case Verdict::good:
            return "подписите са верни";
        case Verdict::unchecked:
            return SignedByAll(file)
                       ? "НЕ Е ПРОВЕРЕН: подписите отговарят на данните, но не всеки сертификат можа да бъде проверен"
                       : "НЕ Е ПРОВЕРЕН: не всеки подпис можа да бъде проверен";
        case Verdict::bad:
            break;
    }
    return "НЕ Е ВАЛИДЕН";
}

}  // namespace

// Text that does not decode is left to the reader of messages, which tells why it is none.
std::shared_ptr<platform::ByteSource> OpenMessage(const fs::path& file) {
    auto source = OpenForReading(file);
    if (!toolkit::cms::LooksLikeText(*source)) return source;
    std::shared_ptr<platform::ByteSource> decoded = toolkit::cms::DecodeText(*source);
    return decoded ? decoded : source;
}

int StatusOf(Verdict verdict) {
    switch (verdict) {
        case Verdict::good:
            return kDone;
        case Verdict::unchecked:
            return kUnchecked;
        case Verdict::bad:
            break;
    }
    return kFailed;
}

std::string FaultText(const verification::MessageFault& fault) {
    switch (fault.Code()) {
        case platform::CRYPT_E_SIGNER_NOT_FOUND:
            return "сертификатът на подписалия не е във файла";
        case platform::CRYPT_E_NO_SIGNER:
            return "във файла няма подписи";
        case platform::CRYPT_E_NOT_FOUND:
            return "подписът е отделен, във файла няма данни";
        case platform::CRYPT_E_UNEXPECTED_MSG_TYPE:
            return "файлът не е подписан: съдържанието му е от друг вид, например шифрирано";
        case platform::ERROR_HANDLE_EOF:
        case platform::ERROR_READ_FAULT:
            return Explain(fault.Code());
        default:
            return "файлът не е подписан или е повреден";
    }
}

JudgedFile Judge(const std::string& file, const std::optional<std::string>& data) {
    return JudgeWith(
        file, [&] { return OpenData(file, data); }, data.has_value());
}

JudgedFile JudgeAttached(const std::string& file) {
    const auto refuse = [&]() -> std::shared_ptr<platform::ByteSource> {
        throw std::runtime_error(file + ": подписът е отделен, във файла няма данни.");
    };
    return JudgeWith(file, refuse, false);
}

Verdict VerdictOn(const verification::SignatureEntry& entry, const SignerFindings* findings) {
    if (findings != nullptr && !TimestampsHold(*findings)) return Verdict::bad;
    return std::max(SignatureVerdict(entry, findings), CertificateVerdict(entry));
}

Verdict VerdictOn(const verification::SignatureEntries& entries, const Findings* findings) {
    if (entries.empty()) return Verdict::bad;
    auto worst = Verdict::good;
    for (std::size_t i = 0; i < entries.size(); ++i)
        worst = std::max(worst, VerdictOn(entries[i], SignerAt(findings, i)));
    return worst;
}

bool SignedByAll(const JudgedFile& file) {
    if (!file.fault.empty() || file.entries.empty()) return false;
    for (std::size_t i = 0; i < file.entries.size(); ++i) {
        if (!SignatureHolds(file.entries[i], SignerAt(file.findings.get(), i))) return false;
    }
    return true;
}

std::string VerdictBlock(const JudgedFile& file) {
    std::string block = file.name + ": " + FileLine(file) + "\n";
    for (std::size_t i = 0; i < file.entries.size(); ++i)
        block += SignerBlock(file.entries[i], SignerAt(file.findings.get(), i), i + 1);
    // What could not even be opened has told all there is to say.
    if (file.message && !SignedByAll(file)) block += WhereDetailsAre() + "\n";
    return block;
}

}  // namespace cli
