#include "dialogs/Display.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>
#include <xcb/xcb.h>

#include <QDir>
#include <QFile>
#include <QLibraryInfo>
#include <QPluginLoader>
#include <QStringList>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "src/Norvik.h"
#include "src/ui/UserInterface.h"

namespace dialogs {
namespace {

struct Disconnect {
    void operator()(xcb_connection_t* connection) const { xcb_disconnect(connection); }
};
using XConnection = std::unique_ptr<xcb_connection_t, Disconnect>;

XConnection ConnectX() {
    XConnection connection(xcb_connect(nullptr, nullptr));
    if (xcb_connection_has_error(connection.get()) != 0) return nullptr;
    return connection;
}

bool WaylandAnswers() {
    const QByteArray name = qEnvironmentVariableIsSet("WAYLAND_DISPLAY") ? qgetenv("WAYLAND_DISPLAY") : "wayland-0";
    const QByteArray path = name.startsWith('/') ? name : qgetenv("XDG_RUNTIME_DIR") + '/' + name;
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (path.size() >= static_cast<qsizetype>(sizeof address.sun_path)) return false;
    std::memcpy(address.sun_path, path.constData(), static_cast<std::size_t>(path.size()));
    const int descriptor = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (descriptor < 0) return false;
    const bool answers = connect(descriptor, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0;
    close(descriptor);
    return answers;
}

// One that is there but cannot be loaded, for a library of its own that is missing, is as bad as none.
bool HasPlugin(const QString& platform) {
    QStringList folders{qEnvironmentVariable("QT_QPA_PLATFORM_PLUGIN_PATH"),
                        QLibraryInfo::path(QLibraryInfo::PluginsPath) + QStringLiteral("/platforms")};
    for (const auto& folder : qEnvironmentVariable("QT_PLUGIN_PATH").split(QDir::listSeparator(), Qt::SkipEmptyParts))
        folders << folder + QStringLiteral("/platforms");
    const auto file = platform == QStringLiteral("wayland") ? QStringLiteral("/libqwayland-generic.so")
                                                            : QStringLiteral("/libq%1.so").arg(platform);
    for (const auto& folder : folders)
        if (!folder.isEmpty() && QFile::exists(folder + file) && QPluginLoader(folder + file).load()) return true;
    return false;
}

// `wish` may carry options of the plugin behind a colon.
bool CanShow(const QString& wish) {
    const auto platform = wish.section(QLatin1Char(':'), 0, 0);
    if (!HasPlugin(platform)) return false;
    if (platform == QStringLiteral("xcb")) return ConnectX() != nullptr;
    if (platform.startsWith(QStringLiteral("wayland"))) return WaylandAnswers();
    return true;
}

// An owner window given by the application is one of X: where both are there, its own display is the better one.
QStringList Candidates() {
    const auto chosen = qEnvironmentVariable("QT_QPA_PLATFORM");
    if (!chosen.isEmpty()) return chosen.split(QLatin1Char(';'), Qt::SkipEmptyParts);
    const auto app = CNorvikApp::Current();
    const bool owned = app && app->parentWindow != nullptr;
    const bool wayland = qEnvironmentVariableIsSet("WAYLAND_DISPLAY") && !owned;
    return wayland ? QStringList{QStringLiteral("wayland"), QStringLiteral("xcb")}
                   : QStringList{QStringLiteral("xcb"), QStringLiteral("wayland")};
}

}  // namespace

std::string UsablePlatform() {
    for (const auto& candidate : Candidates())
        if (CanShow(candidate)) return candidate.toStdString();
    throw ui::Unavailable("Няма достъпен екран (DISPLAY, WAYLAND_DISPLAY): прозорецът не може да се покаже.");
}

bool HasXWindow(unsigned long id) {
    const auto connection = ConnectX();
    if (!connection) return false;
    const auto cookie = xcb_get_geometry(connection.get(), static_cast<xcb_drawable_t>(id));
    xcb_generic_error_t* error = nullptr;
    auto* const reply = xcb_get_geometry_reply(connection.get(), cookie, &error);
    const bool known = reply != nullptr;
    std::free(reply);
    std::free(error);
    return known;
}

}  // namespace dialogs
