#include <filesystem>

#include "platform/Files.h"
#include "platform/Text.h"
#include "platform/cms/SignedDataReader.h"
#include "src/Norvik.h"
#include "toolkit/CkCrypt2W.h"
#include "toolkit/CkJsonObjectW.h"
#include "toolkit/cms/Findings.h"
#include "toolkit/cms/TextMessage.h"
#include "tools/norvik/Command.h"

namespace cli {
namespace {

namespace fs = std::filesystem;
using toolkit::cms::Findings;
using toolkit::cms::SignerFindings;

struct VerifyOptions {
    std::string file;
    std::optional<std::string> data;
    bool json = false;
};

// Reads the structure alone and steps over the content.
class StructureOnly final : public platform::cms::ContentReceiver {
  public:
    bool Start(const platform::cms::SignedDataMessage&) override { return false; }
    bool Take(platform::ByteView) override { return true; }
};

platform::InputFile OpenForReading(const fs::path& file) {
    auto input = platform::InputFile::Open(file);
    if (!input)
        throw std::runtime_error(file.string() + ": не може да се прочете. " + Explain(platform::GetLastError()));
    return std::move(*input);
}

// What is no message is left to the verification, which tells why.
bool HasNoContent(const fs::path& file) {
    platform::FileSource source(OpenForReading(file));
    const auto decoded = toolkit::cms::LooksLikeText(source) ? toolkit::cms::DecodeText(source) : nullptr;
    StructureOnly receiver;
    platform::cms::SignedDataMessage message;
    const auto outcome = platform::cms::ReadSignedData(decoded ? *decoded : static_cast<platform::ByteSource&>(source),
                                                       receiver, message);
    return outcome == platform::cms::ReadOutcome::ok && !message.content;
}

// The data of a detached signature lie beside it under its name without the last extension, unless they are named.
fs::path DataFor(const VerifyOptions& options) {
    fs::path data = options.data.value_or(fs::path(options.file).replace_extension().string());
    std::error_code error;
    if (!fs::exists(data, error) || data == options.file)
        throw WrongUse("Подписът е отделен, а данните му ги няма" +
                       (data == options.file ? std::string() : ": " + data.string()) + ". Посочете ги с --data ФАЙЛ.");
    OpenForReading(data);
    return data;
}

bool Verify(toolkit::ClsCrypt2& crypt, const VerifyOptions& options) {
    crypt.SetVerboseLogging(true);
    crypt.SetCmsOptions(R"({"ValidateTimestampTokens":true})");
    const bool detached = HasNoContent(options.file) || options.data;
    if (detached) return crypt.VerifyDetachedFile(DataFor(options), options.file);
    return crypt.VerifyFile(options.file);
}

void PrintTimestamp(const toolkit::cms::TimestampFindings& timestamp) {
    std::string line = "   удостоверено време: ";
    line += timestamp.info ? ShownTime(timestamp.info->genTime) : "не се чете";
    if (timestamp.verify && !timestamp.verify->signers.empty() && timestamp.verify->signers.front().certificate)
        line += " от " + Describe(timestamp.verify->signers.front().certificate).subject;
    PrintLine(line + (timestamp.validated ? ", вярно" : ", НЕ Е ВЯРНО"));
}

void PrintSigner(const SignerFindings& signer, std::size_t number) {
    std::string who = "сертификатът не е намерен, сериен номер " + signer.serialNumber;
    if (signer.certificate) {
        const auto line = Describe(signer.certificate);
        who = line.subject + " (издател: " + line.issuer + ", валиден " + line.validFrom + " - " + line.validTo + ")";
    }
    PrintLine("  " + std::to_string(number) + ". " + who);
    PrintLine(std::string("   подпис: ") + (signer.passed ? "верен" : "НЕ Е ВЕРЕН") + ", " + signer.signingAlgName +
              " " + signer.digestAlgName);
    if (!signer.digestMatches) PrintLine("   данните не са тези, които са подписани");
    if (!signer.signingTime.empty())
        PrintLine("   време на подписване според подписалия: " + ShownTime(signer.signingTime));
    for (const auto& attribute : signer.unsignedAttributes) {
        if (attribute.timestamp) PrintTimestamp(*attribute.timestamp);
    }
}

void PrintVerdict(const VerifyOptions& options, bool valid, const Findings* findings) {
    const bool unsignedFile = findings == nullptr || findings->signers.empty();
    PrintLine(options.file + ": " +
              (valid          ? "подписите са верни"
               : unsignedFile ? "НЕ Е ВАЛИДЕН: файлът не е подписан или е повреден"
                              : "НЕ Е ВАЛИДЕН"));
    if (findings != nullptr) {
        std::size_t number = 0;
        for (const auto& signer : findings->signers)
            PrintSigner(signer, ++number);
    }
    PrintLine(valid ? "Проверени са подписите, не и доверието в сертификатите." : WhereDetailsAre());
}

int Run(const VerifyOptions& options) {
    toolkit::CkCrypt2W crypt;
    const bool valid = Verify(crypt.Implementation(), options);
    if (!valid) LogInfo(crypt.lastErrorText());
    if (options.json) {
        const auto json = crypt.LastJsonData();
        if (json) json->put_EmitCompact(false);
        const std::u16string text = json ? json->Emit() : u"{}\r\n";
        std::fputs(platform::ToUtf8(text).c_str(), stdout);
    } else {
        PrintVerdict(options, valid, crypt.Implementation().LastFindings().get());
    }
    return valid ? kDone : kFailed;
}

}  // namespace

void AddVerify(CLI::App& norvik, Action& chosen) {
    auto* command = norvik.add_subcommand("verify", "Проверява подписите на файл и удостоверените им времена");
    const auto options = std::make_shared<VerifyOptions>();
    command->add_option("ФАЙЛ", options->file, "Подписаният файл (.p7m) или отделният подпис (.p7s)")
        ->required()
        ->option_text(" ");
    command->add_option("--data", options->data, "Данните на отделен подпис (по подразбиране: името без .p7s)")
        ->option_text("ФАЙЛ");
    command->add_flag("--json", options->json, "Извежда всичко намерено като JSON");
    command->footer(
        "Проверява се, че подписът е направен над тези данни с ключа на посочения сертификат.\n"
        "Доверието във веригата на сертификата не се преценява тук.");
    command->callback([options, &chosen] { chosen = [options](ui::TerminalInterface&) { return Run(*options); }; });
}

}  // namespace cli
