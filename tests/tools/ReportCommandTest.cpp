#include <fstream>

#include "tests/tools/CommandTest.h"

namespace {

namespace fs = std::filesystem;
using namespace tests;
using testing::AllOf;
using testing::HasSubstr;

class ReportCommandTest : public CommandTest {
  protected:
    ReportCommandTest() {
        pki_.Install(profile_);
        profile_.Set("TZ", "UTC");
        Document("договор.txt", "the content that counts");
        if (Run({"sign", "--no-tsa", "договор.txt"}).status != 0 ||
            Run({"sign", "--no-tsa", "--detached", "договор.txt"}).status != 0)
            throw std::runtime_error("cannot sign: " + Log());
        for (const auto* variable : {"DISPLAY", "WAYLAND_DISPLAY", "QT_QPA_PLATFORM"})
            profile_.Set(variable, std::nullopt);
    }
    [[nodiscard]] ProcessResult Report(std::vector<std::string> arguments) const {
        arguments.insert(arguments.begin(), {"report", "--offline"});
        return Run(arguments);
    }
    [[nodiscard]] std::string Text(const std::string& pdf) const {
        const auto text = RunProgram({"pdftotext", "-layout", pdf, "-"}, {.folder = Documents()});
        return text.status == 0 ? text.output : "unreadable: " + text.errors;
    }
    [[nodiscard]] std::string Info(const std::string& pdf) const {
        return RunProgram({"pdfinfo", pdf}, {.folder = Documents()}).output;
    }
};

TEST_F(ReportCommandTest, DrawsWithoutADisplayWhateverTheSessionSays) {
    ASSERT_EQ(Run({"settings", "set", "Print", "Footer", "лист %d"}).status, 0);
    struct Case {
        std::vector<std::string> arguments;
        const char *variable, *value, *file, *size;
    };
    const Case cases[] = {
        {{"договор.txt.p7m"}, "DISPLAY", nullptr, "договор.txt.p7m", "A4"},
        {{"договор.txt.p7m", "--letter"}, "DISPLAY", ":4711", "договор.txt.p7m", "letter"},
        {{"договор.txt.p7s", "--data", "договор.txt"}, "QT_QPA_PLATFORM", "xcb", "договор.txt.p7s", "A4"}};
    Document("out.pdf", "what stood here before");
    for (auto [line, variable, value, file, size] : cases) {
        profile_.Set(variable, value == nullptr ? std::nullopt : std::optional<std::string>(value));
        line.insert(line.end(), {"--pdf", "out.pdf"});
        const auto result = Report(line);
        EXPECT_EQ(result.status, 0) << result.Summary();
        EXPECT_EQ(result.output + result.errors, "");
        EXPECT_THAT(Text("out.pdf"), AllOf(HasSubstr(std::string("на файл '") + file), HasSubstr("Иван Петров"),
                                           HasSubstr("Валиден"), HasSubstr("лист 1")));
        EXPECT_THAT(Info("out.pdf"), AllOf(testing::ContainsRegex("Pages: +1\n"), HasSubstr(size)));
    }
}

TEST_F(ReportCommandTest, LeavesNothingWhereItFails) {
    const auto before = FilesIn(Documents());
    Walk({{{"договор.txt", "--pdf", "out.pdf"}, 1, "не е подписан"},
          {{"няма.p7m", "--pdf", "out.pdf"}, 1, "Няма такъв файл."},
          {{"договор.txt.p7s", "--data", "няма", "--pdf", "out.pdf"}, 2, "няма"},
          {{"договор.txt.p7m"}, 2, "--pdf"},
          {{"договор.txt.p7m", "--pdf", "няма/out.pdf"}, 1, "няма/out.pdf"},
          {{"договор.txt.p7m", "--pdf", "/dev/full"}, 1, "/dev/full"},
          {{"договор.txt.p7m", "--pdf", "."}, 1, "."}},
         {"report", "--offline"});
    EXPECT_EQ(FilesIn(Documents()), before);
}

TEST_F(ReportCommandTest, CallsABrokenSignatureWhatItsCertificateIs) {
    auto bytes = ReadFile(Documents() / "договор.txt.p7m");
    bytes.at(bytes.find("the content")) ^= 1;
    Document("broken.p7m", bytes);
    ASSERT_EQ(Report({"broken.p7m", "--pdf", "out.pdf"}).status, 0);
    EXPECT_THAT(Text("out.pdf"), HasSubstr("Непроверен")) << "nobody knows whether the certificate is revoked";
}

}  // namespace
