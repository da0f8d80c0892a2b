#pragma once
// What the printed report says, before anybody draws it.

#include <string>
#include <string_view>
#include <vector>

#include "crypt/Status.h"
#include "src/verification/SignatureEntry.h"

namespace results {

// One signature as the report tells it; every text fits on a line.
struct ReportRow {
    std::u16string level;  // from 1
    std::u16string name;   // the signer's
    std::u16string date;   // of signing, in local time; "n/a" if the signer names none
    tessaly::StatusClass state = tessaly::StatusClass::unverified;
};

struct ReportContent {
    std::u16string fileName;
    std::u16string header, footer;  // the footer is a format with the page's number, as in PageText
    std::vector<ReportRow> rows;
};

// The report on a file with the header and the footer of the settings.
ReportContent MakeReport(const verification::SignatureEntries& entries, std::u16string_view fileName);

// A text in which %d (%i, %u, with flags and a width of at most two digits: "%02d") stands for the number of the page
// and %% for a percent sign. There is one number, so only the first of them counts; whatever else follows a percent
// sign is left as it stands.
std::u16string PageText(std::u16string_view format, int page);

}  // namespace results
