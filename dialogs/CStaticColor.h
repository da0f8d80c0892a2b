#pragma once

#include <QLabel>
#include <optional>

// A text in a colour, on a ground of its own. What is not set follows the desktop: its text colour, on the ground that
// its lists and fields have.
class CStaticColor : public QLabel {
    Q_OBJECT
  public:
    // One colour for light desktops and its counterpart for dark ones.
    struct Pair {
        QColor light, dark;
    };

    explicit CStaticColor(QWidget* parent);

    void SetTransparent(bool on);
    void SetBold(bool on);
    void SetUnderline(bool on);
    // In pixels of a screen with 96 DPI; empty: as high as the parent's font.
    void SetFontHeight(std::optional<int> height);
    void SetTextColour(const Pair& colour);
    void SetBackgroundColour(const Pair& colour);

  protected:
    void changeEvent(QEvent* event) override;

  private:
    void ApplyFont();
    void ApplyColours();

    bool transparent_ = false, bold_ = false, underline_ = false;
    std::optional<int> height_;
    std::optional<Pair> text_, background_;
    bool applying_ = false;
};
