// Loaded by the toolkit itself at its start, so that the measured process has nothing of it before: waits for the first
// dialog to be painted, prints the microseconds since the moment in NORVIK_BENCH_START and closes the dialog. With
// NORVIK_BENCH_SCROLL it turns every page of the dialog's list before, and prints the median and the longest page too.

#include <QAbstractItemView>
#include <QApplication>
#include <QDialog>
#include <QEvent>
#include <QGenericPlugin>
#include <QLabel>
#include <QScrollBar>
#include <QTimer>
#include <QVBoxLayout>
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <vector>

namespace {

long long Now() {
    using std::chrono::duration_cast;
    return duration_cast<std::chrono::microseconds>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

long long SinceStart() {
    return Now() - std::strtoll(std::getenv("NORVIK_BENCH_START"), nullptr, 10);
}

std::vector<long long> TurnPages(QAbstractItemView& list) {
    auto* const bar = list.verticalScrollBar();
    std::vector<long long> pages;
    while (bar->value() < bar->maximum()) {
        const auto start = Now();
        bar->setValue(bar->value() + bar->pageStep());
        list.viewport()->repaint();
        pages.push_back(Now() - start);
    }
    return pages;
}

void Report(QDialog& dialog) {
    std::printf("%lld", SinceStart());
    auto* const list = dialog.findChild<QAbstractItemView*>(QStringLiteral("271"));
    if (std::getenv("NORVIK_BENCH_SCROLL") != nullptr && list != nullptr) {
        auto pages = TurnPages(*list);
        std::sort(pages.begin(), pages.end());
        if (!pages.empty()) std::printf(" %lld %lld %zu", pages[pages.size() / 2], pages.back(), pages.size());
    }
    std::printf("\n");
    std::fflush(stdout);
    dialog.reject();
}

class FirstPaint : public QObject {
  public:
    using QObject::QObject;
    bool eventFilter(QObject* watched, QEvent* event) override {
        if (event->type() != QEvent::Paint || !watched->isWidgetType()) return false;
        auto* const dialog = qobject_cast<QDialog*>(static_cast<QWidget*>(watched)->window());
        if (dialog == nullptr) return false;
        qApp->removeEventFilter(this);
        // All widgets of a window are painted within one event.
        QTimer::singleShot(0, dialog, [dialog] { Report(*dialog); });
        return false;
    }
};

}  // namespace

class PaintedPlugin : public QGenericPlugin {
    Q_OBJECT
    Q_PLUGIN_METADATA(IID QGenericPluginFactoryInterface_iid FILE "painted.json")
  public:
    QObject* create(const QString&, const QString&) override {
        auto* const filter = new FirstPaint;  // the application deletes what plugins give it
        qApp->installEventFilter(filter);
        return filter;
    }
};

// What the toolkit takes by itself: to be loaded (together with this library), to make its application object and, if
// `window` is set, to paint a dialog with one text.
extern "C" void StartToolkit(bool window) {
    int count = 1;
    char name[] = "toolkit";
    char* arguments[] = {name, nullptr};
    const QApplication app(count, arguments);
    if (!window) {
        std::printf("%lld\n", SinceStart());
        return;
    }
    QDialog dialog;
    (new QVBoxLayout(&dialog))->addWidget(new QLabel(QStringLiteral("Подписване на файл")));
    dialog.exec();
}

#include "Painted.moc"
