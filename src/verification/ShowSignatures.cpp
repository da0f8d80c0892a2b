#include "src/verification/ShowSignatures.h"

#include <algorithm>
#include <stdexcept>
#include <vector>

#include "platform/Text.h"
#include "src/Norvik.h"
#include "src/results/SignatureState.h"
#include "src/verification/SignedFile.h"
#include "src/verification/TimeText.h"
#include "src/verification/VerifySignature.h"
#include "src/verification/WriteContent.h"
#include "units/Helpers.h"

namespace verification {
namespace {

namespace fs = std::filesystem;

fs::path WorkFolder() {
    const auto application = CNorvikApp::Current();
    auto folder = application ? application->SessionFolder() : fs::path();
    if (folder.empty()) throw std::runtime_error("There is no session folder.");
    return folder;
}

// Which files are looked at for the one that the person named.
struct Choice {
    fs::path signFile;
    fs::path dataFile;
    bool detached = false;  // by name and by what is in it
    fs::path copy = {};     // in the work folder; empty: none was needed
};

fs::path CopyAsAttached(const fs::path& file) {
    auto copy = WorkFolder() / file.stem();
    copy += ".p7m";
    fs::remove(copy);
    fs::copy_file(file, copy);
    return copy;
}

// Empty: the person was asked for the data and cancelled.
std::optional<Choice> Choose(ui::UserInterface& person, const fs::path& file, bool mayAsk) {
    Choice choice{.signFile = file, .dataFile = WithoutExtension(file)};
    if (ExtensionOf(file) != u".p7s") return choice;
    choice.detached = IsDetachedSignature(file);
    if (!choice.detached) {
        choice.copy = CopyAsAttached(file);
        choice.signFile = choice.copy;
        return choice;
    }
    std::error_code error;
    if (!mayAsk || fs::exists(choice.dataFile, error)) return choice;
    auto answer = person.AskOpenFile({.title = u"Посочете оригинален файл"});
    if (!answer) return std::nullopt;
    choice.dataFile = *answer;
    return choice;
}

SignatureEntries Verify(ui::UserInterface& person, const Choice& choice) {
    SignatureEntries entries;
    try {
        VerifySignatureFile(choice.signFile, choice.dataFile, entries);
    } catch (const std::exception& error) {
        const auto what = units::WideFromWhat(error.what());
        LogError(what);
        person.ShowMessage({what, units::LoadStringW(288), ui::Message::Icon::error});
    }
    return entries;
}

// Removes a copy at the end, however that comes.
class Removal {
  public:
    explicit Removal(fs::path file) : file_(std::move(file)) {}
    ~Removal() {
        std::error_code error;
        if (!file_.empty()) fs::remove(file_, error);
    }
    Removal(const Removal&) = delete;
    Removal& operator=(const Removal&) = delete;

  private:
    fs::path file_;
};

// Names and comments are others' words; a line end in them could pass for the next line of ours.
std::u16string OnOneLine(std::u16string text) {
    std::ranges::replace_if(
        text, [](char16_t c) { return c == u'\n' || c == u'\r'; }, u' ');
    return text;
}

std::u16string LinesOf(const SignatureEntry& entry, std::size_t number) {
    const auto count = platform::ToWide(std::to_string(number));
    std::u16string lines;
    const auto add = [&](char16_t letter, const std::u16string& value) {
        lines += letter;
        lines += count + u"=" + value + u"\n";
    };
    add(u'L', count);
    add(u'N', OnOneLine(entry.certificate->GetSubjectName()));
    add(u'D', entry.signingTime > 0 ? LocalMinuteText(entry.signingTime) : u"n/a");
    add(u'S', results::StateWord(results::StateInReport(entry)));
    add(u'C', OnOneLine(entry.comment));
    add(u'T', entry.certificate->GetThumbprint());
    return lines;
}

void CopyOut(const std::u16string& text, char16_t* out) {
    if (out != nullptr) *std::ranges::copy(text, out).out = 0;
}

}  // namespace

SignatureEntries ShowSignatures(ui::UserInterface& person, const fs::path& file, bool mayAsk) {
    const auto choice = Choose(person, file, mayAsk);
    if (!choice) return {};
    auto entries = Verify(person, *choice);
    if (!entries.empty())
        person.ShowResults(
            {.entries = entries, .signFile = file, .dataFile = choice->detached ? choice->dataFile : fs::path()});
    return entries;
}

int ExtractContent(ui::UserInterface& person, const fs::path& file, char16_t* pathOut, char16_t* textOut, bool mayAsk) {
    const auto choice = Choose(person, file, mayAsk);
    if (!choice) return 0;
    const Removal removal(choice->copy);
    const auto entries = Verify(person, *choice);
    if (entries.empty()) return 0;
    if (!choice->detached) {
        const auto target = WorkFolder() / file.stem();
        WriteContent(OpenSource(choice->signFile), target, entries.front().digest);
        CopyOut(target.u16string(), pathOut);
    }
    std::u16string text;
    for (std::size_t i = 0; i < entries.size(); ++i)
        text += LinesOf(entries[i], i + 1);
    CopyOut(text, textOut);
    return choice->detached ? 0 : 1;
}

}  // namespace verification
