#include "dialogs/CAboutDlg.h"

#include <QHBoxLayout>
#include <QLabel>
#include <QPainter>
#include <QPushButton>
#include <QVBoxLayout>

#include "dialogs/Icons.h"
#include "dialogs/Texts.h"
#include "units/Helpers.h"

namespace {

constexpr int kOk = 1, kPicture = 164;
constexpr unsigned kVersion = 272;
constexpr QSize kPictureSize(260, 140);
constexpr QRect kVersionPlace(QPoint(150, 70), QPoint(240, 120));

// A picture with the version drawn over it.
class Picture : public QLabel {
  public:
    using QLabel::QLabel;

  protected:
    void paintEvent(QPaintEvent* event) override {
        QLabel::paintEvent(event);
        QPainter painter(this);
        dialogs::Icon("about").paint(&painter, rect());  // anew each time: the desktop's colours may change
        painter.setPen(dialogs::IsDark(palette()) ? QColor(0x8f, 0xb2, 0xff) : QColor(0x00, 0x2f, 0xc0));
        painter.drawText(kVersionPlace, Qt::AlignLeft | Qt::AlignTop | Qt::TextWordWrap,
                         dialogs::ToQString(units::LoadStringW(kVersion)));
    }
};

}  // namespace

CAboutDlg::CAboutDlg() {
    setWindowTitle(QStringLiteral("Относно Norvik"));
    auto* const picture = new Picture(this);
    picture->setObjectName(QString::number(kPicture));
    picture->setAccessibleName(dialogs::ToQString(units::LoadStringW(kVersion)));
    picture->setFixedSize(kPictureSize);
    auto* const ok = MakeButton(QStringLiteral("ОК"), kOk);
    ok->setDefault(true);
    connect(ok, &QPushButton::clicked, this, &QDialog::accept);
    auto* const buttons = new QHBoxLayout;
    buttons->addStretch();
    buttons->addWidget(ok);
    auto* const layout = new QVBoxLayout(this);
    layout->addWidget(picture, 1, Qt::AlignCenter);
    layout->addLayout(buttons);
    layout->setSizeConstraint(QLayout::SetFixedSize);
}
