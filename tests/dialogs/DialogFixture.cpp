#include "tests/dialogs/DialogFixture.h"

#include "dialogs/Desktop.h"
#include "tests/support/Pki.h"

namespace tests {
namespace {

QPalette DarkPalette() {
    QPalette palette(QColor(45, 47, 51));
    const std::pair<QPalette::ColorRole, QColor> colours[] = {
        {QPalette::Base, {30, 31, 34}},         {QPalette::AlternateBase, {38, 40, 44}},
        {QPalette::Highlight, {61, 109, 204}},  {QPalette::HighlightedText, Qt::white},
        {QPalette::Text, {235, 235, 235}},      {QPalette::WindowText, {235, 235, 235}},
        {QPalette::ButtonText, {235, 235, 235}}};
    for (const auto& [role, colour] : colours)
        palette.setColor(role, colour);
    for (const auto role : {QPalette::Text, QPalette::WindowText, QPalette::ButtonText})
        palette.setColor(QPalette::Disabled, role, QColor(130, 132, 136));
    return palette;
}

void Settle() {
    for (int i = 0; i < 5; ++i)
        QApplication::processEvents();
}

void Save(QWidget& window, const std::string& name, qreal scale = 1) {
    QImage picture((QSizeF(window.size()) * scale).toSize(), QImage::Format_RGB32);
    picture.setDevicePixelRatio(scale);
    window.render(&picture);
    const QDir folder(QStringLiteral(NORVIK_BINARY_DIR "/pictures"));
    folder.mkpath(u"."_s);
    ASSERT_TRUE(picture.save(folder.filePath(QString::fromStdString(name) + u".png"_s))) << name;
}

// Texts of labels and buttons that have less room than they need.
QStringList CutTexts(QWidget& window) {
    QStringList cut;
    for (auto* const label : window.findChildren<QLabel*>()) {
        if (!label->isVisible() || label->text().isEmpty()) continue;
        const int height = label->wordWrap() ? label->heightForWidth(label->width()) : label->sizeHint().height();
        const bool narrow = !label->wordWrap() && label->width() < label->sizeHint().width();
        if (narrow || label->height() < height) cut << label->text();
    }
    for (auto* const button : window.findChildren<QAbstractButton*>())
        if (button->isVisible() && !button->text().isEmpty() && button->width() < button->minimumSizeHint().width())
            cut << button->text();
    return cut;
}

}  // namespace

DialogFixture::DialogFixture() {
    qputenv("QT_QPA_PLATFORM", "offscreen");
    dialogs::RequireDesktop();
    CNorvikApp::Start(std::make_unique<ScriptedInterface>(script_));
}

DialogFixture::~DialogFixture() {
    CNorvikApp::Stop();
}

void DialogFixture::WhenShown(std::function<void(QDialog&)> step) {
    QTimer::singleShot(0, qApp, [step = std::move(step)] {
        auto* const dialog = qobject_cast<QDialog*>(QApplication::activeModalWidget());
        ASSERT_NE(dialog, nullptr) << "no dialog is open";
        QTimer::singleShot(10'000, dialog, [dialog] {
            ADD_FAILURE() << "the dialog does not end";
            dialog->done(-1);
        });
        Settle();
        try {
            step(*dialog);
        } catch (const std::exception& error) {
            ADD_FAILURE() << error.what();
            dialog->done(-1);
        }
    });
}

std::string DialogFixture::Said(const std::function<void()>& cause) {
    std::string text;
    const auto title = Opened<QMessageBox>(cause, [&](QMessageBox& box) {
        text = box.text().toStdString();
        Click(box, "1");
    });
    return title + ": " + text;
}

std::string DialogFixture::ChooseFile(const std::function<void()>& cause, const std::filesystem::path& file,
                                      const std::function<void(QFileDialog&)>& look) {
    return Opened<QFileDialog>(cause, [&](QFileDialog& files) {
        if (look) look(files);
        auto& name = Control<QLineEdit>(files, "fileNameEdit");
        name.setText(QString::fromStdString(file.string()));
        QTest::keyClick(&name, Qt::Key_Return);
        if (files.isVisible()) files.reject();
    });
}

