#pragma once
// Windows in a test: on Qt's offscreen platform, driven by the names of their controls, and photographed.

#include <gtest/gtest.h>

#include <QApplication>
#include <QDialog>
#include <QTest>
#include <functional>

#include "src/Norvik.h"
#include "src/verification/SignatureEntry.h"
#include "tests/support/Profile.h"
#include "tests/support/ScriptedInterface.h"

namespace tests {

class DialogFixture : public testing::Test {
  protected:
    DialogFixture();
    ~DialogFixture() override;

    // Runs `step` as soon as the event loop of the next dialog turns. The dialog must end in it or soon after: one that
    // stays open is closed after ten seconds, and the test fails.
    static void WhenShown(std::function<void(QDialog&)> step);
    // The control with that name; the test fails, and ends, if there is none.
    template <typename T>
    static T& Control(QWidget& window, const char* id) {
        auto* const found = window.findChild<T*>(QString::fromLatin1(id));
        if (found == nullptr) throw std::runtime_error(std::string("no control ") + id);
        return *found;
    }
    // Types a text of any script into the control that has the focus.
    static void Type(QWidget& control, const QString& text);
    // Pictures of the window as it stands, light and dark, in ordinary, one and a half and twice the size and with a
    // larger font, into the folder "pictures" of the build.
    static void Photograph(QWidget& window, const std::string& name);
    // That Tab goes through these controls, each of which tells its name, and that `keys` Alt keys lead to one each.
    static void ExpectKeyboard(QWidget& window, const QString& order, int keys);
    // What the dialog that `cause` opens is called; `answer` ends it.
    static std::string Opened(const std::function<void()>& cause, const std::function<void(QWidget&)>& answer);
    // A signature of that person that is good in every way.
    static verification::SignatureEntry GoodEntry(const std::string& name);

    Profile profile_;
    Script script_;

  private:
    // Texts of labels and buttons that have less room than they need.
    static QStringList CutTexts(QWidget& window);
};

}  // namespace tests
