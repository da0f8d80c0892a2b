#include "dialogs/Icons.h"

#include <QFile>
#include <QGuiApplication>
#include <QIconEngine>
#include <QPainter>
#include <QSvgRenderer>

namespace dialogs {
namespace {

// Draws at the size and density that is asked for, in the colour of the palette as it is then.
class DrawnIcon : public QIconEngine {
  public:
    DrawnIcon(const char* name, const QColor& colour) : name_(QString::fromLatin1(name)), colour_(colour) {}

    void paint(QPainter* painter, const QRect& rect, QIcon::Mode mode, QIcon::State) override {
        QFile file(QStringLiteral(":/norvik/icons/%1.svg").arg(name_));
        if (!file.open(QIODevice::ReadOnly)) return;
        auto drawing = file.readAll();
        drawing.replace("#000", ColourFor(mode).name().toLatin1());
        QSvgRenderer renderer(drawing);
        renderer.setAspectRatioMode(Qt::KeepAspectRatio);
        renderer.render(painter, rect);
    }
    QPixmap pixmap(const QSize& size, QIcon::Mode mode, QIcon::State state) override {
        QPixmap picture(size);
        picture.fill(Qt::transparent);
        QPainter painter(&picture);
        painter.setRenderHint(QPainter::Antialiasing);
        paint(&painter, QRect(QPoint(), size), mode, state);
        return picture;
    }
    [[nodiscard]] QIconEngine* clone() const override { return new DrawnIcon(*this); }

  private:
    [[nodiscard]] QColor ColourFor(QIcon::Mode mode) const {
        const auto palette = QGuiApplication::palette();
        if (mode == QIcon::Disabled) return palette.color(QPalette::Disabled, QPalette::WindowText);
        if (mode == QIcon::Selected) return palette.color(QPalette::HighlightedText);
        return colour_.isValid() ? colour_ : palette.color(QPalette::WindowText);
    }

    QString name_;
    QColor colour_;
};

}  // namespace

QIcon Icon(const char* name) {
    return Icon(name, QColor());
}

QIcon Icon(const char* name, const QColor& colour) {
    return QIcon(new DrawnIcon(name, colour));
}

bool IsDark(const QPalette& palette) {
    return palette.color(QPalette::Window).lightness() < palette.color(QPalette::WindowText).lightness();
}

QColor ColourOf(State state, const QPalette& palette) {
    const bool dark = IsDark(palette);
    switch (state) {
        case State::valid:
            return dark ? QColor(0x6c, 0xd3, 0x8a) : QColor(0x1a, 0x7f, 0x37);
        case State::invalid:
            return dark ? QColor(0xff, 0x8a, 0x80) : QColor(0xb3, 0x26, 0x1e);
        case State::unverified:
            break;
    }
    return dark ? QColor(0xf2, 0xc1, 0x4e) : QColor(0x8a, 0x5a, 0x00);
}

QIcon IconOf(State state, const QPalette& palette) {
    const auto* const name = state == State::valid ? "valid" : state == State::invalid ? "invalid" : "unverified";
    return Icon(name, ColourOf(state, palette));
}

}  // namespace dialogs
