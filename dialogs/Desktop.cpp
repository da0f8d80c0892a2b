#include "dialogs/Desktop.h"

#include <QApplication>
#include <QLibraryInfo>
#include <QScreen>
#include <QStyle>
#include <QThread>
#include <QTranslator>
#include <QWindow>
#include <clocale>
#include <memory>
#include <string>

#include "dialogs/Display.h"
#include "dialogs/ToolkitWords.h"
#include "src/Norvik.h"
#include "src/ui/UserInterface.h"

namespace dialogs {
namespace {

// The toolkit's start sets the C locale of the whole process, which belongs to the caller.
class LocaleKeeper {
  public:
    LocaleKeeper() : name_(std::setlocale(LC_ALL, nullptr)) {}
    ~LocaleKeeper() { std::setlocale(LC_ALL, name_.c_str()); }
    LocaleKeeper(const LocaleKeeper&) = delete;
    LocaleKeeper& operator=(const LocaleKeeper&) = delete;

  private:
    std::string name_;
};

// The application object of a caller that has none, from its first window to the end of the process. The toolkit keeps
// pointers to the argument list.
class OwnApplication {
  public:
    explicit OwnApplication(std::string platform) : platform_(std::move(platform)) {
        const LocaleKeeper locale;
        app_ = std::make_unique<QApplication>(count_, arguments_);
        QApplication::setQuitOnLastWindowClosed(false);
        if (texts_.load(QStringLiteral("qtbase_bg"), QLibraryInfo::path(QLibraryInfo::TranslationsPath)))
            QCoreApplication::installTranslator(&texts_);
        QCoreApplication::installTranslator(&words_);
    }
    OwnApplication(const OwnApplication&) = delete;
    OwnApplication& operator=(const OwnApplication&) = delete;

  private:
    std::string platform_;
    char name_[7] = "Norvik", option_[10] = "-platform";
    char* arguments_[4] = {name_, option_, platform_.data(), nullptr};
    int count_ = 3;
    QTranslator texts_;
    ToolkitWords words_;
    std::unique_ptr<QApplication> app_;
};

// Of another toolkit, so that only the window system can tie the two together.
std::unique_ptr<QWindow> ForeignOwner() {
    const auto app = CNorvikApp::Current();
    const auto id = app ? reinterpret_cast<WId>(app->parentWindow.load()) : 0;
    if (id == 0 || QGuiApplication::platformName() != QStringLiteral("xcb")) return nullptr;
    if (!HasXWindow(id)) {
        LogInfo(u"The owner window does not exist any more.");
        return nullptr;
    }
    return std::unique_ptr<QWindow>(QWindow::fromWinId(id));
}

// What lies beyond the screen is out of reach, the buttons at the foot before all. Windows that take their size from
// their content at showing are kept within it by the toolkit.
void FitOnScreen(QDialog& dialog) {
    if (!dialog.testAttribute(Qt::WA_Resized)) return;
    const auto title = dialog.style()->pixelMetric(QStyle::PM_TitleBarHeight, nullptr, &dialog);
    const auto room = dialog.screen()->availableSize() - QSize(0, title);
    dialog.resize(dialog.size().boundedTo(room));
}

constexpr char kDrawsOnly[] = "norvikDrawsOnly";

// Never destroyed: at the end of the process the toolkit's own statics, which it would need, may be gone before.
void MakeApplication(std::string platform) {
    static const auto* const own = new OwnApplication(std::move(platform));
    static_cast<void>(own);
}

}  // namespace

void RequireDesktop() {
    if (QCoreApplication::instance() == nullptr) MakeApplication(UsablePlatform());
    const auto* const core = QCoreApplication::instance();
    if (core->property(kDrawsOnly).toBool()) throw ui::Unavailable("При първото чертане в този процес нямаше екран.");
    if (qobject_cast<const QApplication*>(core) == nullptr)
        throw ui::Unavailable("Приложението работи без прозорци: неговият обект не е QApplication.");
    if (QThread::currentThread() != core->thread())
        throw ui::Unavailable(
            "Прозорец може да се покаже само от нишката, в която работят прозорците на приложението.");
}

void RequireDrawing() {
    if (QCoreApplication::instance() == nullptr) {
        try {
            MakeApplication(UsablePlatform());
        } catch (const ui::Unavailable&) {
            MakeApplication("offscreen");
            QCoreApplication::instance()->setProperty(kDrawsOnly, true);
        }
    }
    if (qobject_cast<const QGuiApplication*>(QCoreApplication::instance()) == nullptr)
        throw ui::Unavailable("Приложението работи без чертане: неговият обект не е QGuiApplication.");
}

QWidget* OwnerWidget() {
    if (auto* const open = QApplication::activeModalWidget()) return open;
    const auto app = CNorvikApp::Current();
    return app ? QWidget::find(reinterpret_cast<WId>(app->parentWindow.load())) : nullptr;
}

int RunDialog(QDialog& dialog) {
    FitOnScreen(dialog);
    const auto foreign = dialog.parentWidget() == nullptr ? ForeignOwner() : nullptr;
    if (foreign) {
        dialog.winId();  // makes the window, which the owner is set for before it shows
        dialog.windowHandle()->setTransientParent(foreign.get());
    }
    return dialog.exec();
}

WaitCursor::WaitCursor() {
    QApplication::setOverrideCursor(Qt::WaitCursor);
}
WaitCursor::~WaitCursor() {
    QApplication::restoreOverrideCursor();
}

}  // namespace dialogs
