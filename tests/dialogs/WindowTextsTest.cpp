#include <QAbstractButton>
#include <QComboBox>
#include <QGroupBox>
#include <QHeaderView>
#include <QLabel>
#include <QLineEdit>
#include <QTreeView>

#include "dialogs/CAboutDlg.h"
#include "dialogs/CProgressDlg.h"
#include "dialogs/CSelectCertificateDlg.h"
#include "dialogs/CSignDlg.h"
#include "dialogs/CTextEntryDlg.h"
#include "dialogs/Texts.h"
#include "tests/dialogs/DialogFixture.h"

// What stands in the windows, letter by letter: manuals and helpdesks quote it, and tools find controls by their names.
namespace {

QString WithoutMnemonic(QString text) {
    return text.remove(QLatin1Char('&'));
}

class WindowTexts : public tests::DialogFixture {
  protected:
    // A line for each control with a text, "name|text", in the order of their making; labels without a name have none.
    static std::string Of(QWidget& window) {
        QStringList lines{QStringLiteral("title|") + window.windowTitle()};
        for (const auto* const widget : window.findChildren<QWidget*>()) {
            const auto name = widget->objectName().startsWith(QStringLiteral("qt_")) ? QString() : widget->objectName();
            for (const auto& text : TextsOf(*widget))
                lines << name + QLatin1Char('|') + WithoutMnemonic(text);
        }
        return lines.join(QLatin1Char('\n')).toStdString();
    }

  private:
    static QStringList TextsOf(const QWidget& widget) {
        QStringList texts;
        if (const auto* const button = qobject_cast<const QAbstractButton*>(&widget)) texts << button->text();
        if (const auto* const label = qobject_cast<const QLabel*>(&widget)) texts << label->text();
        if (const auto* const box = qobject_cast<const QGroupBox*>(&widget)) texts << box->title();
        if (const auto* const line = qobject_cast<const QLineEdit*>(&widget)) texts << line->text();
        if (const auto* const combo = qobject_cast<const QComboBox*>(&widget))
            for (int i = 0; i < combo->count(); ++i)
                texts << combo->itemText(i);
        if (const auto* const list = qobject_cast<const QTreeView*>(&widget))
            for (int column = 0; column < list->model()->columnCount(); ++column)
                texts << list->model()->headerData(column, Qt::Horizontal).toString();
        texts.removeAll(QString());
        return texts;
    }
};

TEST_F(WindowTexts, OfTheSignWindow) {
    ui::SignQuestion question;
    question.authorities.resize(1);
    question.authorities[0].title = u"Удостоверител";
    CSignDlg window(question);
    EXPECT_EQ(Of(window),
              "title|ТЕСАЛИ Norvik - подписване на файл\n"
              "|Подписване на файл\n"
              "|Моля изберете X.509 сертификат  \n"
              "271|Притежател\n271|Издател\n271|Валиден до\n"
              "|Тип на електронния подпис   \n"
              "236|Йерархичен подпис\n237|Равноправен подпис\n143|Разкачен подпис\n"
              "|Коментар:\n6115|Без Timestamp\n6115|Удостоверител\n|Удостоверяващ сървър за време\n"
              "6127|Подпиши\n6128|Отказ");
}

TEST_F(WindowTexts, OfTheListOfCertificates) {
    CSelectCertificateDlg window(QStringLiteral("Избиране"), {});
    EXPECT_EQ(Of(window),
              "title|Избиране\n11|Притежател\n11|Организация\n11|Издател\n11|Валиден до\n1|ОК\n2|Отказ\n12|Преглед");
}

TEST_F(WindowTexts, OfTheSmallOnes) {
    CTextEntryDlg entry(QStringLiteral("Заглавие"), QStringLiteral("Въведете парола:"), QStringLiteral("старо"), false);
    EXPECT_EQ(Of(entry), "title|Заглавие\n11|старо\n65535|Въведете парола:\n1|ОК\n2|Отказ");
    CProgressDlg progress(QStringLiteral("договор.pdf"));
    EXPECT_EQ(Of(progress), "title|\n175|Зареждане на файл: \n190|договор.pdf\n|Моля почакайте...");
    CAboutDlg about;
    EXPECT_EQ(Of(about), "title|Относно Norvik\n1|ОК");
    EXPECT_EQ(Control<QLabel>(about, "164").accessibleName(), QStringLiteral("Версия 1.0.0"));
}

}  // namespace
