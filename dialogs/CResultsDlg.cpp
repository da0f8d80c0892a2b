#include "dialogs/CResultsDlg.h"

#include <QAction>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QGridLayout>
#include <QHeaderView>
#include <QLabel>
#include <QMenu>
#include <QPlainTextEdit>
#include <QStandardItemModel>
#include <array>

#include "dialogs/CBitButton.h"
#include "dialogs/CCertificateView.h"
#include "dialogs/CColorListCtrl.h"
#include "dialogs/CLegend.h"
#include "dialogs/CPrintDlg.h"
#include "dialogs/CSignDetailsDlg.h"
#include "dialogs/CSignatureTree.h"
#include "dialogs/Desktop.h"
#include "dialogs/DesktopOpener.h"
#include "dialogs/FileDialogs.h"
#include "dialogs/FileType.h"
#include "dialogs/Icons.h"
#include "dialogs/MessageBox.h"
#include "dialogs/Texts.h"
#include "src/Norvik.h"
#include "src/ProgressDlg.h"
#include "src/results/SignatureState.h"
#include "src/results/TreeText.h"
#include "src/results/UnsafeExtension.h"
#include "units/Helpers.h"

namespace {

namespace fs = std::filesystem;
using Icon = ui::Message::Icon;

constexpr int kOpen = 192, kSave = 193, kContent = 196, kCertificate = 201, kReport = 202, kTree = 233, kLegend = 240,
              kMenu = 246, kEdit = 272, kComment = 6104;
constexpr int kCommentLines = 4;

QString TableText(unsigned id) {
    return dialogs::ToQString(units::LoadStringW(id));
}

void ShowText(unsigned text, unsigned title, Icon icon, const fs::path& file = {}) {
    dialogs::ShowMessageBox(
        {units::FormatString1(text, platform::ToWide(file.string())), units::LoadStringW(title), icon});
}

fs::path WorkFolder() {
    const auto app = CNorvikApp::Current();
    return app ? app->SessionFolder() : fs::path();
}

// Nobody may write it: marked so, or not this user.
bool IsReadOnly(const fs::path& path) {
    const QFileInfo file(QFile::decodeName(path.c_str()));
    const auto writers = QFile::WriteOwner | QFile::WriteGroup | QFile::WriteOther;
    return file.exists() && (!file.isWritable() || (file.permissions() & writers) == 0);
}

// A wait that the person sees: a cursor at once, a window if it lasts.
template <typename Work>
bool Waiting(const fs::path& file, const Work& work) {
    const auto app = CNorvikApp::Current();
    if (!app) return work(results::ProtectedContent::Progress());
    const dialogs::WaitCursor cursor;
    DelayedProgress progress(app->Interface(), platform::ToWide(file.string()));
    return work([&](std::uint64_t done, std::uint64_t total) { progress.Update(done, total); });
}

QString Summary(const verification::SignatureEntries& entries) {
    if (entries.empty()) return QStringLiteral("Файлът не е подписан.");
    const std::array<QString, 3> words{QStringLiteral("валидни"), QStringLiteral("невалидни"),
                                       QStringLiteral("непроверени")};
    std::array<int, 3> counts{};
    for (const auto& entry : entries)
        ++counts.at(static_cast<std::size_t>(results::StateInList(entry)));
    QStringList parts;
    for (std::size_t state = 0; state < counts.size(); ++state)
        if (counts.at(state) > 0) parts << QStringLiteral("%1: %2").arg(words.at(state)).arg(counts.at(state));
    return QStringLiteral("Подписи: %1 (%2)").arg(entries.size()).arg(parts.join(QStringLiteral(", ")));
}

}  // namespace

CResultsDlg::CResultsDlg(const ui::ResultsQuestion& question)
    : entries_(question.entries),
      file_(question.signFile),
      content_(question.signFile, question.dataFile, WorkFolder()),
      canEdit_(!IsReadOnly(question.signFile)) {
    setWindowTitle(QStringLiteral("ТЕСАЛИ Norvik - резултати от декриптиране/проверка"));
    setWindowIcon(dialogs::Icon("signatures"));
    auto* const grid = new QGridLayout;
    grid->setColumnStretch(0, 1);
    MakeSignatures(*grid);
    MakeContent(*grid);
    auto* const comment = MakeComment();
    auto* const ok = MakeOkButton();

    auto* const layout = new QVBoxLayout(this);
    layout->addWidget(MakeBanner(dialogs::Icon("signatures"),
                                 dialogs::OneLine(platform::ToWide(file_.filename().string())), Summary(entries_)));
    layout->addLayout(grid, 4);
    layout->addLayout(comment, 1);
    layout->addWidget(ok, 0, Qt::AlignRight);
    OpenAt(54, 36);
    tree_->Fill(question.encryptionText.empty() ? QString()
                                                : dialogs::OneLine(units::LoadStringW(331) + question.encryptionText));
    legend_->SetLevels(static_cast<int>(results::LevelCount(entries_)));
    OnSelection();
    tree_->setFocus();
}