std::string DialogFixture::Text(QWidget& window, const char* id) {
    const auto& control = Control(window, id);
    for (const char* property : {"text", "plainText", "currentText"})
        if (control.property(property).isValid()) return control.property(property).toString().toStdString();
    return "no text in " + std::string(id);
}

std::vector<std::string> DialogFixture::Rows(QWidget& window, const char* id) {
    const auto& model = *Control<QAbstractItemView>(window, id).model();
    std::vector<std::string> rows;
    for (int row = 0; row < model.rowCount(); ++row) {
        QStringList cells;
        for (int column = 0; column < model.columnCount(); ++column)
            cells << model.index(row, column).data().toString();
        rows.push_back(cells.join(u'|').toStdString());
    }
    return rows;
}

QPoint DialogFixture::Middle(const QAbstractItemView& list, int row) {
    return list.visualRect(list.model()->index(row, 0)).center();
}

void DialogFixture::DoubleClick(const QAbstractItemView& list, int row) {
    QTest::mouseClick(list.viewport(), Qt::LeftButton, {}, Middle(list, row));
    QTest::mouseDClick(list.viewport(), Qt::LeftButton, {}, Middle(list, row));
}

void DialogFixture::Type(QWidget& control, const QString& text) {
    for (const QChar letter : text) {
        QKeyEvent press(QEvent::KeyPress, 0, Qt::NoModifier, letter);
        QApplication::sendEvent(&control, &press);
    }
}

void DialogFixture::Photograph(QWidget& window, const std::string& name) {
    const auto palette = QApplication::palette();
    const auto font = window.font();
    Save(window, name + "-light");
    Save(window, name + "-light-150", 1.5);
    Save(window, name + "-light-200", 2);
    QApplication::setPalette(DarkPalette());
    Settle();
    Save(window, name + "-dark");
    QApplication::setPalette(palette);
    auto larger = font;
    larger.setPointSizeF(font.pointSizeF() * 1.5);
    const auto size = window.size();
    window.setFont(larger);
    window.resize(window.sizeHint());  // adjustSize keeps to two thirds of a screen, and this one is small
    if (window.layout() != nullptr && window.layout()->hasHeightForWidth())
        window.resize(window.width(), window.layout()->totalHeightForWidth(window.width()));
    Settle();
    Save(window, name + "-larger");
    EXPECT_EQ(CutTexts(window), QStringList()) << name << " with a larger font";
    window.setFont(font);
    window.resize(size);
    Settle();
    EXPECT_EQ(CutTexts(window), QStringList()) << name;
}

void DialogFixture::ExpectKeyboard(QWidget& window, const QString& order, int keys) {
    QStringList reached, letters;
    for (auto* control = QApplication::focusWidget(); !reached.contains(control->objectName());) {
        reached << control->objectName();
        EXPECT_FALSE(QAccessible::queryAccessibleInterface(control)->text(QAccessible::Name).isEmpty())
            << control->objectName().toStdString();
        QTest::keyClick(control, Qt::Key_Tab);
        control = QApplication::focusWidget();
    }
    EXPECT_EQ(reached.join(u' '), order);
    for (const auto* const control : window.findChildren<QWidget*>()) {
        const auto text = control->property("text").toString() + control->property("title").toString();
        if (const auto at = text.indexOf(u'&'); at >= 0) letters << text.mid(at + 1, 1).toUpper();
    }
    EXPECT_EQ(letters.size(), keys);
    EXPECT_EQ(letters.removeDuplicates(), 0) << letters.join(u' ').toStdString();
}

verification::SignatureEntry DialogFixture::GoodEntry(const std::string& name) {
    const auto certificate = Issue({.subject = {{"CN", name}}, .key = TestKey(KeyType::p256)});
    verification::SignatureEntry entry;
    entry.certificate =
        std::make_unique<tessaly::CryptCertificate>(platform::CertCreateCertificateContext(certificate.Der()), true);
    entry.signMessage = u"Подписът е валиден";
    entry.certMessage = tessaly::StatusText(0);
    entry.profile = u"CAdES-BASELINE-B";
    entry.hashAlgorithm = u"SHA256";
    return entry;
}

}  // namespace tests
