#pragma once

#include <string>

namespace settings {

// What stands above and below the frame of a printed report.
struct PrintTexts {
    std::u16string header;
    std::u16string footer;  // a format with the page's number
};

// As stored, each with its default where it is missing; nothing is written back.
PrintTexts ReadPrintTexts();
// What cannot be stored is passed over: the report is printed all the same.
void StorePrintTexts(const PrintTexts& texts);

}  // namespace settings
