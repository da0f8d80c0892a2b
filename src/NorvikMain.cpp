// The exported functions: shells of a few lines, nothing else.

#include "norvik/norvik.h"
#include "platform/System.h"
#include "src/EntryFrame.h"
#include "src/Norvik.h"
#include "src/certificates/CertificateReport.h"
#include "src/certificates/KeyListing.h"
#include "src/certificates/KeyProbe.h"
#include "src/certificates/Selection.h"
#include "src/signing/Relay.h"
#include "src/signing/SignExports.h"
#include "src/ui/WindowInterface.h"
#include "src/verification/ShowSignatures.h"
#include "src/verification/SignInfoReport.h"
#include "src/verification/SignedFile.h"
#include "src/verification/WriteContent.h"

namespace {

// Comes to life when the library is loaded. When it is unloaded or the process ends, the application cleans up as soon
// as no thread is inside it any more.
struct Lifetime {
    Lifetime() { CNorvikApp::Start(std::make_unique<ui::WindowInterface>()); }
    ~Lifetime() { CNorvikApp::Stop(); }
    Lifetime(const Lifetime&) = delete;
    Lifetime& operator=(const Lifetime&) = delete;
} const lifetime;

std::filesystem::path ThisLibrary() {
    return platform::ModuleOfAddress(&lifetime);
}

void StoreParentWindow(void* window) {
    if (const auto app = CNorvikApp::Current()) app->parentWindow = window;
}

// No text names no file, and no file has that name.
std::filesystem::path PathFrom(const char16_t* text) {
    return text != nullptr ? std::filesystem::path(text) : std::filesystem::path();
}

// Text that does not convert counts as no text.
template <typename Operation>
void WithWideText(const char* text, const Operation& operation) {
    const auto wide = units::WideFromNarrow(text);
    operation(wide ? wide->c_str() : nullptr);
}

}  // namespace

void NorvikInit(void* window) {
    StoreParentWindow(window);
}

bool NorvikSignFileJson(const char16_t* request, NorvikJsonCallback callback, uint64_t context) {
    return signing::SignFileJson(ThisLibrary(), request, callback, context);
}

bool NorvikSignFile(const char16_t* file, int signMode) {
    return NorvikSignFileFilterTSA(file, signMode, nullptr, nullptr, nullptr);
}

bool NorvikSignFileResult(const char16_t* file, int signMode, char16_t* result) {
    return NorvikSignFileFilterTSA(file, signMode, result, nullptr, nullptr);
}

bool NorvikSignFileFilter(const char16_t* file, int signMode, char16_t* result, const char16_t* thumbprints) {
    return NorvikSignFileFilterTSA(file, signMode, result, thumbprints, nullptr);
}

bool NorvikSignFileFilterTSA(const char16_t* file, int signMode, char16_t* result, const char16_t* thumbprints,
                             const char16_t* tsa) {
    return signing::SignFileByArguments(NorvikSignFileJson, file, signMode, result, thumbprints, tsa);
}

void NorvikSignRunDllW(void* window, void*, const char16_t* requestFile, int) {
    EntryFrame::Run(MessageBoxFailure{}, [&] {
        StoreParentWindow(window);
        signing::AnswerRelayedRequest(requestFile);
    });
}

void NorvikSignRunDllA(void* window, void* instance, const char* requestFile, int show) {
    WithWideText(requestFile, [&](const char16_t* wide) { NorvikSignRunDllW(window, instance, wide, show); });
}

int NorvikDecryptVerifyFile(const char16_t* file, int flag) {
    return EntryFrame::Run(MessageBoxFailure{}, [&] {
        if (const auto app = CNorvikApp::Current())
            verification::ShowSignatures(app->Interface(), PathFrom(file), flag == 0);
        return 1;
    });
}

void NorvikDecryptVerifyFileEx(void* window, void*, const char16_t* file, int) {
    StoreParentWindow(window);
    NorvikDecryptVerifyFile(file, 0);
}

int NorvikExtractFile(const char16_t* file, char16_t* outputPath, char16_t* text, int flag) {
    return EntryFrame::Run(MessageBoxFailure{}, [&] {
        const auto app = CNorvikApp::Current();
        if (!app) return 0;
        return verification::ExtractContent(app->Interface(), PathFrom(file), outputPath, text, flag == 0);
    });
}

bool NorvikIsP7S(const char16_t* file, NorvikJsonCallback onError, uint64_t context) {
    const auto tell = [&](std::u16string_view what) {
        if (onError != nullptr) onError(context, std::u16string(what).c_str());
        return false;
    };
    return EntryFrame::Run(tell, [&] { return verification::IsDetachedSignature(PathFrom(file)); });
}

bool NorvikP7M2P7S(const char16_t* source, const char16_t* target) {
    return EntryFrame::Run(LogFailure{}, [&] {
        verification::ConvertToDetached(PathFrom(source), PathFrom(target));
        return true;
    });
}

void NorvikSignInfo(const char16_t* file, NorvikSignInfoCallback callback, uint64_t context) {
    NorvikSignInfo2(file, nullptr, callback, context);
}

