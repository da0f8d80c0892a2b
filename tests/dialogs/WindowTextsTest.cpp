#include <QAbstractButton>
#include <QComboBox>
#include <QGroupBox>
#include <QHeaderView>
#include <QLabel>
#include <QLineEdit>
#include <QMenu>
#include <QTreeView>

#include "dialogs/CAboutDlg.h"
#include "dialogs/CPrintDlg.h"
#include "dialogs/CProgressDlg.h"
#include "dialogs/CResultsDlg.h"
#include "dialogs/CSelectCertificateDlg.h"
#include "dialogs/CSignDetailsDlg.h"
#include "dialogs/CSignDlg.h"
#include "dialogs/CTextEntryDlg.h"
#include "dialogs/CValidationResponseDlg.h"
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

TEST_F(WindowTexts, OfTheResults) {
    const verification::SignatureEntries none;
    CResultsDlg window({none, "a.p7s", "a.xyz"});
    EXPECT_EQ(Of(window),
              "title|ТЕСАЛИ Norvik - резултати от декриптиране/проверка\n"
              "233|1\n233|2\n|Електронни подписи:\n201|Сертификат\n202|Справка\n272|Редакция >\n"
              "196|Име\n196|Тип\n|Защитен файл:\n192|Отвори\n193|Съхрани...\n|Коментар:\n1|OK\n"
              "|a.p7s\n|Файлът не е подписан.");
    EXPECT_EQ(Control<QMenu>(window, "246").actions().at(0)->text(), QStringLiteral("&Добавяне на подпис"));
    EXPECT_EQ(Control<QMenu>(window, "246").actions().at(1)->text(), QStringLiteral("&Криптиране"));
}

TEST_F(WindowTexts, OfTheWindowsThatTheResultsOpen) {
    const auto entry = GoodEntry("Иван Петров");
    CSignDetailsDlg details(entry);
    EXPECT_EQ(Of(details),
              "title|ТЕСАЛИ Norvik - детайли\n|Детайли за електронния подпис на:\n225|Иван Петров\n"
              "6125|*TS - Timestamp - доверен печат за време\n"
              "*TSA - Time Stamping Authority - сървър за поставяне на доверен печат\n"
              "1|OK\n|Състояние на подписа \n6124|Атрибут\n6124|Детайли");
    CValidationResponseDlg response;
    response.show();
    EXPECT_EQ(Of(response), "title|ТЕСАЛИ Norvik - детайли за механизма на проверка\n217|Поле\n217|Стойност\n1|OK");
    CPrintDlg print({}, u"a.p7m");
    EXPECT_EQ(Of(print),
              "title|ТЕСАЛИ Norvik - отпечатване на справка\n|Отпечатване на справка\n"
              "|Горен колонтитул (header) :\n|Долен колонтитул (footer) :\n278|Страница %d\n"
              "65535|Справката е на една страница и съдържа името на файла и по един ред за всеки подпис: ниво, "
              "подписал, дата на подписване и състояние.\n"
              "В долния колонтитул %d се заменя с номера на страницата.\n275|Отпечатай\n2|Отказ");
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
