#include <algorithm>
#include <cctype>
#include <cstdio>
#include <memory>
#include <vector>

#include "crypt/CryptCertificate.h"
#include "platform/Text.h"
#include "src/Norvik.h"
#include "src/certificates/CertificateReport.h"
#include "src/certificates/PfxSource.h"
#include "src/certificates/Record.h"
#include "tools/norvik/Command.h"

namespace cli {
namespace {

using certificates::CertificateRequest;
using certificates::UpperCaseList;

struct CertificatesOptions {
    std::string store, file;
    std::vector<std::string> thumbprintInclude, thumbprintExclude, authIdInclude, authIdExclude;
    bool passwordFromStdin = false, json = false;
    bool dialog = false, terminal = false;  // where to ask, of select
};

// A person copies identifiers with blanks and colons; an empty one stands for certificates that have none.
std::u16string AuthId(const std::string& text) {
    std::string digits;
    for (const char c : text) {
        if (c == ' ' || c == ':') continue;
        if (std::isxdigit(static_cast<unsigned char>(c)) == 0)
            throw WrongUse("Идентификаторът трябва да е от шестнайсетични цифри: " + text);
        digits += c;
    }
    return platform::ToWide(digits);
}

UpperCaseList Thumbprints(const std::vector<std::string>& texts) {
    UpperCaseList list;
    for (const auto& text : texts)
        list.Add(tessaly::HexText(Sha1FromThumbprint(text)));
    return list;
}

UpperCaseList AuthIds(const std::vector<std::string>& texts) {
    UpperCaseList list;
    for (const auto& text : texts)
        list.Add(AuthId(text));
    return list;
}

CertificateRequest RequestFrom(const CertificatesOptions& options) {
    CertificateRequest request;
    request.filter = {Thumbprints(options.thumbprintExclude), AuthIds(options.authIdExclude),
                      Thumbprints(options.thumbprintInclude), AuthIds(options.authIdInclude)};
    if (options.file.empty()) {
        request.store = platform::ToWide(options.store.empty() ? "MY" : options.store);
    } else {
        request.file = platform::ToWide(options.file);
    }
    if (options.passwordFromStdin) request.password = ReadSecretLine();
    return request;
}

std::string TextOf(toolkit::CkJsonObjectW& record, const char16_t* key) {
    const auto* text = record.StringOf(key);
    return text != nullptr ? platform::OneLineUtf8(text) : std::string();
}

std::string SubjectOf(toolkit::CkJsonObjectW& record) {
    const auto* text = record.StringOf(u"Subject");
    std::u16string line = text != nullptr ? text : u"";
    for (std::size_t end = line.find(u"\r\n"); end != std::u16string::npos; end = line.find(u"\r\n"))
        line.replace(end, 2, u", ");
    return platform::OneLineUtf8(line);
}

void PrintMember(const std::string& title, const std::string& text) {
    if (!text.empty()) PrintLine("  " + Padded(title, 26) + text);
}

void PrintRecord(toolkit::CkJsonObjectW& record) {
    PrintLine(TextOf(record, u"CommonName"));
    PrintMember("Субект", SubjectOf(record));
    PrintMember("Издател", TextOf(record, u"Issuer"));
    PrintMember("Сериен номер", TextOf(record, u"Serial"));
    PrintMember("Валиден от", TextOf(record, u"NotBefore"));
    PrintMember("Валиден до", TextOf(record, u"NotAfter"));
    PrintMember("Отпечатък SHA-1", TextOf(record, u"Thumbprint"));
    PrintMember("Отпечатък SHA-256", TextOf(record, u"ThumbprintSHA256"));
    PrintMember("Алгоритъм на подписа", TextOf(record, u"SignatureAlgorithm"));
    PrintMember("Ключ", TextOf(record, u"KeySize") + " бита");
    PrintMember("Идентификатор на ключа", TextOf(record, u"SubjectKeyId"));
    PrintMember("Идентификатор на издателя", TextOf(record, u"AuthorityKeyId"));
    PrintMember("CRL", TextOf(record, u"CRL[0]"));
    PrintMember("OCSP", TextOf(record, u"OCSP[0]"));
    PrintMember("Употреба", TextOf(record, u"EnhancedKeyUsage[0]"));
    PrintMember("Употреба (задължителна)", TextOf(record, u"EnhancedKeyUsageCritical[0]"));
}

// What there is to say where the core's own words are for programs.
std::string Explain(const CertificatesOptions& options) {
    if (options.file.empty())
        return "В хранилище " + (options.store.empty() ? "MY" : options.store) + " няма сертификати.";
    return options.file +
           ": не може да се прочете, в него няма сертификати или е с парола, която не е дадена (--password-stdin).";
}

// Who asked for JSON is told so in JSON.
bool Collect(const CertificatesOptions& options, toolkit::CkJsonArrayW& records) {
    try {
        return certificates::CollectRecords(RequestFrom(options), records);
    } catch (const certificates::InvalidPassword& failure) {
        if (!options.json) throw std::runtime_error(options.file + ": грешна парола или не е PFX файл.");
        toolkit::CkJsonObjectW object;
        object.UpdateBool(u"Error", true);
        object.UpdateString(u"ErrorMessage", platform::ToWide(failure.what()).c_str());
        records.AddObjectCopyAt(-1, object);
        return false;
    }
}

int Run(const CertificatesOptions& options) {
    toolkit::CkJsonArrayW records;
    records.put_EmitCompact(false);
    const bool done = Collect(options, records);
    if (options.json) {
        const std::u16string text = records.Emit();
        std::fputs(platform::ToUtf8(text).c_str(), stdout);
        return done ? kDone : kFailed;
    }
    if (!done) return Fail(Explain(options));
    if (records.Size() == 0) return Fail("Няма валиден сертификат, който да отговаря на условията.", kDone);
    for (int i = 0; i < records.Size(); ++i) {
        if (i > 0) PrintLine("");
        if (const auto record = records.ObjectAt(i)) PrintRecord(*record);
    }
    return kDone;
}

bool AsksInWindow(const CertificatesOptions& options) {
    return options.dialog || (!options.terminal && !CanAsk());
}

platform::CertificateContext Choose(const CertificatesOptions& options) {
    certificates::GatheredCertificates gathered;
    try {
        gathered = certificates::Gather(RequestFrom(options));
    } catch (const certificates::InvalidPassword&) {
        throw std::runtime_error(options.file + ": грешна парола или не е PFX файл.");
    }
    if (!gathered.failure.empty()) throw std::runtime_error(Explain(options));
    return CNorvikApp::Current()->Interface().AskCertificate(
        {u"Избиране на сертификат ...", std::move(gathered.certificates)});
}

int Select(const CertificatesOptions& options) {
    const auto chosen = Choose(options);
    if (!chosen) return Fail("Не е избран сертификат.");
    toolkit::CkJsonObjectW record;
    record.put_EmitCompact(false);
    if (!certificates::FillRecord(chosen, record)) return Fail(TextOf(record, u"ErrorMessage"));
    if (options.json) {
        std::fputs(platform::ToUtf8(record.Emit()).c_str(), stdout);
    } else {
        PrintRecord(record);
    }
    return kDone;
}

// The sources and filters that both commands have.
void AddSources(CLI::App& command, const std::shared_ptr<CertificatesOptions>& options) {
    auto* store = command.add_option("--store", options->store, "Хранилище (по подразбиране MY)")->option_text("ИМЕ");
    command.add_option("--file", options->file, "Сертификати (PEM, DER, PKCS#7) или PFX (.pfx, .p12)")
        ->option_text("ФАЙЛ")
        ->excludes(store);
    const auto addFilter = [&](const char* name, std::vector<std::string>& values, const char* description) {
        command.add_option(name, values, description)->option_text("ТЕКСТ")->allow_extra_args(false);
    };
    addFilter("--thumbprint-include", options->thumbprintInclude, "Само с този SHA-1 отпечатък (може да се повтаря)");
    addFilter("--thumbprint-exclude", options->thumbprintExclude, "Без този SHA-1 отпечатък (може да се повтаря)");
    addFilter("--auth-id-include", options->authIdInclude,
              "Само с този идентификатор на ключа на издателя (може да се повтаря)");
    addFilter("--auth-id-exclude", options->authIdExclude,
              "Без този идентификатор на ключа на издателя (може да се повтаря)");
    command.add_flag("--password-stdin", options->passwordFromStdin, "Чете паролата на PFX от стандартния вход");
    command.add_flag("--json", options->json, "Извежда записите като JSON");
    command.footer("Изключването има предимство пред включването; достатъчно е едно от двете включвания.");
}

}  // namespace

void AddCertificates(CLI::App& norvik, Action& chosen) {
    auto* command =
        norvik.add_subcommand("certificates", "Описва сертификатите на хранилище или файл, които са валидни сега");
    const auto options = std::make_shared<CertificatesOptions>();
    AddSources(*command, options);
    command->callback([options, &chosen] { chosen = [options](ui::TerminalInterface&) { return Run(*options); }; });
}

void AddSelect(CLI::App& norvik, Action& chosen) {
    auto* command = norvik.add_subcommand("select", "Избира един сертификат от хранилище или файл и го описва");
    const auto options = std::make_shared<CertificatesOptions>();
    AddSources(*command, options);
    auto* dialog = command->add_flag("--dialog", options->dialog, "Пита в прозорец, и да има терминал");
    command
        ->add_flag("--terminal", options->terminal, "Пита на терминала; без опциите - там, ако има, иначе в прозорец")
        ->excludes(dialog);
    command->callback([options, &chosen] {
        chosen = {[options](ui::TerminalInterface&) { return Select(*options); }, AsksInWindow(*options)};
    });
}

}  // namespace cli
