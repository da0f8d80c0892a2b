#pragma once
// What another program finds in a PDF document: its words with their places, and its picture.

#include <QImage>
#include <string>
#include <vector>

#include "platform/Types.h"

namespace tests {

// Points (1/72 inch) from the upper left corner of the page.
struct PdfWord {
    std::string text;
    double left = 0, top = 0, right = 0, bottom = 0;
};

struct PdfPage {
    static constexpr double kDotsPerPoint = 2;
    int pages = 0;
    double width = 0, height = 0;
    std::vector<PdfWord> words;
    QImage picture;

    // Lines of words at the same height, from top to bottom, words joined by one blank.
    [[nodiscard]] std::vector<std::string> Lines() const;
    // The words that read like this, from top to bottom.
    [[nodiscard]] std::vector<PdfWord> Find(const std::string& text) const;
    // The colour farthest from white inside the word: that of its strokes.
    [[nodiscard]] QColor ColourOf(const PdfWord& word) const;
    [[nodiscard]] QColor At(double x, double y) const;
};

// Reads the document with poppler's programs. `name` is what its picture is called in the folder "pictures" of the
// build.
PdfPage ReadPdf(platform::ByteView document, const std::string& name);

}  // namespace tests
