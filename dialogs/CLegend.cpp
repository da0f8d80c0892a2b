#include "dialogs/CLegend.h"

#include <QPainter>
#include <algorithm>

#include "dialogs/Icons.h"
#include "dialogs/Texts.h"
#include "src/results/Legend.h"

namespace {

constexpr int kIcon = 16, kIconGap = 4, kMargin = 4;

QColor MarkColour(const QPalette& palette) {
    return dialogs::IsDark(palette) ? QColor(0x8f, 0xb2, 0xff) : QColor(0x00, 0x2f, 0xc0);
}

}  // namespace

CLegend::CLegend(QWidget* parent) : QWidget(parent) {
    setAccessibleName(QStringLiteral("Нива на подписите"));
    setSizePolicy(QSizePolicy::Fixed, QSizePolicy::Preferred);
    hide();
}

void CLegend::SetLevels(int count) {
    levels_ = count;
    setVisible(levels_ > 1);
    Describe();
}

void CLegend::SetCurrentLevel(int level) {
    current_ = level;
    Describe();
    update();
}

void CLegend::Describe() {
    setAccessibleDescription(current_ > 0 ? QStringLiteral("Ниво %1 от %2").arg(current_).arg(levels_)
                                          : QStringLiteral("%1 нива").arg(levels_));
}

// The marked label is the widest: the room for it is there from the beginning, so that nothing moves.
QSize CLegend::LabelSize() const {
    auto bold = font();
    bold.setBold(true);
    const QFontMetrics metrics(bold);
    int width = 0;
    for (const auto& frame : results::MakeLegend(static_cast<std::uint32_t>(levels_), 0, 0, 0))
        width = std::max(width, metrics.horizontalAdvance(dialogs::ToQString(frame.label)));
    return {width + kMargin, metrics.height()};
}

QSize CLegend::sizeHint() const {
    const auto label = LabelSize();
    const auto frames =
        results::MakeLegend(static_cast<std::uint32_t>(levels_), 0, label.width(), label.height(), {0, 0});
    if (frames.empty()) return {0, 0};
    return {std::max(2 * results::LegendPlace().x, frames.front().width + kMargin), frames.front().height + kMargin};
}

void CLegend::paintEvent(QPaintEvent*) {
    const auto label = LabelSize();
    const results::LegendPlace place{width() / 2, std::min(results::LegendPlace().y, height() / 2)};
    const auto frames = results::MakeLegend(static_cast<std::uint32_t>(levels_), static_cast<std::uint32_t>(current_),
                                            label.width(), label.height(), place);
    QPainter painter(this);
    for (const auto& frame : frames) {
        const QRect box(frame.left, frame.top, frame.width, frame.height);
        const auto colour = frame.marked ? MarkColour(palette()) : palette().color(QPalette::WindowText);
        auto words = font();
        words.setBold(frame.marked);
        painter.setFont(words);
        painter.setPen(QPen(colour, frame.marked ? 2 : 1));
        painter.drawRect(box);
        painter.drawText(box.adjusted(0, 0, 0, -kMargin / 2), Qt::AlignHCenter | Qt::AlignBottom,
                         dialogs::ToQString(frame.label));
    }
    if (frames.empty()) return;
    const QRect inner(place.x - kIcon / 2, frames.back().top + kIconGap, kIcon, kIcon);
    dialogs::Icon("file").paint(&painter, inner);
}
