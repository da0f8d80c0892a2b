#include "tests/dialogs/PdfPage.h"

#include <algorithm>
#include <filesystem>
#include <map>
#include <regex>
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

double Number(const std::string& text, const std::string& name) {
    std::smatch found;
    if (!std::regex_search(text, found, std::regex(name + "=\"([0-9.-]+)\""))) throw std::runtime_error("no " + name);
    return std::stod(found[1]);
}

std::string Unescaped(std::string text) {
    for (const auto& [entity, letter] : {std::pair{"&apos;", "'"}, {"&quot;", "\""}, {"&lt;", "<"}, {"&amp;", "&"}}) {
        for (auto at = text.find(entity); at != std::string::npos; at = text.find(entity))
            text.replace(at, std::string_view(entity).size(), letter);
    }
    return text;
}

}  // namespace

PdfPage ReadPdf(platform::ByteView document, const std::string& name) {
    const std::filesystem::path folder = NORVIK_BINARY_DIR "/pictures";
    std::filesystem::create_directories(folder);
    const auto file = (folder / (name + ".pdf")).string(), picture = (folder / name).string();
    if (!platform::WriteWholeFile(file, document)) throw std::runtime_error("cannot write " + file);
    PdfPage page;
    const auto info = Run({"pdfinfo", file});
    page.pages = std::stoi(info.substr(info.find("Pages:") + 6));
    const auto places = Run({"pdftotext", "-bbox", file, "-"});
    page.width = Number(places, "<page width");
    page.height = Number(places, " height");
    const std::regex word("<word (.*?)>(.*?)</word>");
    for (auto at = std::sregex_iterator(places.begin(), places.end(), word); at != std::sregex_iterator(); ++at) {
        const std::string box = (*at)[1];
        page.words.push_back(
            {Unescaped((*at)[2]), Number(box, "xMin"), Number(box, "yMin"), Number(box, "xMax"), Number(box, "yMax")});
    }
    Run({"pdftoppm", "-singlefile", "-png", "-r", std::to_string(static_cast<int>(72 * PdfPage::kDotsPerPoint)), file,
         picture});
    if (!page.picture.load(QString::fromStdString(picture + ".png"))) throw std::runtime_error("no picture " + picture);
    return page;
}

std::vector<std::string> PdfPage::Lines() const {
    std::map<int, std::vector<PdfWord>> rows;  // by the middle of the words, in steps of some points
    for (const auto& word : words)
        rows[static_cast<int>((word.top + word.bottom) / 2 / 5)].push_back(word);
    std::vector<std::string> lines;
    for (auto& [height, row] : rows) {
        std::ranges::sort(row, {}, &PdfWord::left);
        std::string line;
        for (const auto& word : row)
            line += (line.empty() ? "" : " ") + word.text;
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
    for (double y = word.top; y < word.bottom; y += 1 / kDotsPerPoint) {
        for (double x = word.left; x < word.right; x += 1 / kDotsPerPoint) {
            const auto here = At(x, y);
            if (distance(here) > distance(colour)) colour = here;
        }
    }
    return colour;
}

QColor PdfPage::At(double x, double y) const {
    return picture.pixelColor(static_cast<int>(x * kDotsPerPoint), static_cast<int>(y * kDotsPerPoint));
}

}  // namespace tests
