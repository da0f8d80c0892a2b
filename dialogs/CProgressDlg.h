#pragma once

#include <cstdint>

#include "dialogs/CTessalyDialog.h"

class QProgressBar;

// A small box without a title while a long operation runs on this very thread: it is drawn anew by hand.
class CProgressDlg : public CTessalyDialog {
    Q_OBJECT
  public:
    explicit CProgressDlg(const QString& file);
    // Bytes; a total of 0: not known.
    void Update(std::uint64_t done, std::uint64_t total);

    // Esc ends no operation.
    void reject() override {}

  protected:
    void paintEvent(QPaintEvent* event) override;

  private:
    QProgressBar* bar_;
};
