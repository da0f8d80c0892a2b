#include "tests/dialogs/DialogFixture.h"

#include <QAbstractButton>
#include <QAccessible>
#include <QDir>
#include <QKeyEvent>
#include <QLabel>
#include <QLayout>
#include <QPainter>
#include <QStyle>
#include <QTimer>

#include "dialogs/Desktop.h"
#include "tests/support/Pki.h"

namespace tests {
namespace {

constexpr int kLongestMilliseconds = 10'000;

QPalette DarkPalette() {
    QPalette palette(QColor(45, 47, 51));
    palette.setColor(QPalette::Base, QColor(30, 31, 34));
    palette.setColor(QPalette::AlternateBase, QColor(38, 40, 44));
    palette.setColor(QPalette::Text, QColor(235, 235, 235));
    palette.setColor(QPalette::WindowText, QColor(235, 235, 235));
    palette.setColor(QPalette::ButtonText, QColor(235, 235, 235));
    palette.setColor(QPalette::Highlight, QColor(61, 109, 204));
    palette.setColor(QPalette::HighlightedText, Qt::white);
    for (const auto role : {QPalette::Text, QPalette::WindowText, QPalette::ButtonText})
        palette.setColor(QPalette::Disabled, role, QColor(130, 132, 136));
    return palette;
}

void Settle() {
    for (int i = 0; i < 5; ++i)
        QApplication::processEvents();
}

void Save(QWidget& window, const QString& name, qreal scale) {
    QImage picture((QSizeF(window.size()) * scale).toSize(), QImage::Format_RGB32);
    picture.setDevicePixelRatio(scale);
    window.render(&picture);
    const QDir folder(QStringLiteral(NORVIK_BINARY_DIR "/pictures"));
    folder.mkpath(QStringLiteral("."));
    ASSERT_TRUE(picture.save(folder.filePath(name + QStringLiteral(".png")))) << name.toStdString();
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
        QTimer::singleShot(kLongestMilliseconds, dialog, [dialog] {
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

void DialogFixture::Type(QWidget& control, const QString& text) {
    for (const QChar letter : text) {
        QKeyEvent press(QEvent::KeyPress, 0, Qt::NoModifier, letter);
        QApplication::sendEvent(&control, &press);
    }
}

void DialogFixture::Photograph(QWidget& window, const std::string& name) {
    const auto file = QString::fromStdString(name);
    const auto palette = QApplication::palette();
    const auto font = window.font();
    Save(window, file + QStringLiteral("-light"), 1);
    Save(window, file + QStringLiteral("-light-150"), 1.5);
    Save(window, file + QStringLiteral("-light-200"), 2);
    QApplication::setPalette(DarkPalette());
    Settle();
    Save(window, file + QStringLiteral("-dark"), 1);
    QApplication::setPalette(palette);
    auto larger = font;
    larger.setPointSizeF(font.pointSizeF() * 1.5);
    const auto size = window.size();
    window.setFont(larger);
    window.resize(window.sizeHint());  // adjustSize keeps to two thirds of a screen, and this one is small
    if (window.layout() != nullptr && window.layout()->hasHeightForWidth())
        window.resize(window.width(), window.layout()->totalHeightForWidth(window.width()));
    Settle();
    Save(window, file + QStringLiteral("-larger"), 1);
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
    EXPECT_EQ(reached.join(QLatin1Char(' ')), order);
    for (const auto* const control : window.findChildren<QWidget*>()) {
        const auto text = control->property("text").toString() + control->property("title").toString();
        const auto at = text.indexOf(QLatin1Char('&'));
        if (at >= 0) letters << text.mid(at + 1, 1).toUpper();
    }
    EXPECT_EQ(letters.size(), keys);
    EXPECT_EQ(letters.removeDuplicates(), 0) << letters.join(QLatin1Char(' ')).toStdString();
}

std::string DialogFixture::Opened(const std::function<void()>& cause, const std::function<void(QWidget&)>& answer) {
    std::string title = "nothing";
    QTimer timer;
    timer.setSingleShot(true);
    QObject::connect(&timer, &QTimer::timeout, &timer, [&] {
        auto* const window = QApplication::activeModalWidget();
        if (window == nullptr) return;
        title = window->windowTitle().toStdString();
        answer(*window);
    });
    timer.start(0);
    cause();
    return title;
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

QStringList DialogFixture::CutTexts(QWidget& window) {
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

}  // namespace tests
