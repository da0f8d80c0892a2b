#pragma once
// An X server of its own with a window manager, and hands at its keyboard.

#include <sys/types.h>

#include <future>
#include <string>
#include <vector>

#include "tests/support/Process.h"

namespace tests {

class Screen {
  public:
    // Throws if the server does not start.
    Screen();
    ~Screen();
    Screen(const Screen&) = delete;
    Screen& operator=(const Screen&) = delete;

    [[nodiscard]] const std::string& Display() const { return display_; }
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
    ProcessResult Run(const std::vector<std::string>& command) const;

    pid_t server_ = -1, manager_ = -1;
    std::string display_;
};

}  // namespace tests
