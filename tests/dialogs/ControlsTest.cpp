#include <set>

#include "dialogs/CBitButton.h"
#include "dialogs/CColorListCtrl.h"
#include "dialogs/CExtComboBox.h"
#include "dialogs/CImageButton.h"
#include "dialogs/CStaticColor.h"
#include "tests/dialogs/DialogFixture.h"

namespace {

using namespace tests;

// A red text in row 1; row 0 has no colour of its own.
class TwoColours : public TextTable {
  public:
    explicit TwoColours(QObject* parent)
        : TextTable(parent, {u"Име"_s}, 4, [](int row, int) { return u"ШШШШШШШШ %1"_s.arg(row); }) {}
    [[nodiscard]] QVariant data(const QModelIndex& index, int role) const override {
        if (role == CColorListCtrl::kItemData) return index.row() == 1 ? 0xff0000U : 0U;
        return TextTable::data(index, role);
    }
};

class Controls : public DialogFixture {
  protected:
    // Whether a pixel in that part of the window has the colour.
    static bool Shows(QWidget& widget, const QRect& part, QRgb colour) {
        const auto picture = widget.grab(part).toImage();
        for (int y = 0; y < picture.height(); ++y)
            for (int x = 0; x < picture.width(); ++x)
                if ((picture.pixel(x, y) & RGB_MASK) == (colour & RGB_MASK)) return true;
        return false;
    }
    static bool RowShows(const CColorListCtrl& list, int row, QRgb colour) {
        return Shows(*list.viewport(), list.visualRect(list.model()->index(row, 0)), colour);
    }
    void ShowList(QAbstractItemModel* model) {
        list_.setModel(model);
        list_.resize(300, 200);
        window_.show();
    }
    QDialog window_;
    CColorListCtrl list_{&window_};
};

TEST_F(Controls, AListColoursTextByItsRowAndBandsEveryOtherRowOnlyWhereToldTo) {
    ShowList(new TwoColours(&list_));
    constexpr QRgb red = 0xff0000, band = 0xeeeeee;
    EXPECT_FALSE(RowShows(list_, 1, red) || RowShows(list_, 0, band));
    list_.SetTextColoured(true);
    list_.SetBanded(true);
    EXPECT_TRUE(RowShows(list_, 1, red));
    EXPECT_FALSE(RowShows(list_, 0, red)) << "no colour of its own";
    for (const int row : {0, 1, 2})
        EXPECT_EQ(RowShows(list_, row, band), row % 2 == 0) << row;
}

TEST_F(Controls, AListAsksOnlyForTheTextsThatItShows) {
    constexpr int kRows = 100'000;
    std::set<int> asked;
    ShowList(new TextTable(&list_, {u"A"_s, u"B"_s}, kRows, [&](int row, int) {
        asked.insert(row);
        return QString::number(row);
    }));
    list_.grab();
    EXPECT_LT(asked.size(), 100U);
    list_.verticalScrollBar()->setValue(list_.verticalScrollBar()->maximum());
    list_.grab();
    EXPECT_LT(asked.size(), 200U);
    EXPECT_TRUE(asked.contains(kRows - 1));
}

TEST_F(Controls, AListTellsTheWholeTextOnlyWhereACellCutsIt) {
    const QString text(200, u'x');
    ShowList(new TextTable(&list_, {u"A"_s, u"B"_s}, 1, [&](int, int column) { return column == 0 ? text : u"y"_s; }));
    list_.SetColumnWidths({150, 150});
    const auto tip = [&](int column) {
        return list_.ToolTipAt(list_.visualRect(list_.model()->index(0, column)).center());
    };
    EXPECT_EQ(tip(0), text);
    EXPECT_EQ(tip(1), QString());
    EXPECT_EQ(list_.ToolTipAt(QPoint(10, 90)), QString()) << "no row";
}

TEST_F(Controls, OfSeveralListsOnlyTheOneWithTheKeyboardHasAColouredRow) {
    CColorListCtrl second(&window_);
    second.setModel(new TwoColours(&second));
    second.setGeometry(0, 220, 300, 100);
    ShowList(new TwoColours(&list_));
    list_.SelectRow(0);
    second.SelectRow(0);
    const auto colour = QApplication::palette().color(QPalette::Active, QPalette::Highlight).rgb();
    for (auto* const list : {&second, &list_}) {
        list->setFocus();
        ASSERT_TRUE(QTest::qWaitFor([&] { return list->hasFocus(); }));
        EXPECT_EQ(RowShows(list_, 0, colour), list == &list_);
        EXPECT_EQ(RowShows(second, 0, colour), list == &second);
    }
}

TEST_F(Controls, AComboOpensAsWideAsItsWidestText) {
    CExtComboBox combo(&window_);
    combo.resize(80, combo.sizeHint().height());
    const auto longest = u"Удостоверяващ сървър за време с много дълго име"_s;
    combo.addItems({u"Без"_s, longest});
    window_.show();
    combo.showPopup();
    EXPECT_GT(combo.view()->viewport()->width(), combo.fontMetrics().horizontalAdvance(longest));
    combo.hidePopup();
    EXPECT_EQ(combo.width(), 80);
    combo.setCurrentIndex(1);
    const auto cut = combo.grab().toImage();
    combo.setItemText(1, longest + u" ЩЩЩ"_s);
    EXPECT_NE(combo.grab().toImage(), cut) << "the end of a long name is seen";
}

TEST_F(Controls, PicturesOnButtonsFollowThePaletteAndButtonsLiveWithoutThem) {
    CBitButton button(u"&Отказ"_s, &window_);
    CImageButton picture(u"&Запис"_s, &window_);
    window_.show();
    EXPECT_TRUE(button.icon().isNull());
    const auto empty = picture.sizeHint();
    button.SetImage("cancel");
    picture.SetImage("save");
    EXPECT_EQ(picture.sizeHint(), empty);
    EXPECT_EQ(picture.accessibleName(), u"Запис"_s);
    EXPECT_EQ(picture.shortcut(), QKeySequence(Qt::ALT | Qt::Key(u'З')));
    const auto colour = [&](QIcon::Mode mode) {
        return button.icon().pixmap(QSize(16, 16), 1, mode).toImage().pixelColor(8, 8);  // where its two lines cross
    };
    const auto before = QApplication::palette();
    EXPECT_EQ(colour(QIcon::Normal).rgb(), before.color(QPalette::WindowText).rgb());
    auto dark = before;
    dark.setColor(QPalette::WindowText, Qt::white);
    QApplication::setPalette(dark);
    EXPECT_GT(colour(QIcon::Normal).lightness(), 200);
    QApplication::setPalette(before);
    EXPECT_NE(colour(QIcon::Disabled).rgb(), colour(QIcon::Normal).rgb());
}

TEST_F(Controls, AColouredTextTakesTheCounterpartsOfItsColoursOnADarkDesktop) {
    QVBoxLayout layout(&window_);
    CStaticColor text(&window_);
    layout.addWidget(&text);
    text.setText(u"ШШШ"_s);
    text.SetFontHeight(40);
    text.SetBold(true);
    text.SetTextColour({QColor(0xb00000), QColor(0xffa0a0)});
    text.SetBackgroundColour({QColor(0xd0ffd0), QColor(0x003000)});
    window_.show();
    EXPECT_EQ(text.fontInfo().pixelSize(), 40);
    EXPECT_EQ(text.font().weight(), QFont::DemiBold);
    const auto shows = [&](QRgb colour) { return Shows(text, text.rect(), colour); };
    EXPECT_TRUE(shows(0xb00000) && shows(0xd0ffd0));
    window_.setPalette(QPalette(QColor(45, 47, 51)));
    EXPECT_TRUE(shows(0xffa0a0) && shows(0x003000) && !shows(0xd0ffd0));
    text.SetTransparent(true);
    EXPECT_FALSE(shows(0x003000));
}

}  // namespace
