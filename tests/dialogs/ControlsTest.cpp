#include <QAbstractItemView>
#include <QHeaderView>
#include <QScrollBar>
#include <QVBoxLayout>
#include <set>

#include "dialogs/CBitButton.h"
#include "dialogs/CColorListCtrl.h"
#include "dialogs/CExtComboBox.h"
#include "dialogs/CImageButton.h"
#include "dialogs/CStaticColor.h"
#include "tests/dialogs/DialogFixture.h"

namespace {

class Controls : public tests::DialogFixture {
  protected:
    // What the pixels of a part of the window say.
    static std::set<QRgb> ColoursOf(QWidget& widget, const QRect& part) {
        const auto picture = widget.grab(part).toImage();
        std::set<QRgb> colours;
        for (int y = 0; y < picture.height(); ++y)
            for (int x = 0; x < picture.width(); ++x)
                colours.insert(picture.pixel(x, y) & RGB_MASK);
        return colours;
    }
    static QRect LeftOfRow(const CColorListCtrl& list, int row) { return list.visualRect(list.model()->index(row, 0)); }
};

// A red text in row 1; row 0 has no colour of its own.
class TwoColours : public TextTable {
  public:
    explicit TwoColours(QObject* parent)
        : TextTable(parent, {QStringLiteral("Име")}, 4,
                    [](int row, int) { return QStringLiteral("ШШШШШШШШ %1").arg(row); }) {}
    [[nodiscard]] QVariant data(const QModelIndex& index, int role) const override {
        if (role == CColorListCtrl::kItemData) return index.row() == 1 ? 0xff0000U : 0U;
        return TextTable::data(index, role);
    }
};

TEST_F(Controls, AListColoursTextByItsRowAndBandsEveryOtherRowOnlyWhereToldTo) {
    QDialog window;
    CColorListCtrl list(&window);
    list.setModel(new TwoColours(&list));
    list.resize(300, 200);
    window.show();
    constexpr QRgb red = 0xff0000, band = 0xeeeeee;
    const auto has = [&](int row, QRgb colour) {
        return ColoursOf(*list.viewport(), LeftOfRow(list, row)).contains(colour);
    };
    EXPECT_FALSE(has(1, red));
    EXPECT_FALSE(has(0, band));
    list.SetTextColoured(true);
    list.SetBanded(true);
    EXPECT_TRUE(has(1, red));
    EXPECT_FALSE(has(0, red)) << "no colour of its own";
    EXPECT_TRUE(has(0, band));
    EXPECT_FALSE(has(1, band));
    EXPECT_TRUE(has(2, band));
}

TEST_F(Controls, AListAsksOnlyForTheTextsThatItShows) {
    constexpr int kRows = 100'000;
    std::set<int> asked;
    QDialog window;
    CColorListCtrl list(&window);
    list.setModel(new TextTable(&list, {QStringLiteral("A"), QStringLiteral("B")}, kRows, [&](int row, int) {
        asked.insert(row);
        return QString::number(row);
    }));
    list.resize(300, 200);
    window.show();
    list.grab();
    EXPECT_LT(asked.size(), 100U);
    list.verticalScrollBar()->setValue(list.verticalScrollBar()->maximum());
    list.grab();
    EXPECT_LT(asked.size(), 200U);
    EXPECT_TRUE(asked.contains(kRows - 1));
}

TEST_F(Controls, AListTellsTheWholeTextOnlyWhereACellCutsIt) {
    QDialog window;
    CColorListCtrl list(&window);
    const QString text(200, QLatin1Char('x'));
    list.setModel(new TextTable(&list, {QStringLiteral("A"), QStringLiteral("B")}, 1,
                                [&](int, int column) { return column == 0 ? text : QStringLiteral("y"); }));
    list.resize(400, 100);
    list.SetColumnWidths({150, 150});
    window.show();
    EXPECT_EQ(list.ToolTipAt(list.visualRect(list.model()->index(0, 0)).center()), text);
    EXPECT_EQ(list.ToolTipAt(list.visualRect(list.model()->index(0, 1)).center()), QString());
    EXPECT_EQ(list.ToolTipAt(QPoint(10, 90)), QString()) << "no row";
}

TEST_F(Controls, AComboOpensAsWideAsItsWidestText) {
    QDialog window;
    CExtComboBox combo(&window);
    combo.resize(80, combo.sizeHint().height());
    const auto longest = QStringLiteral("Удостоверяващ сървър за време с много дълго име");
    combo.addItems({QStringLiteral("Без"), longest});
    window.show();
    combo.showPopup();
    EXPECT_GT(combo.view()->viewport()->width(), combo.fontMetrics().horizontalAdvance(longest));
    combo.hidePopup();
    EXPECT_EQ(combo.width(), 80);
    const auto picture = [&] { return combo.grab().toImage(); };
    combo.setCurrentIndex(1);
    const auto cut = picture();
    combo.setItemText(1, longest + QStringLiteral(" ЩЩЩ"));
    EXPECT_NE(picture(), cut) << "the end of a long name is seen";
}

TEST_F(Controls, PicturesOnButtonsFollowThePaletteAndButtonsLiveWithoutThem) {
    QDialog window;
    CBitButton button(QStringLiteral("&Отказ"), &window);
    CImageButton picture(QStringLiteral("&Запис"), &window);
    window.show();
    EXPECT_TRUE(button.icon().isNull());
    const auto empty = picture.sizeHint();
    button.SetImage("cancel");
    picture.SetImage("save");
    EXPECT_EQ(picture.sizeHint(), empty);
    EXPECT_EQ(picture.accessibleName(), QStringLiteral("Запис"));
    EXPECT_EQ(picture.shortcut(), QKeySequence(Qt::ALT | Qt::Key(u'З')));
    const auto colour = [&](QIcon::Mode mode) {
        const auto image = button.icon().pixmap(QSize(16, 16), 1, mode).toImage();
        return image.pixelColor(8, 8);  // where its two lines cross
    };
    EXPECT_EQ(colour(QIcon::Normal).rgb(), QApplication::palette().color(QPalette::WindowText).rgb());
    const auto before = QApplication::palette();
    auto dark = before;
    dark.setColor(QPalette::WindowText, Qt::white);
    QApplication::setPalette(dark);
    EXPECT_GT(colour(QIcon::Normal).lightness(), 200);
    QApplication::setPalette(before);
    EXPECT_NE(colour(QIcon::Disabled).rgb(), colour(QIcon::Normal).rgb());
}

TEST_F(Controls, AColouredTextTakesTheCounterpartsOfItsColoursOnADarkDesktop) {
    QDialog window;
    auto* const layout = new QVBoxLayout(&window);
    CStaticColor text(&window);
    layout->addWidget(&text);
    text.setText(QStringLiteral("ШШШ"));
    text.SetFontHeight(40);
    text.SetBold(true);
    text.SetTextColour({QColor(0xb00000), QColor(0xffa0a0)});
    text.SetBackgroundColour({QColor(0xd0ffd0), QColor(0x003000)});
    window.show();
    EXPECT_EQ(text.fontInfo().pixelSize(), 40);
    EXPECT_EQ(text.font().weight(), QFont::DemiBold);
    const auto shows = [&](QRgb colour) { return ColoursOf(text, text.rect()).contains(colour); };
    EXPECT_TRUE(shows(0xb00000) && shows(0xd0ffd0));
    window.setPalette(QPalette(QColor(45, 47, 51)));
    EXPECT_TRUE(shows(0xffa0a0) && shows(0x003000) && !shows(0xd0ffd0));
    text.SetTransparent(true);
    EXPECT_FALSE(shows(0x003000));
}

TEST_F(Controls, OfSeveralListsOnlyTheOneWithTheKeyboardHasAColouredRow) {
    QDialog window;
    CColorListCtrl first(&window), second(&window);
    for (auto* const list : {&first, &second}) {
        list->setModel(new TwoColours(list));
        list->resize(200, 100);
        list->SelectRow(0);
    }
    second.move(0, 120);
    window.show();
    const auto colour = QApplication::palette().color(QPalette::Active, QPalette::Highlight).rgb() & RGB_MASK;
    const auto coloured = [&](CColorListCtrl& list) {
        return ColoursOf(*list.viewport(), LeftOfRow(list, 0)).contains(colour);
    };
    for (auto* const list : {&second, &first}) {
        list->setFocus();
        ASSERT_TRUE(QTest::qWaitFor([&] { return list->hasFocus(); }));
        EXPECT_EQ(coloured(first), list == &first);
        EXPECT_EQ(coloured(second), list == &second);
    }
}

}  // namespace
