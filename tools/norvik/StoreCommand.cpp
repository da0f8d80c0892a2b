#include <algorithm>
#include <filesystem>

#include "platform/Files.h"
#include "platform/Keys.h"
#include "platform/Stores.h"
#include "platform/Text.h"
#include "toolkit/CkJsonArrayW.h"
#include "toolkit/CkJsonObjectW.h"
#include "tools/norvik/Command.h"

namespace cli {
namespace {

using platform::CertificateContext;
using platform::CertStore;

platform::CertStore OpenNamed(const std::string& name) {
    auto store = platform::CertOpenSystemStoreW(platform::ToWide(name));
    if (!store) throw WrongUse("Неподходящо име на хранилище: " + name);
    return store;
}

// --- list ---

struct ListOptions {
    std::string store = "MY";
    bool json = false;
};

int PrintJson(const std::vector<CertificateContext>& certificates) {
    toolkit::CkJsonArrayW array;
    array.put_EmitCompact(false);
    for (const auto& certificate : certificates) {
        const auto line = Describe(certificate);
        toolkit::CkJsonObjectW object;
        const std::pair<const char16_t*, const std::string&> texts[] = {{u"Thumbprint", line.thumbprint},
                                                                        {u"Subject", line.subject},
                                                                        {u"Issuer", line.issuer},
                                                                        {u"NotBefore", line.validFrom},
                                                                        {u"NotAfter", line.validTo}};
        for (const auto& [name, text] : texts)
            object.UpdateString(name, platform::ToWide(text).c_str());
        object.UpdateBool(u"PrivateKey", platform::CertHasPrivateKey(certificate));
        array.AddObjectCopyAt(-1, object);
    }
    const std::u16string text = array.Emit();
    std::fputs(platform::ToUtf8(text).c_str(), stdout);
    return kDone;
}

int List(const ListOptions& options) {
    const auto certificates = platform::CertEnumCertificatesInStore(OpenNamed(options.store));
    if (options.json) return PrintJson(certificates);
    if (certificates.empty()) return Fail("В хранилището " + options.store + " няма сертификати.", kDone);
    for (const auto& certificate : certificates) {
        const auto line = Describe(certificate);
        PrintLine(line.thumbprint + "  " + (platform::CertHasPrivateKey(certificate) ? "ключ  " : "      ") +
                  Padded(line.validFrom + " - " + line.validTo, 30) + line.subject + "  (" + line.issuer + ")");
    }
    return kDone;
}

// --- import ---

struct ImportOptions {
    std::string file, store;
    bool passwordFromStdin = false, protect = false;
};

CertStore OpenPfx(const platform::Bytes& bytes, const ImportOptions& options) {
    if (!options.passwordFromStdin) {
        // A file without a password opens without a question.
        if (auto store = platform::PFXImportCertStore(bytes, platform::Secret())) return store;
        if (platform::GetLastError() != platform::ERROR_INVALID_PASSWORD) return {};
    }
    auto password = options.passwordFromStdin ? ReadSecretLine() : ui::ReadHidden("Парола за " + options.file + ": ");
    if (!password) throw WrongUse("Файлът е с парола: подайте я на терминала или с --password-stdin.");
    return platform::PFXImportCertStore(bytes, *password);
}

[[noreturn]] void ThrowUnreadable(const std::string& file) {
    const auto code = platform::GetLastError();
    if (code == platform::ERROR_INVALID_PASSWORD) throw std::runtime_error(file + ": грешна парола.");
    if (code == platform::NTE_BAD_ALGID)
        throw std::runtime_error(file + ": файлът е защитен с алгоритъм, който не се поддържа.");
    throw std::runtime_error(file + ": не е сертификат, CRL или PFX файл, или е повреден.");
}

platform::Secret NewPassphrase(const ImportOptions& options) {
    const bool asked = !options.passwordFromStdin;
    auto first = asked ? ui::ReadHidden("Нова парола за ключа: ") : std::optional(ReadSecretLine());
    if (!first || first->Empty()) throw WrongUse("Не е въведена парола за ключа.");
    if (!asked) return std::move(*first);
    const auto second = ui::ReadHidden("Още веднъж: ");
    if (!second || first->Text() != second->Text()) throw WrongUse("Двете пароли не съвпадат.");
    return std::move(*first);
}

// Certificates with keys are for MY; those that came along with them are for building chains and are trusted by nobody.
std::string StoreFor(const CertificateContext& certificate, bool fromPfx, const ImportOptions& options) {
    if (!options.store.empty()) return options.store;
    return fromPfx && !platform::CertHasPrivateKey(certificate) ? "CA" : "MY";
}

void ImportOne(const CertificateContext& certificate, const std::string& storeName,
               const platform::Secret& passphrase) {
    const auto line = Describe(certificate);
    const bool withKey = storeName == "MY" && platform::CertHasPrivateKey(certificate);
    // A protected key is written first: the store leaves a key that is there already as it is.
    if (withKey && !passphrase.Empty() &&
        !platform::ImportPrivateKey(certificate, platform::ExportPrivateKey(certificate), passphrase))
        throw std::runtime_error(line.subject + ": ключът не може да се запише с парола.");
    // Whoever made the file chose issuer and serial number: nothing that lies there already is replaced for them.
    if (!platform::CertAddCertificateContextToStore(OpenNamed(storeName), certificate, platform::CERT_STORE_ADD_ALWAYS))
        throw std::runtime_error(line.subject + ": не може да се запише в " + storeName + ". " +
                                 Explain(platform::GetLastError()));
    PrintLine(storeName + ": " + line.subject + (withKey ? " (с частен ключ)" : "") + "  " + line.thumbprint);
    if (!withKey && platform::CertHasPrivateKey(certificate))
        Fail("Внимание: частният ключ не е внесен. Ключове се пазят само в MY.");
}

int ImportCrl(const platform::CrlContext& crl, const ImportOptions& options) {
    const std::string name = options.store.empty() ? "CA" : options.store;
    if (!platform::CertAddCRLContextToStore(OpenNamed(name), crl))
        throw std::runtime_error(options.file + ": не може да се запише в " + name + ". " +
                                 Explain(platform::GetLastError()));
    PrintLine(name + ": CRL");
    return kDone;
}

int Import(const ImportOptions& options) {
    constexpr std::uint64_t largest = 256u << 20;
    const auto bytes = platform::ReadWholeFile(options.file, largest);
    if (!bytes)
        throw std::runtime_error(options.file + ": не може да се прочете. " + Explain(platform::GetLastError()));
    const bool isPfx = platform::PFXIsPFXBlob(*bytes);
    const auto source = isPfx ? OpenPfx(*bytes, options) : platform::CertOpenBytesStore(*bytes);
    if (!source) ThrowUnreadable(options.file);
    const bool damaged = !isPfx && platform::GetLastError() != platform::ERROR_SUCCESS;

    const auto certificates = platform::CertEnumCertificatesInStore(source);
    const auto crls = platform::CertEnumCRLsInStore(source);
    if (certificates.empty() && crls.empty()) throw std::runtime_error(options.file + ": няма сертификати.");
    const bool hasKeys = std::ranges::any_of(certificates, platform::CertHasPrivateKey);
    if (options.protect && (!hasKeys || !(options.store.empty() || options.store == "MY")))
        throw WrongUse("--protect е за файлове с частен ключ, които се внасят в MY.");
    const auto passphrase = options.protect ? NewPassphrase(options) : platform::Secret();
    for (const auto& certificate : certificates)
        ImportOne(certificate, StoreFor(certificate, isPfx, options), passphrase);
    for (const auto& crl : crls)
        ImportCrl(crl, options);
    return damaged ? Fail(options.file + ": част от файла е повредена и не е внесена.") : kDone;
}

// --- remove ---

struct RemoveOptions {
    std::string thumbprint, store = "MY";
};

int Remove(const RemoveOptions& options) {
    const auto store = OpenNamed(options.store);
    const auto thumbprint = Sha1FromThumbprint(options.thumbprint);
    const auto certificate = platform::CertFindBySha1(store, thumbprint);
    if (!certificate) throw std::runtime_error("В " + options.store + " няма сертификат " + options.thumbprint);
    if (!platform::CertDeleteCertificateFromStore(store, certificate))
        throw std::runtime_error("Сертификатът не лежи в папка на потребителя и не може да се премахне оттук.");
    if (!platform::CertFindBySha1(store, thumbprint)) return kDone;
    return Fail("Внимание: сертификатът е премахнат от папката на потребителя, но остава в " + options.store +
                    ": има го и на машината или на карта.",
                kDone);
}

}  // namespace

void AddStore(CLI::App& norvik, Action& chosen) {
    auto* command = norvik.add_subcommand("store", "Хранилищата за сертификати: MY, CA, ROOT, Disallowed и други");
    command->require_subcommand(1);

    auto* list = command->add_subcommand("list", "Показва сертификатите на хранилище");
    const auto listOptions = std::make_shared<ListOptions>();
    list->add_option("ИМЕ", listOptions->store, "Име на хранилището (по подразбиране MY)")->option_text(" ");
    list->add_flag("--json", listOptions->json, "Извежда JSON");
    list->callback([listOptions, &chosen] { chosen = [listOptions](auto&) { return List(*listOptions); }; });

    auto* importing =
        command->add_subcommand("import", "Внася сертификати, CRL или PFX с ключове (PEM, DER, PKCS#7, PFX)");
    const auto importOptions = std::make_shared<ImportOptions>();
    importing->add_option("ФАЙЛ", importOptions->file, "Файлът")->required()->option_text(" ");
    importing
        ->add_option("--store", importOptions->store, "Хранилище (по подразбиране MY; издателите от PFX и CRL - CA)")
        ->option_text("ИМЕ");
    importing->add_flag("--password-stdin", importOptions->passwordFromStdin,
                        "Чете паролата на PFX от първия ред на стандартния вход");
    importing->add_flag("--protect", importOptions->protect,
                        "Пази ключа с нова парола (с --password-stdin: вторият ред на входа)");
    importing->callback(
        [importOptions, &chosen] { chosen = [importOptions](auto&) { return Import(*importOptions); }; });

    auto* remove = command->add_subcommand("remove", "Премахва сертификат и ключа му от папката на потребителя");
    const auto removeOptions = std::make_shared<RemoveOptions>();
    remove->add_option("ОТПЕЧАТЪК", removeOptions->thumbprint, "SHA-1 отпечатък")->required()->option_text(" ");
    remove->add_option("--store", removeOptions->store, "Хранилище (по подразбиране MY)")->option_text("ИМЕ");
    remove->callback([removeOptions, &chosen] { chosen = [removeOptions](auto&) { return Remove(*removeOptions); }; });
}

}  // namespace cli
