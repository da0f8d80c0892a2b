#include "tests/dialogs/PdfPage.h"

#include <QXmlStreamReader>
#include <algorithm>
#include <filesystem>
#include <map>
#include <stdexcept>

#include "platform/Files.h"
#include "tests/support/Process.h"

namespace tests {
namespace {

std::string Run(const std::vector<std::string>& command) {
    const auto result = RunProgram(command);
    if (result.status != 0) throw std::runtime_error(result.Summary());
    return result.output;
}

}  // namespace

PdfPage ReadPdf(platform::ByteView document, const std::string& name) {
    const std::filesystem::path folder = NORVIK_BINARY_DIR "/pictures";
    std::filesystem::create_directories(folder);
    const auto file = (folder / (name + ".pdf")).string(), picture = (folder / name).string();
    if (!platform::WriteWholeFile(file, document)) throw std::runtime_error("cannot write " + file);
    PdfPage page;
    QXmlStreamReader xml(QString::fromStdString(Run({"pdftotext", "-bbox", file, "-"})));
    while (!xml.atEnd()) {
        if (xml.readNext() != QXmlStreamReader::StartElement) continue;
        const auto number = [here = xml.attributes()](const char* key) {
            return here.value(QLatin1String(key)).toDouble();
        };
        if (xml.name() == QLatin1String("page")) {
            ++page.pages;
            page.width = number("width");
            page.height = number("height");
        } else if (xml.name() == QLatin1String("word")) {
            page.words.push_back(
                {xml.readElementText().toStdString(), number("xMin"), number("yMin"), number("xMax"), number("yMax")});
        }
    }
    Run({"pdftoppm", "-singlefile", "-png", "-r", std::to_string(static_cast<int>(72 * PdfPage::kDotsPerPoint)), file,
         picture});
    if (!page.picture.load(QString::fromStdString(picture + ".png"))) throw std::runtime_error("no picture " + picture);
    return page;
}

std::vector<std::string> PdfPage::Lines() const {
    std::map<int, std::map<double, std::string>> rows;  // by the middle of the words, in steps of some points
    for (const auto& word : words)
        rows[static_cast<int>((word.top + word.bottom) / 2 / 5)][word.left] = word.text;
    std::vector<std::string> lines;
    for (const auto& [height, row] : rows) {
        std::string line;
        for (const auto& [left, text] : row)
            line += (line.empty() ? "" : " ") + text;
        lines.push_back(line);
    }
    return lines;
}

std::vector<PdfWord> PdfPage::Find(const std::string& text) const {
    std::vector<PdfWord> found;
    std::ranges::copy_if(words, std::back_inserter(found), [&](const auto& word) { return word.text == text; });
    std::ranges::sort(found, {}, &PdfWord::top);
    return found;
}

QColor PdfPage::ColourOf(const PdfWord& word) const {
    QColor colour(Qt::white);
    const auto distance = [](const QColor& c) { return 3 * 255 - c.red() - c.green() - c.blue(); };
    for (double y = word.top; y < word.bottom; y += 1 / kDotsPerPoint)
        for (double x = word.left; x < word.right; x += 1 / kDotsPerPoint)
            if (const auto here = At(x, y); distance(here) > distance(colour)) colour = here;
    return colour;
}

QColor PdfPage::At(double x, double y) const {
    return picture.pixelColor(static_cast<int>(x * kDotsPerPoint), static_cast<int>(y * kDotsPerPoint));
}

}  // namespace tests
