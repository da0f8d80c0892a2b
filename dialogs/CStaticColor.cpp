#include "dialogs/CStaticColor.h"

#include <QApplication>
#include <QEvent>

#include "dialogs/Icons.h"

CStaticColor::CStaticColor(QWidget* parent) : QLabel(parent) {
    setTextFormat(Qt::PlainText);
    ApplyFont();
    ApplyColours();
}

void CStaticColor::SetTransparent(bool on) {
    transparent_ = on;
    ApplyColours();
}

void CStaticColor::SetBold(bool on) {
    bold_ = on;
    ApplyFont();
}

void CStaticColor::SetUnderline(bool on) {
    underline_ = on;
    ApplyFont();
}

void CStaticColor::SetFontHeight(std::optional<int> height) {
    height_ = height;
    ApplyFont();
}

void CStaticColor::SetTextColour(const Pair& colour) {
    text_ = colour;
    ApplyColours();
}

void CStaticColor::SetBackgroundColour(const Pair& colour) {
    background_ = colour;
    ApplyColours();
}

// The desktop may turn dark while the window is open.
void CStaticColor::changeEvent(QEvent* event) {
    QLabel::changeEvent(event);
    if (event->type() == QEvent::PaletteChange && !applying_) ApplyColours();
}

// Only what differs is set, so that the rest still follows the parent's font.
void CStaticColor::ApplyFont() {
    QFont font;
    font.setWeight(bold_ ? QFont::DemiBold : QFont::Normal);
    font.setUnderline(underline_);
    font.setStyleStrategy(QFont::PreferAntialias);
    if (height_) font.setPixelSize(*height_);
    setFont(font);
}

void CStaticColor::ApplyColours() {
    applying_ = true;
    const auto desktop = parentWidget() != nullptr ? parentWidget()->palette() : QApplication::palette();
    const bool dark = dialogs::IsDark(desktop);
    const auto choose = [dark](const std::optional<Pair>& own, const QColor& other) {
        return own ? (dark ? own->dark : own->light) : other;
    };
    auto palette = desktop;
    palette.setColor(QPalette::WindowText, choose(text_, desktop.color(QPalette::Text)));
    if (!transparent_) palette.setColor(QPalette::Window, choose(background_, desktop.color(QPalette::Base)));
    setPalette(palette);
    setAutoFillBackground(!transparent_);
    applying_ = false;
}
