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

using namespace tests;

class WindowTexts : public DialogFixture {
  protected:
    static QStringList TextsOf(const QWidget& widget) {
        QStringList texts{widget.property("text").toString(), widget.property("title").toString()};
        if (const auto* const combo = qobject_cast<const QComboBox*>(&widget))
            for (int i = 0; i < combo->count(); ++i)
                texts << combo->itemText(i);
        if (const auto* const list = qobject_cast<const QTreeView*>(&widget))
            for (int column = 0; column < list->model()->columnCount(); ++column)
                texts << list->model()->headerData(column, Qt::Horizontal).toString();
        if (const auto* const menu = qobject_cast<const QMenu*>(&widget))
            for (const auto* const action : menu->actions())
                texts << action->text();
        texts.removeAll(QString());
        return texts;
    }
    // Adds a line for each control with a text, "name|text", in the order of their making; labels without a name have
    // none.
    void Add(QWidget& window) {
        told_ += "title|" + window.windowTitle().toStdString() + "\n";
        for (const auto* const widget : window.findChildren<QWidget*>()) {
            const auto name = widget->objectName().startsWith(u"qt_"_s) ? QString() : widget->objectName();
            for (const auto& text : TextsOf(*widget))
                told_ += (name + u'|' + text + u'\n').toStdString();
        }
    }
    std::string told_;
};

TEST_F(WindowTexts, AreTheOnesThatManualsQuote) {
    ui::SignQuestion question;
    question.authorities.resize(1);
    question.authorities[0].title = u"Удостоверител";
    CSignDlg sign(question);
    Add(sign);
    CSelectCertificateDlg select(u"Избиране"_s, {});
    Add(select);
    const verification::SignatureEntries none;
    CResultsDlg results({none, "a.p7s", "a.xyz"});
    Add(results);
    const auto entry = GoodEntry("Иван Петров");
    CSignDetailsDlg details(entry);
    Add(details);
    CValidationResponseDlg response;
    response.show();
    Add(response);
    CPrintDlg print({}, u"a.p7m");
    Add(print);
    CTextEntryDlg text(u"Заглавие"_s, u"Въведете парола:"_s, u"старо"_s, false);
    Add(text);
    CProgressDlg progress(u"договор.pdf"_s);
    Add(progress);
    CAboutDlg about;
    Add(about);
    EXPECT_EQ(told_, ReadFile(NORVIK_SOURCE_DIR "/tests/data/windows.txt"));
    EXPECT_EQ(Control(about, "164").accessibleName(), u"Версия 1.0.0"_s);
}

}  // namespace