ui::ResultsAction CResultsDlg::Show() {
    Extract();
    DoModal();
    return action_;
}

void CResultsDlg::MakeSignatures(QGridLayout& grid) {
    legend_ = new CLegend(this);
    legend_->setObjectName(QString::number(kLegend));
    tree_ = new CSignatureTree(entries_, this);
    tree_->setObjectName(QString::number(kTree));
    tree_->setAccessibleName(QStringLiteral("Електронни подписи"));
    tree_->setToolTip(TableText(kTree));
    auto* const label = new QLabel(QStringLiteral("&Електронни подписи:"), this);
    label->setBuddy(tree_);
    connect(tree_, &QTreeWidget::itemSelectionChanged, this, &CResultsDlg::OnSelection);
    connect(tree_, &QTreeWidget::itemDoubleClicked, this, &CResultsDlg::ViewDetails);
    AddRowCommand(*tree_, QStringLiteral("&Детайли"), [this] { ViewDetails(); });

    certificate_ =
        MakeToolButton(QStringLiteral("Се&ртификат"), kCertificate, "certificate", &CResultsDlg::ViewCertificate);
    auto* const report = MakeToolButton(QStringLiteral("Спр&авка"), kReport, "print", &CResultsDlg::Print);
    report->setEnabled(!entries_.empty());
    edit_ = MakePictureButton(QStringLiteral("Ре&дакция >"), kEdit, "edit");
    edit_->setToolTip(TableText(canEdit_ ? 340 : 341));
    edit_->setEnabled(canEdit_);
    edit_->setVisible(canEdit_);
    auto* const menu = MakeEditMenu();
    connect(edit_, &QPushButton::clicked, menu,
            [this, menu] { menu->popup(edit_->mapToGlobal(edit_->rect().bottomLeft())); });

    auto* const signatures = new QHBoxLayout;
    signatures->addWidget(legend_);
    signatures->addWidget(tree_, 1);
    auto* const buttons = new QVBoxLayout;
    for (auto* const button : {certificate_, report, edit_})
        buttons->addWidget(button);
    buttons->addStretch();
    grid.addWidget(label, 0, 0);
    grid.addLayout(signatures, 1, 0);
    grid.addLayout(buttons, 1, 1);
    grid.setRowStretch(1, 1);
}

void CResultsDlg::MakeContent(QGridLayout& grid) {
    list_ = new CColorListCtrl(this);
    list_->setObjectName(QString::number(kContent));
    list_->setAccessibleName(QStringLiteral("Защитен файл"));
    list_->setToolTip(TableText(kContent));
    auto* const model = new QStandardItemModel(1, 2, list_);
    model->setHorizontalHeaderLabels({QStringLiteral("Име"), QStringLiteral("Тип")});
    const auto name = dialogs::OneLine(platform::ToWide(content_.Path().filename().string()));
    model->setItem(0, 0, new QStandardItem(dialogs::TypeIcon(content_.Path()), name));
    model->setItem(0, 1, new QStandardItem(dialogs::TypeName(content_.Path())));
    list_->setModel(model);
    list_->header()->setSectionResizeMode(QHeaderView::Stretch);
    list_->SelectRow(0);
    list_->setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Fixed);
    list_->setSizeAdjustPolicy(QAbstractScrollArea::AdjustToContents);
    auto* const label = new QLabel(QStringLiteral("&Защитен файл:"), this);
    label->setBuddy(list_);
    connect(list_, &QAbstractItemView::doubleClicked, this, &CResultsDlg::Open);
    AddRowCommand(*list_, QStringLiteral("&Отвори"), [this] { Open(); });

    auto* const buttons = new QVBoxLayout;
    buttons->addWidget(MakeToolButton(QStringLiteral("&Отвори"), kOpen, "open", &CResultsDlg::Open));
    buttons->addWidget(MakeToolButton(QStringLiteral("&Съхрани..."), kSave, "save", &CResultsDlg::Save));
    buttons->addStretch();
    grid.addWidget(label, 2, 0);
    grid.addWidget(list_, 3, 0);
    grid.addLayout(buttons, 3, 1);
}

