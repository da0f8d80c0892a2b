// The exported functions: shells of a few lines, nothing else.

#include "norvik/norvik.h"
#include "src/EntryFrame.h"
#include "src/Norvik.h"
#include "src/certificates/CertificateReport.h"
#include "src/certificates/KeyListing.h"
#include "src/ui/WindowInterface.h"

namespace {

// Comes to life when the library is loaded. When it is unloaded or the process ends, the application cleans up as soon
// as no thread is inside it any more.
struct Lifetime {
    Lifetime() { CNorvikApp::Start(std::make_unique<ui::WindowInterface>()); }
    ~Lifetime() { CNorvikApp::Stop(); }
    Lifetime(const Lifetime&) = delete;
    Lifetime& operator=(const Lifetime&) = delete;
} const lifetime;

}  // namespace

void NorvikInit(void* window) {
    if (const auto app = CNorvikApp::Current()) app->parentWindow = window;
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
