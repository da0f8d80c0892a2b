#include "dialogs/ReportPage.h"

#include <QBuffer>
#include <QPainter>
#include <QPdfWriter>
#include <QTextLayout>

#include "dialogs/Texts.h"
#include "src/results/SignatureState.h"
#include "units/Helpers.h"

namespace dialogs {
namespace {

constexpr qreal kMarginInches = 0.8;  // from the paper's edges
constexpr int kRowGap = 12, kHeaderGap = 12, kRule = 4;
constexpr int kPage = 1;
const QColor kBand(192, 192, 192), kValid(0, 255, 0), kInvalid(255, 0, 0), kUnverified(0, 0, 255);

// Columns in units of an average letter, from the left edge of the frame.
struct Column {
    unsigned titleId;
    int start, width;
};
constexpr Column kLevel{298, 0, 4}, kName{299, 5, 30}, kDate{300, 36, 14}, kState{301, 50, 10};

QString TableText(unsigned id) {
    return ToQString(units::LoadStringW(id));
}

// The first one is in every report's design; the others have its widths or at least its looks, and Cyrillic letters.
QFont ReportFont(int points, int weight, const QPaintDevice& device) {
    QFont font;
    font.setFamilies({QStringLiteral("Times New Roman"), QStringLiteral("Liberation Serif"), QStringLiteral("Tinos"),
                      QStringLiteral("DejaVu Serif"), QStringLiteral("serif")});
    font.setPixelSize(device.logicalDpiY() * points / 72);
    font.setWeight(static_cast<QFont::Weight>(weight));
    font.setHintingPreference(QFont::PreferNoHinting);
    return font;
}

// Text that is broken into lines, at blanks where there are some.
class TextBlock {
  public:
    TextBlock(const QString& text, const QFont& font, QPaintDevice* device, qreal width,
              Qt::Alignment alignment = Qt::AlignLeft)
        : layout_(QString(text).replace(QLatin1Char('\n'), QChar::LineSeparator), font, device) {
        QTextOption option(alignment);
        option.setWrapMode(QTextOption::WrapAtWordBoundaryOrAnywhere);
        layout_.setTextOption(option);
        layout_.beginLayout();
        for (auto line = layout_.createLine(); line.isValid(); line = layout_.createLine()) {
            line.setLineWidth(width);
            line.setPosition(QPointF(0, height_));
            height_ += line.height();
        }
        layout_.endLayout();
    }
    [[nodiscard]] qreal Height() const { return height_; }
    void Draw(QPainter& painter, qreal left, qreal top) const { layout_.draw(&painter, QPointF(left, top)); }

  private:
    QTextLayout layout_;
    qreal height_ = 0;
};

QColor ColourOf(tessaly::StatusClass state) {
    switch (state) {
        case tessaly::StatusClass::valid:
            return kValid;
        case tessaly::StatusClass::invalid:
            return kInvalid;
        case tessaly::StatusClass::unverified:
            break;
    }
    return kUnverified;
}

// All in dots of the device; `paper` and `frame` count from the place where its painter has its origin.
class ReportPage {
  public:
    ReportPage(QPainter& painter, const QRectF& paper, const QRectF& frame)
        : painter_(painter), device_(*painter.device()), paper_(paper), frame_(frame) {
        const QFontMetricsF metrics(body_, &device_);
        const QString alphabet = TableText(295);
        unit_ = static_cast<int>(metrics.horizontalAdvance(alphabet) / static_cast<qreal>(alphabet.size()));
        rowHeight_ = metrics.height();
    }

    void Draw(const results::ReportContent& content) {
        DrawHeader(ToQString(content.header));
        qreal y = frame_.top();
        y += DrawBlock(TableText(293), title_, y, Qt::AlignHCenter);
        y += DrawBlock(TableText(296), body_, y, Qt::AlignHCenter);
        y += rowHeight_ / 2;
        y += DrawBlock(ToQString(units::FormatString1(297, content.fileName)), body_, y, Qt::AlignLeft);
        y += DrawHeads(y);
        painter_.setFont(body_);
        for (const auto& row : content.rows) {
            if (y >= paper_.bottom()) break;
            DrawRow(row, y);
            y += rowHeight_ + kRowGap;
        }
        DrawFooter(ToQString(results::PageText(content.footer, kPage)));
    }

