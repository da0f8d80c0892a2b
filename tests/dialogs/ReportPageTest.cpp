#include "dialogs/ReportPage.h"

#include <QPrinter>

#include "platform/Files.h"
#include "tests/dialogs/DialogFixture.h"
#include "tests/dialogs/PdfPage.h"

namespace {

using namespace tests;
using tessaly::StatusClass;
using testing::Each;
using testing::Field;

constexpr double kMargin = 0.8 * 72;
// What two programs that measure letters differ by, in points.
constexpr double kNear = 1.0;

class ReportPage : public DialogFixture {
  protected:
    static results::ReportContent Content(std::size_t rows = 3) {
        const results::ReportRow each[] = {{u"1", u"Иван Петров Димитров", u"01.03.2026 12:00", StatusClass::valid},
                                           {u"1", u"Мария Георгиева", u"n/a", StatusClass::invalid},
                                           {u"12", u"Ščepan Żółw", u"31.12.2025 23:59", StatusClass::unverified}};
        results::ReportContent content{u"договор & приложения.pdf.p7m", u"Горе", u"Страница %d", {}};
        for (std::size_t i = 0; i < rows; ++i)
            content.rows.push_back(each[i % 3]);
        return content;
    }
    static PdfPage Draw(const results::ReportContent& content, const std::string& name,
                        QPageSize::PageSizeId paper = QPageSize::A4) {
        auto page = ReadPdf(dialogs::ReportPdf(dialogs::ReportLayout(paper), content), "report-" + name);
        EXPECT_EQ(page.pages, 1);
        return page;
    }
};

TEST_F(ReportPage, SaysItAllInItsOrderAndKeepsToItsFrameItsColumnsAndItsColours) {
    for (const auto paper : {QPageSize::A4, QPageSize::Letter}) {
        const auto page = Draw(Content(), paper == QPageSize::A4 ? "a4" : "letter", paper);
        const auto size = QPageSize::size(paper, QPageSize::Point);
        EXPECT_NEAR(page.width, size.width(), kNear);
        EXPECT_NEAR(page.height, size.height(), kNear);
        EXPECT_THAT(page.Lines(),
                    testing::ElementsAre(
                        "Горе", "Справка", "генерирана от ТЕСАЛИ Norvik",
                        "Детайли за електронните подписи на файл 'договор & приложения.pdf.p7m'",
                        "Ниво Подписал Дата Състояние", "1 Иван Петров Димитров 01.03.2026 12:00 Валиден",
                        "1 Мария Георгиева n/a Невалиден", "12 Ščepan Żółw 31.12.2025 23:59 Непроверен", "Страница 1"));
        const double bottom = page.height - kMargin, right = page.width - kMargin;
        EXPECT_LT(page.Find("Горе").at(0).bottom, kMargin);
        EXPECT_GE(page.Find("Справка").at(0).top, kMargin - kNear);
        EXPECT_GE(page.Find("Страница").at(0).top, bottom - kNear);
        EXPECT_LT(page.Find("Страница").at(0).bottom, page.height);
        const auto title = page.Find("Справка").at(0);
        EXPECT_NEAR(title.left + title.right, page.width, 2 * kNear);

        // Columns stand at 5, 36 and 50 of one unit from the left edge, under their heads.
        const double unit = (page.Find("Валиден").at(0).left - kMargin) / 50;
        const std::pair<const char*, int> places[] = {
            {"1", 0},           {"Ниво", 0},  {"Иван", 5},       {"Подписал", 5},   {"n/a", 36},
            {"01.03.2026", 36}, {"Дата", 36}, {"Състояние", 50}, {"Невалиден", 50}, {"Непроверен", 50}};
        for (const auto& [text, units] : places)
            EXPECT_NEAR(page.Find(text).at(0).left, kMargin + units * unit, kNear) << text;
        EXPECT_LE(page.Find("Непроверен").at(0).right, right) << "all of it inside the frame";

        const std::pair<const char*, QColor> colours[] = {
            {"Валиден", QColor(0, 255, 0)}, {"Невалиден", QColor(255, 0, 0)},  {"Непроверен", QColor(0, 0, 255)},
            {"Мария", QColor(Qt::black)},   {"31.12.2025", QColor(Qt::black)}, {"Страница", QColor(Qt::black)}};
        for (const auto& [text, colour] : colours)
            EXPECT_EQ(page.ColourOf(page.Find(text).at(0)), colour) << text;

        const auto head = page.Find("Дата").at(0);
        const double above = head.top + kNear;
        EXPECT_EQ(page.At(kMargin + kNear, above), QColor(192, 192, 192));
        EXPECT_EQ(page.At(right - kNear, above), QColor(192, 192, 192));
        EXPECT_EQ(page.At(right + kNear, above), QColor(Qt::white));
        const PdfWord edge{"the line under the heads", right - 2 * kNear, head.bottom - kNear, right - kNear,
                           page.Find("n/a").at(0).top};
        EXPECT_LT(page.ColourOf(edge).lightness(), 64);
        EXPECT_EQ(page.At(right - kNear, edge.bottom), QColor(Qt::white));
    }
}

TEST_F(ReportPage, LetsNoTextRunOverAnother) {
    auto content = Content(30);
    content.rows[4].name = u"Константин Александров Димитриев-Хаджиниколов, управител на дружеството";
    content.rows[5].name = std::u16string(500, u'Щ');
    content.rows[6].level = u"4294967296";
    content.fileName = std::u16string(300, u'д') + u".p7m";
    content.header = u"Дълъг горен колонтитул, ";
    for (int i = 0; i < 4; ++i)
        content.header += content.header;
    const auto page = Draw(content, "long");
    EXPECT_THAT(page.words, Each(Field(&PdfWord::right, testing::Le(page.width - kMargin + kNear))));
    EXPECT_THAT(page.words, Each(Field(&PdfWord::left, testing::Ge(kMargin - kNear))));
    EXPECT_THAT(page.words, Each(Field(&PdfWord::top, testing::Ge(0.0))));
    const auto names = page.Find("01.03.2026");
    ASSERT_FALSE(names.empty());
    for (const auto& word : page.words) {
        if (word.left > names.front().left - kNear || word.top < page.Find("Ниво").at(0).top) continue;
        EXPECT_LT(word.right, names.front().left) << word.text;
    }
    EXPECT_THAT(page.Lines(), testing::Contains(HasSubstr("Константин Александров")));
    EXPECT_EQ(page.Find("Валиден").size(), 10U) << "every one of thirty rows is on the page";
    EXPECT_LT(page.Find("Непроверен").back().bottom, page.Find("Страница").at(0).top);
}

TEST_F(ReportPage, HasOnePageForHundredsOfRowsAndAFooterThatCanBeRead) {
    auto content = Content(400);
    content.header.clear();
    const auto page = Draw(content, "many");
    EXPECT_GE(page.Find("Справка").at(0).top, kMargin - kNear);
    EXPECT_EQ(page.Lines().front(), "Справка") << "nothing above the frame";
    const auto footer = page.Find("Страница").at(0);
    EXPECT_GT(page.Find("Валиден").back().bottom, footer.bottom) << "rows run off the sheet";
    const QRectF place(kMargin, footer.top + kNear, page.width - 2 * kMargin, footer.bottom - footer.top - 2 * kNear);
    const QRect dots(
        QRectF(place.topLeft() * PdfPage::kDotsPerPoint, place.size() * PdfPage::kDotsPerPoint).toAlignedRect());
    EXPECT_EQ(page.picture.copy(dots), Draw(Content(), "few").picture.copy(dots))
        << "nothing shines through the footer";
}

TEST_F(ReportPage, LiesAlikeOnAPrinterThatCountsFromItsPrintableArea) {
    QPrinter printer(QPrinter::HighResolution);
    const auto file = profile_.Folder() / "printed.pdf";
    printer.setOutputFileName(QString::fromStdString(file.string()));
    printer.setResolution(300);
    printer.setPageLayout({QPageSize(QPageSize::A4), QPageLayout::Portrait, QMarginsF(10, 20, 30, 5)});
    ASSERT_TRUE(dialogs::PrintReport(printer, Content()));
    const auto page = ReadPdf(*platform::ReadWholeFile(file), "report-printer"), usual = Draw(Content(), "usual");
    for (const auto* text : {"Горе", "Справка", "Ниво"}) {
        EXPECT_NEAR(page.Find(text).at(0).left, usual.Find(text).at(0).left, kNear) << text;
        EXPECT_NEAR(page.Find(text).at(0).top, usual.Find(text).at(0).top, 2 * kNear) << text;
    }
    EXPECT_NEAR(page.Find("Страница").at(0).top, usual.Find("Страница").at(0).top, kNear);
}

}  // namespace
