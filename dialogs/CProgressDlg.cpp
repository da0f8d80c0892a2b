#include "dialogs/CProgressDlg.h"

#include <QApplication>
#include <QLabel>
#include <QLineEdit>
#include <QPainter>
#include <QProgressBar>
#include <QVBoxLayout>

#include "dialogs/Texts.h"

namespace {
constexpr int kLabel = 175, kFile = 190, kSteps = 1000;
}

CProgressDlg::CProgressDlg(const QString& file) : bar_(new QProgressBar(this)) {
    setWindowFlags(Qt::Dialog | Qt::FramelessWindowHint);
    setWindowModality(Qt::ApplicationModal);
    auto* const label = new QLabel(QStringLiteral("Зареждане на файл: "), this);
    label->setObjectName(QString::number(kLabel));
    auto* const name = new QLineEdit(file, this);
    name->setObjectName(QString::number(kFile));
    name->setReadOnly(true);
    name->setAccessibleName(label->text());
    name->setToolTip(dialogs::PlainToolTip(file));
    label->setBuddy(name);
    bar_->setTextVisible(false);
    bar_->setRange(0, 0);
    auto* const layout = new QVBoxLayout(this);
    layout->addWidget(label);
    layout->addWidget(name);
    layout->addWidget(bar_);
    layout->addWidget(new QLabel(QStringLiteral("Моля почакайте..."), this));
    setMinimumWidth(26 * fontMetrics().height());
}

// No window manager draws a frame around it, and below may be a window of the same colour.
void CProgressDlg::paintEvent(QPaintEvent* event) {
    CTessalyDialog::paintEvent(event);
    QPainter painter(this);
    painter.setPen(palette().color(QPalette::Disabled, QPalette::WindowText));
    painter.drawRect(rect().adjusted(0, 0, -1, -1));
}

// The person's input waits until the operation is over.
void CProgressDlg::Update(std::uint64_t done, std::uint64_t total) {
    if (total > 0) {
        bar_->setRange(0, kSteps);
        bar_->setValue(static_cast<int>(static_cast<double>(done) / static_cast<double>(total) * kSteps));
    }
    QApplication::processEvents(QEventLoop::ExcludeUserInputEvents);
}
