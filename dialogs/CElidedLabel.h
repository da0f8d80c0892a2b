#pragma once

#include <QLabel>

// One line that is cut in the middle where it has no room; the whole then stands in a tool tip. Long names come from
// outside and must not make a window as wide as themselves.
class CElidedLabel : public QLabel {
    Q_OBJECT
  public:
    CElidedLabel(const QString& text, QWidget* parent);

    [[nodiscard]] QSize sizeHint() const override;
    [[nodiscard]] QSize minimumSizeHint() const override;

  protected:
    void paintEvent(QPaintEvent* event) override;
    bool event(QEvent* event) override;

  private:
    [[nodiscard]] bool IsCut() const;
};
