#pragma once

#include <QTranslator>

namespace dialogs {

// Bulgarian for words in the toolkit's own windows that its translation leaves out.
class ToolkitWords : public QTranslator {
  public:
    using QTranslator::QTranslator;
    [[nodiscard]] QString translate(const char* context, const char* text, const char* remark,
                                    int number) const override;
    [[nodiscard]] bool isEmpty() const override { return false; }
};

}  // namespace dialogs
