#include "dialogs/DesktopOpener.h"

#include <QDesktopServices>
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QMimeDatabase>
#include <QPointer>
#include <QProcess>
#include <QStandardPaths>
#include <QUrl>
#include <algorithm>

namespace dialogs {
namespace {

using Failed = std::function<void(OpenFailure)>;

// Exit status of xdg-open: no program for what was asked.
constexpr int kNoProgram = 3;
// Some desktops let the opener wait for the program; what that says at its end is no failure to open.
constexpr int kOpenedAfterMilliseconds = 20'000;

enum class Output { dropped, kept };

// One run of a program. Not the child of any object: its end must not be forced by the end of a window or the process,
// for then a program that shows the file would go, too. Deletes itself.
void Start(const QString& program, const QStringList& arguments, Output output, QObject& receiver,
           std::function<void(int status, const QByteArray& output)> finished) {
    auto* const process = new QProcess;
    process->setStandardInputFile(QProcess::nullDevice());
    if (output == Output::dropped) process->setStandardOutputFile(QProcess::nullDevice());
    process->setStandardErrorFile(QProcess::nullDevice());
    const QPointer<QObject> alive(&receiver);
    const auto end = [process, alive, output, finished = std::move(finished)](int status) {
        const auto said = output == Output::kept ? process->readAllStandardOutput() : QByteArray();
        process->deleteLater();
        if (alive) finished(status, said);
    };
    QObject::connect(process, &QProcess::finished, process,
                     [end](int status, QProcess::ExitStatus how) { end(how == QProcess::NormalExit ? status : -1); });
    QObject::connect(process, &QProcess::errorOccurred, process, [end](QProcess::ProcessError error) {
        if (error == QProcess::FailedToStart) end(-1);
    });
    process->start(program, arguments);
}

// The openers of some desktops do not tell the lack of a program from other failures.
void FindReason(const QString& path, QObject& receiver, const Failed& failed) {
    const auto program = QStandardPaths::findExecutable(QStringLiteral("xdg-mime"));
    if (program.isEmpty()) return failed(OpenFailure::other);
    const auto type = QMimeDatabase().mimeTypeForFile(path).name();
    Start(program, {QStringLiteral("query"), QStringLiteral("default"), type}, Output::kept, receiver,
          [failed](int status, const QByteArray& output) {
              const bool none = status >= 0 && output.trimmed().isEmpty();
              failed(none ? OpenFailure::noApplication : OpenFailure::other);
          });
}

bool RunsByType(const QMimeType& type) {
    for (const char* name : {"application/x-executable", "application/x-pie-executable", "application/x-sharedlib",
                             "application/x-desktop", "application/x-java-archive", "application/x-java-jnlp-file"}) {
        const auto dangerous = QMimeDatabase().mimeTypeForName(QString::fromLatin1(name));
        if (dangerous.isValid() && type.inherits(dangerous.name())) return true;
    }
    return false;
}

}  // namespace

void OpenWithDesktop(const std::filesystem::path& file, QObject& receiver, Failed failed) {
    const auto path = QFile::decodeName(file.c_str());
    if (!QFileInfo(path).isFile() || !QFileInfo(path).isReadable()) return failed(OpenFailure::other);
    // As an address every byte of a name that somebody else chose is harmless.
    const auto url = QUrl::fromLocalFile(path);
    const auto program = QStandardPaths::findExecutable(QStringLiteral("xdg-open"));
    if (program.isEmpty()) {
        if (!QDesktopServices::openUrl(url)) failed(OpenFailure::noApplication);
        return;
    }
    QElapsedTimer clock;
    clock.start();
    const QPointer<QObject> alive(&receiver);
    Start(program, {QString::fromLatin1(url.toEncoded())}, Output::dropped, receiver,
          [clock, path, alive, failed = std::move(failed)](int status, const QByteArray&) {
              if (status == 0 || clock.elapsed() > kOpenedAfterMilliseconds) return;
              if (status == kNoProgram) return failed(OpenFailure::noApplication);
              FindReason(path, *alive, failed);
          });
}

bool DesktopWouldRun(const std::filesystem::path& file) {
    const auto path = QFile::decodeName(file.c_str());
    if (!QFileInfo(path).isFile()) return false;
    const QMimeDatabase types;
    const auto byName = types.mimeTypeForFile(path, QMimeDatabase::MatchExtension);
    const auto byContent = types.mimeTypeForFile(path, QMimeDatabase::MatchContent);
    if (RunsByType(byName) || RunsByType(byContent)) return true;
    return byName.isDefault() && byContent.isDefault() && QFileInfo(path).isExecutable();
}

}  // namespace dialogs