QLayout* CResultsDlg::MakeComment() {
    comment_ = MakeReading(kComment, QStringLiteral("Коментар:"), this);
    comment_->setMinimumHeight(kCommentLines * fontMetrics().height());
    auto* const label = new QLabel(QStringLiteral("&Коментар:"), this);
    label->setBuddy(comment_);
    auto* const layout = new QVBoxLayout;
    layout->addWidget(label);
    layout->addWidget(comment_, 1);
    return layout;
}

// What the items start cannot be done from here yet; the person sees that before trying.
QMenu* CResultsDlg::MakeEditMenu() {
    auto* const menu = new QMenu(this);
    menu->setObjectName(QString::number(kMenu));
    menu->setToolTipsVisible(true);
    const auto add = [this, menu](const QString& text, const QString& remark, ui::ResultsAction next) {
        auto* const item = menu->addAction(text);
        item->setEnabled(false);
        item->setToolTip(remark);
        connect(item, &QAction::triggered, this, [this, next] {
            action_ = next;
            accept();
        });
    };
    add(QStringLiteral("&Добавяне на подпис"), QStringLiteral("Още не може да се добави подпис към подписан файл."),
        ui::ResultsAction::addSignature);
    add(QStringLiteral("&Криптиране"), QStringLiteral("Още не може да се криптира файл."), ui::ResultsAction::encrypt);
    return menu;
}

CBitButton* CResultsDlg::MakeToolButton(const QString& text, int id, const char* picture,
                                        void (CResultsDlg::*action)()) {
    auto* const button = MakePictureButton(text, id, picture);
    button->setToolTip(TableText(static_cast<unsigned>(id)));
    connect(button, &QPushButton::clicked, this, action);
    return button;
}

void CResultsDlg::Extract() {
    if (content_.Detached()) return;
    if (!Waiting(file_, [this](const auto& progress) { return content_.Extract(progress); }))
        ShowText(329, 288, Icon::error, content_.Path());
}

void CResultsDlg::Open() {
    const auto& file = content_.Path();
    if (results::HasUnsafeExtension(platform::ToWide(file.filename().string())) || dialogs::DesktopWouldRun(file))
        return ShowText(334, 335, Icon::warning);
    if (!content_.Available()) return ShowText(337, 288, Icon::error);
    dialogs::OpenWithDesktop(file, *this, [](dialogs::OpenFailure failure) {
        if (failure == dialogs::OpenFailure::noApplication)
            ShowText(336, 285, Icon::information);
        else
            ShowText(337, 288, Icon::error);
    });
    tree_->setFocus();
}

// Beside the signature, unless that lies where nothing stays.
void CResultsDlg::Save() {
    std::error_code error;
    const auto beside = fs::absolute(file_, error).parent_path();
    const auto folder = beside == WorkFolder() ? fs::path(QFile::encodeName(QDir::homePath()).toStdString()) : beside;
    const auto target = dialogs::AskSaveFile(QStringLiteral("Save as"), folder / content_.Path().filename());
    if (!target) return;
    if (!Waiting(*target, [&](const auto& progress) { return content_.SaveTo(*target, progress); }))
        ShowText(328, 288, Icon::error, *target);
}

void CResultsDlg::ViewCertificate() {
    const auto* const entry = tree_->SelectedEntry();
    if (entry != nullptr && entry->certificate && entry->certificate->Context())
        CCertificateView(entry->certificate->Context()).DoModal();
    tree_->setFocus();
}

void CResultsDlg::ViewDetails() {
    if (const auto* const entry = tree_->SelectedEntry()) CSignDetailsDlg(*entry).DoModal();
}

void CResultsDlg::Print() {
    CPrintDlg(entries_, platform::ToWide(file_.filename().string()), this).DoModal();
}

void CResultsDlg::OnSelection() {
    const auto* const entry = tree_->SelectedEntry();
    comment_->setPlainText(entry != nullptr ? dialogs::ToQString(entry->comment) : QString());
    certificate_->setEnabled(entry != nullptr && entry->certificate);
    legend_->SetCurrentLevel(tree_->SelectedLevel());
}
