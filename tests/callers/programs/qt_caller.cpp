// An application that has an application object of the windows' own toolkit: a whole one with a window that owns the
// dialogs, or one for programs without windows.
//   qt_caller LIBRARY PFX widgets|core
#include <dlfcn.h>

#include <QApplication>
#include <QLabel>
#include <QTimer>
#include <cstdint>
#include <cstdio>
#include <string>

namespace {

using Answer = void (*)(std::uint64_t, const char16_t*);

void Ask(void* library, const std::string& pfx) {
    const auto certInfo =
        reinterpret_cast<bool (*)(const char16_t*, Answer, std::uint64_t)>(dlsym(library, "NorvikCertInfoJson"));
    const auto request = QString::fromStdString("{\"Filename\":\"" + pfx + "\"}").toStdU16String();
    const bool done = certInfo(
        request.c_str(),
        [](std::uint64_t, const char16_t* json) { std::printf("answer %s\n", qPrintable(QString::fromUtf16(json))); },
        0);
    std::printf("done %d\n", done);
}

int WithWindow(void* library, const std::string& pfx, int count, char** arguments) {
    QApplication app(count, arguments);
    QLabel window(QStringLiteral("Qt caller"));
    window.resize(600, 400);
    window.show();
    const auto init = reinterpret_cast<void (*)(void*)>(dlsym(library, "NorvikInit"));
    init(reinterpret_cast<void*>(window.winId()));
    QTimer::singleShot(200, &app, [&] {
        Ask(library, pfx);
        std::printf("same %d\n", QCoreApplication::instance() == &app);
        QTimer::singleShot(50, &app, [&] { app.exit(3); });
    });
    return QApplication::exec();
}

}  // namespace

int main(int count, char** arguments) {
    if (count < 4) return 2;
    void* const library = dlopen(arguments[1], RTLD_NOW | RTLD_LOCAL);
    if (library == nullptr) return 2;
    if (std::string(arguments[3]) == "widgets") return WithWindow(library, arguments[2], count, arguments);
    const QCoreApplication app(count, arguments);
    Ask(library, arguments[2]);
    return 3;
}
