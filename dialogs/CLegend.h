#pragma once

#include <QWidget>

// How the levels of signatures lie around the file and each other, the level of the selected signature marked. Takes no
// room where there are less than two.
class CLegend : public QWidget {
    Q_OBJECT
  public:
    explicit CLegend(QWidget* parent);

    void SetLevels(int count);
    void SetCurrentLevel(int level);  // from 1; 0: none

    [[nodiscard]] QSize sizeHint() const override;
    [[nodiscard]] QSize minimumSizeHint() const override { return sizeHint(); }

  protected:
    void paintEvent(QPaintEvent* event) override;

  private:
    [[nodiscard]] QSize LabelSize() const;
    void Describe();

    int levels_ = 0, current_ = 0;
};