void NorvikSignInfo2(const char16_t* file, const char16_t* dataFile, NorvikSignInfoCallback callback,
                     uint64_t context) {
    EntryFrame::Run(SignInfoFailure{callback, context},
                    [&] { verification::ReportSignInfo(file, dataFile, callback, context); });
}

bool NorvikSignInfoJson(const char16_t* request, NorvikJsonCallback callback, uint64_t context) {
    return EntryFrame::Run(JsonArrayFailure{callback, context, false},
                           [&] { return verification::ReportSignInfoJson(request, callback, context); });
}

bool NorvikCertInfo(const char16_t* file, NorvikRecordCallback callback, uint64_t context) {
    return EntryFrame::Run(RecordFailure{callback, context},
                           [&] { return certificates::ReportRecords(file, callback, context); });
}

bool NorvikCertInfo2(const char16_t* file, NorvikRecordFlagCallback callback, uint64_t context) {
    return EntryFrame::Run(RecordFlagFailure{callback, context},
                           [&] { return certificates::ReportRecordsWithFlag(file, callback, context); });
}

bool NorvikCertInfoJson(const char16_t* request, NorvikJsonCallback callback, uint64_t context) {
    return EntryFrame::Run(JsonArrayFailure{callback, context},
                           [&] { return certificates::ReportJson(request, callback, context); });
}

void NorvikCertStoreInfo(const char16_t* provider, NorvikRecordCallback callback, uint64_t context) {
    EntryFrame::Run(RecordFailure{callback, context}, [&] { certificates::ReportKeys(provider, callback, context); });
}

void NorvikCertSelectPrivate() {
    EntryFrame::Run(MessageBoxFailure{}, [] { certificates::ProbeChosenKey(); });
}

bool NorvikSelectCertificate(char16_t* commonName, char16_t* thumbprint, char16_t* notBefore, char16_t* notAfter) {
    const auto boxAndFalse = [](std::u16string_view what) {
        MessageBoxFailure{}(what);
        return false;
    };
    return EntryFrame::Run(boxAndFalse, [&] {
        return certificates::SelectIntoBuffers({commonName, thumbprint, notBefore, notAfter});
    });
}

bool NorvikSelectCertificateCB(const char16_t* store, NorvikRecordFlagCallback callback, uint64_t context) {
    return EntryFrame::Run(RecordFlagFailure{callback, context, true},
                           [&] { return !certificates::SelectFromStore(store, callback, context); });
}

int NorvikSelectCertificateFromFile(const char16_t* file, char16_t* commonName, char16_t* thumbprint,
                                    char16_t* notBefore, char16_t* notAfter, bool* flag, int showDialogIfOne) {
    return EntryFrame::Run(MessageBoxFailure{}, [&] {
        return certificates::SelectFromFileIntoBuffers(file, {commonName, thumbprint, notBefore, notAfter}, flag,
                                                       showDialogIfOne != 0);
    });
}

bool NorvikSelectCertificateFromFileCB(const char16_t* file, NorvikRecordFlagCallback callback, int showDialogIfOne,
                                       uint64_t context) {
    return EntryFrame::Run(RecordFlagFailure{callback, context},
                           [&] { return certificates::SelectFromFile(file, showDialogIfOne != 0, callback, context); });
}

bool NorvikSelectCertificateJson(const char16_t* request, NorvikJsonCallback callback, uint64_t context) {
    return EntryFrame::Run(JsonFailure{callback, context},
                           [&] { return certificates::SelectByJson(request, callback, context); });
}

void NorvikShowAboutBox() {
    EntryFrame::Run(MessageBoxFailure{}, [] {
        if (const auto app = CNorvikApp::Current()) app->Interface().ShowAbout();
    });
}

void EPNorvikSignFileW(void* window, void*, const char16_t* file, int) {
    constexpr int userDecides = 2;
    StoreParentWindow(window);
    NorvikSignFileFilterTSA(file, userDecides, nullptr, nullptr, nullptr);
}

void EPNorvikSignFileA(void* window, void* instance, const char* file, int show) {
    WithWideText(file, [&](const char16_t* wide) { EPNorvikSignFileW(window, instance, wide, show); });
}

void EPNorvikDecryptVerifyFileW(void* window, void*, const char16_t* file, int) {
    StoreParentWindow(window);
    NorvikDecryptVerifyFile(file, 0);
}

void EPNorvikDecryptVerifyFileA(void* window, void* instance, const char* file, int show) {
    WithWideText(file, [&](const char16_t* wide) { EPNorvikDecryptVerifyFileW(window, instance, wide, show); });
}

void EPNorvikDecryptVerifyFileEx(void* window, void* instance, const char16_t* file, int show) {
    NorvikDecryptVerifyFileEx(window, instance, file, show);
}

void EPNorvikShowAboutBoxW(void* window, void*, const char16_t*, int) {
    StoreParentWindow(window);
    NorvikShowAboutBox();
}

void EPNorvikShowAboutBoxA(void* window, void* instance, const char*, int show) {
    EPNorvikShowAboutBoxW(window, instance, nullptr, show);
}
