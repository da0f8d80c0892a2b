#include "dialogs/CTessalyDialog.h"

#include <QAction>
#include <QFontDatabase>
#include <QHBoxLayout>
#include <QPainter>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QVBoxLayout>

#include "dialogs/CBitButton.h"
#include "dialogs/CElidedLabel.h"
#include "dialogs/Desktop.h"
#include "dialogs/Icons.h"

namespace {

constexpr int kBannerHeight = 48, kBannerIcon = 32;

QFont DialogFont(QFont font) {
    const auto preferred = QStringLiteral("Segoe UI");
    if (QFontDatabase::hasFamily(preferred)) font.setFamily(preferred);
    font.setStyleStrategy(QFont::PreferAntialias);
    return font;
}

// Drawn when it is looked at: the palette may change while the window is open.
class Picture : public QWidget {
  public:
    Picture(QIcon icon, QWidget* parent) : QWidget(parent), icon_(std::move(icon)) {
        setFixedSize(kBannerIcon, kBannerIcon);
    }

  protected:
    void paintEvent(QPaintEvent*) override {
        QPainter painter(this);
        icon_.paint(&painter, rect());
    }

  private:
    QIcon icon_;
};

}  // namespace

CTessalyDialog::CTessalyDialog() : QDialog(dialogs::OwnerWidget()) {
    setFont(DialogFont(font()));
    setWindowIcon(dialogs::Icon("sign"));
    setWindowFlag(Qt::WindowContextHelpButtonHint, false);
}

int CTessalyDialog::DoModal() {
    return dialogs::RunDialog(*this);
}

QSize CTessalyDialog::sizeHint() const {
    return extent_.isValid() ? (extent_ * fontMetrics().height()).expandedTo(minimumSizeHint()) : QDialog::sizeHint();
}

void CTessalyDialog::OpenAt(int across, int down) {
    extent_ = QSize(across, down);
    resize(sizeHint());
}

QWidget* CTessalyDialog::MakeBanner(const QIcon& icon, const QString& subject, const QString& remark) {
    auto* const banner = new QWidget(this);
    banner->setMinimumHeight(kBannerHeight);
    banner->setSizePolicy(QSizePolicy::Preferred, QSizePolicy::Fixed);
    auto* const row = new QHBoxLayout(banner);
    row->setContentsMargins(0, 0, 0, 0);
    auto* const picture = new Picture(icon, banner);
    auto* const texts = new QVBoxLayout;
    auto* const title = new CElidedLabel(subject, banner);
    auto large = title->font();
    large.setPointSizeF(large.pointSizeF() * 1.25);
    large.setWeight(QFont::DemiBold);
    title->setFont(large);
    texts->addStretch();
    texts->addWidget(title);
    if (!remark.isEmpty()) texts->addWidget(new CElidedLabel(remark, banner));
    texts->addStretch();
    row->addWidget(picture);
    row->addSpacing(4);
    row->addLayout(texts, 1);
    return banner;
}

CBitButton* CTessalyDialog::MakePictureButton(const QString& text, int id, const char* picture) {
    auto* const button = new CBitButton(text, this);
    button->setObjectName(QString::number(id));
    button->SetImage(picture);
    return button;
}

QPlainTextEdit* CTessalyDialog::MakeReading(int id, const QString& accessibleName, QWidget* parent) {
    auto* const text = new QPlainTextEdit(parent);
    text->setObjectName(QString::number(id));
    text->setAccessibleName(accessibleName);
    text->setTextInteractionFlags(Qt::TextSelectableByMouse | Qt::TextSelectableByKeyboard);
    text->setTabChangesFocus(true);
    return text;
}

CBitButton* CTessalyDialog::MakeOkButton() {
    auto* const ok = MakePictureButton(QStringLiteral("OK"), 1, "ok");
    ok->setDefault(true);
    connect(ok, &QPushButton::clicked, this, &QDialog::accept);
    return ok;
}

QPushButton* CTessalyDialog::MakeButton(const QString& text, int id) {
    auto* const button = new QPushButton(text, this);
    button->setObjectName(QString::number(id));
    button->setAutoDefault(false);
    return button;
}

void CTessalyDialog::AddRowCommand(QWidget& list, const QString& text, const std::function<void()>& run) {
    auto* const command = new QAction(text, &list);
    command->setShortcuts({QKeySequence(Qt::ALT | Qt::Key_Enter), QKeySequence(Qt::ALT | Qt::Key_Return)});
    command->setShortcutContext(Qt::WidgetShortcut);
    connect(command, &QAction::triggered, this, run);
    list.addAction(command);
    list.setContextMenuPolicy(Qt::ActionsContextMenu);
}
