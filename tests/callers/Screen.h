#pragma once
// An X server of its own with a window manager, and hands at its keyboard.

#include <cstdio>
#include <future>
#include <memory>
#include <string>
#include <vector>

#include "tests/support/Process.h"

namespace tests {

class Screen {
  public:
    // Throws if the server does not start.
    Screen();

    // Starts a program on this screen and lets it run meanwhile.
    [[nodiscard]] std::future<ProcessResult> Start(std::vector<std::string> command) const;
    // The number of the window with this title as soon as it has the keyboard. Empty, after some seconds: there is
    // none.
    [[nodiscard]] std::string WaitForWindow(const std::string& title) const;
    // A picture of the whole screen into the folder "pictures" of the build, taken when nothing changes on it any more.
    // False if there is no picture, or never anything but an empty screen.
    [[nodiscard]] bool Photograph(const std::string& name) const;
    void Type(const std::string& text) const;
    void Press(const std::string& key, int times = 1) const;
    // Clicks with the left button of the mouse at a place given in shares of the window's width and height.
    void Click(const std::string& window, double across, double down, int times = 1) const;
    // The process that shows the window.
    [[nodiscard]] pid_t ProcessOf(const std::string& window) const;
    // What the window's property is, as xprop writes it.
    [[nodiscard]] std::string Property(const std::string& window, const std::string& name) const;

  private:
    // A program that runs beside the test and is ended with the object.
    class Companion {
      public:
        explicit Companion(const std::string& command);
        [[nodiscard]] std::string Line() const;  // that it writes next

      private:
        struct End {
            pid_t process;
            void operator()(std::FILE* pipe) const;
        };
        std::unique_ptr<std::FILE, End> pipe_;
    };
    ProcessResult Run(const std::vector<std::string>& command) const;

    const Companion server_;
    const std::string display_;
    const Companion manager_;
};

}  // namespace tests