  private:
    [[nodiscard]] TextBlock Block(const QString& text, const QFont& font, Qt::Alignment alignment) const {
        return {text, font, &device_, frame_.width(), alignment};
    }
    qreal DrawBlock(const QString& text, const QFont& font, qreal y, Qt::Alignment alignment) {
        const auto block = Block(text, font, alignment);
        block.Draw(painter_, frame_.left(), y);
        return block.Height();
    }
    void DrawHeader(const QString& text) {
        if (text.isEmpty()) return;
        const auto block = Block(text, small_, Qt::AlignLeft);
        block.Draw(painter_, frame_.left(), frame_.top() - block.Height() - kHeaderGap);
    }
    // Rows on their way off the sheet must not make it unreadable.
    void DrawFooter(const QString& text) {
        const auto block = Block(text, small_, Qt::AlignLeft);
        painter_.fillRect(QRectF(frame_.left(), frame_.bottom(), frame_.width(), block.Height()), Qt::white);
        block.Draw(painter_, frame_.left(), frame_.bottom());
    }

    qreal DrawHeads(qreal y) {
        const QRectF band(frame_.left(), y, frame_.width(), rowHeight_ + kRowGap);
        painter_.fillRect(band, kBand);
        painter_.setFont(bold_);
        for (const auto& column : {kLevel, kName, kDate, kState})
            DrawText(column, TableText(column.titleId), y + kRowGap / 2.0);
        painter_.fillRect(QRectF(band.left(), band.bottom(), band.width(), kRule), Qt::black);
        return band.height() + kRule + kRowGap;
    }
    void DrawRow(const results::ReportRow& row, qreal y) {
        DrawCell(kLevel, ToQString(row.level), y);
        DrawCell(kName, ToQString(row.name), y);
        DrawCell(kDate, ToQString(row.date), y);
        painter_.setPen(ColourOf(row.state));
        DrawCell(kState, ToQString(results::StateWord(row.state)), y);
        painter_.setPen(Qt::black);
    }
    // In the painter's font. A text that is too long for its column ends in dots: the next one's place stays its own.
    void DrawCell(const Column& column, const QString& text, qreal y) {
        const QFontMetricsF metrics(painter_.font(), &device_);
        DrawText(column, metrics.elidedText(text, Qt::ElideRight, column.width * unit_), y);
    }
    void DrawText(const Column& column, const QString& text, qreal y) {
        const QFontMetricsF metrics(painter_.font(), &device_);
        painter_.drawText(QPointF(frame_.left() + column.start * unit_, y + metrics.ascent()), text);
    }

    QPainter& painter_;
    QPaintDevice& device_;
    QRectF paper_, frame_;
    QFont title_ = ReportFont(26, 500, device_), body_ = ReportFont(12, 500, device_),
          small_ = ReportFont(10, 500, device_), bold_ = ReportFont(12, 700, device_);
    int unit_ = 0;
    qreal rowHeight_ = 0;
};

}  // namespace

QString ReportDocumentName() {
    return QStringLiteral("Tessaly Norvik report");
}

bool PrintReport(QPagedPaintDevice& device, const results::ReportContent& content) {
    const auto layout = device.pageLayout();
    const auto dotsX = device.logicalDpiX(), dotsY = device.logicalDpiY();
    const auto inches = layout.fullRect(QPageLayout::Inch), printable = layout.paintRect(QPageLayout::Inch);
    const QRectF paper(-printable.left() * dotsX, -printable.top() * dotsY, inches.width() * dotsX,
                       inches.height() * dotsY);
    const QMarginsF margins(kMarginInches * dotsX, kMarginInches * dotsY, kMarginInches * dotsX, kMarginInches * dotsY);
    QPainter painter;
    if (!painter.begin(&device)) return false;
    ReportPage(painter, paper, paper - margins).Draw(content);
    return painter.end();
}

platform::Bytes ReportPdf(const QPageLayout& layout, const results::ReportContent& content) {
    QByteArray document;
    QBuffer buffer(&document);
    buffer.open(QIODevice::WriteOnly);
    QPdfWriter writer(&buffer);
    writer.setResolution(kReportResolution);
    writer.setTitle(ReportDocumentName());
    writer.setCreator(QStringLiteral("Norvik"));
    if (!writer.setPageLayout(layout) || !PrintReport(writer, content)) return {};
    return {document.begin(), document.end()};
}

QPageLayout ReportLayout(QPageSize::PageSizeId paper) {
    return {QPageSize(paper), QPageLayout::Portrait, QMarginsF()};
}

}  // namespace dialogs
