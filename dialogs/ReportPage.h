#pragma once
// The report on paper: one page, laid out alike on every printer and in every PDF file.

#include <QPageSize>
#include <QPagedPaintDevice>

#include "platform/Types.h"
#include "src/results/ReportContent.h"

namespace dialogs {

// Dots per inch that a report is to be drawn with where the device leaves the choice. Gaps and lines of the page are
// counted in dots.
inline constexpr int kReportResolution = 600;

// What a document of this kind is called in a queue or a file.
QString ReportDocumentName();

// Draws the report as the only page of the device. Rows that the page has no room for run off the sheet. False if the
// device cannot begin or end a document.
bool PrintReport(QPagedPaintDevice& device, const results::ReportContent& content);

// The same as a PDF document. Empty if it cannot be made. Needs a QGuiApplication, but no display.
platform::Bytes ReportPdf(const QPageLayout& layout, const results::ReportContent& content);
QPageLayout ReportLayout(QPageSize::PageSizeId paper);

}  // namespace dialogs
