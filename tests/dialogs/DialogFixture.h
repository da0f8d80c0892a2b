#pragma once
// Windows in a test: on Qt's offscreen platform, driven by the names of their controls, and photographed.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <QTest>
#include <QtWidgets>  // tests touch most of it
#include <functional>

#include "src/Norvik.h"
#include "src/verification/SignatureEntry.h"
#include "tests/support/Profile.h"
#include "tests/support/ScriptedInterface.h"

namespace tests {

using namespace Qt::StringLiterals;
using testing::HasSubstr;

class DialogFixture : public testing::Test {
  protected:
    DialogFixture();
    ~DialogFixture() override;

    // Runs `step` as soon as the event loop of the next dialog turns. The dialog must end in it or soon after: one that
    // stays open is closed after ten seconds, and the test fails.
    static void WhenShown(std::function<void(QDialog&)> step);
    // What the window that `cause` opens now or soon is called; `answer` ends it. A window of that kind: others that
    // come before are left alone.
    template <typename Window = QWidget, typename Answer>
    static std::string Opened(const std::function<void()>& cause, const Answer& answer) {
        std::string title;
        auto* const before = QApplication::activeModalWidget();
        QTimer poll;
        QObject::connect(&poll, &QTimer::timeout, &poll, [&] {
            auto* const window = qobject_cast<Window*>(QApplication::activeModalWidget());
            if (window == nullptr || window == before) return;
            poll.stop();
            title = window->windowTitle().toStdString();
            try {
                answer(*window);
            } catch (const std::exception& error) {
                ADD_FAILURE() << error.what();
                window->close();
            }
        });
        poll.start(0);
        cause();
        return QTest::qWaitFor([&] { return !title.empty(); }) ? title : "nothing";
    }
    // Title and text of the box that `cause` opens; its button is pressed.
    static std::string Said(const std::function<void()>& cause);
    // What the window for a file that `cause` opens is called; this file is chosen there.
    static std::string ChooseFile(const std::function<void()>& cause, const std::filesystem::path& file,
                                  const std::function<void(QFileDialog&)>& look = {});

    // The control with that name; the test fails, and ends, if there is none.
    template <typename T = QWidget>
    static T& Control(QWidget& window, const char* id) {
        auto* const found = window.findChild<T*>(QString::fromLatin1(id));
        if (found == nullptr) throw std::runtime_error(std::string("no control ") + id);
        return *found;
    }
    static void Click(QWidget& window, const char* id) { Control<QAbstractButton>(window, id).click(); }
    // What stands in the control with that name.
    static std::string Text(QWidget& window, const char* id);
    // The rows of the list or the first level of the tree with that name, cells joined by "|".
    static std::vector<std::string> Rows(QWidget& window, const char* id);
    // The middle of a row, for the mouse.
    static QPoint Middle(const QAbstractItemView& list, int row);
    static void DoubleClick(const QAbstractItemView& list, int row);
    // Types a text of any script into the control that has the focus.
    static void Type(QWidget& control, const QString& text);

    // Pictures of the window as it stands, light and dark, in ordinary, one and a half and twice the size and with a
    // larger font, into the folder "pictures" of the build.
    static void Photograph(QWidget& window, const std::string& name);
    // That Tab goes through these controls, each of which tells its name, and that `keys` Alt keys lead to one each.
    static void ExpectKeyboard(QWidget& window, const QString& order, int keys);
    // A signature of that person that is good in every way.
    static verification::SignatureEntry GoodEntry(const std::string& name);

    Profile profile_;
    Script script_;
};

}  // namespace tests
