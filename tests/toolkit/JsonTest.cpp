#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <numeric>
#include <regex>

#include "tests/support/Corpora.h"
#include "tests/support/Profile.h"
#include "toolkit/CkJsonArrayW.h"
#include "toolkit/CkJsonObjectW.h"
#include "toolkit/ClsJsonArray.h"
#include "toolkit/ClsJsonObject.h"

namespace toolkit {
namespace {

using testing::HasSubstr;

TEST(JsonObject, LoadingLeavesWhatCouldBeRead) {
    for (const auto& row : tests::TestData("toolkit/json-loads.tsv")) {
        ClsJsonObject json;
        json.UpdateString("old", "value");
        EXPECT_EQ(json.Load(row[0]), row[1] == "yes") << row[0] << json.LastErrorText();
        EXPECT_EQ(json.Emit(), row[2]) << row[0];
    }
}

TEST(JsonObject, TakesAShortTextWithoutABraceForAFileThatExists) {
    const tests::Profile profile;
    const std::string path = profile.Write("request.json", R"({"name":"Иван"})");
    const std::string braced = profile.Write("{}", R"({"read":true})"), slashes(512 - path.size(), '/');
    const struct {
        std::string text;
        int size;
    } cases[] = {{path, 1},
                 {braced, 0},  // a text with a brace is never a file name
                 {slashes + path, 0},
                 {slashes.substr(1) + path, 1},  // 511 bytes are a name, 512 are none
                 {profile.Folder(), 0}};
    for (const auto& [text, size] : cases) {
        ClsJsonObject json;
        ASSERT_TRUE(json.Load(text));
        EXPECT_EQ(json.Size(), size) << text;
        EXPECT_EQ(json.StringOf("name").value_or(""), size == 1 ? "Иван" : "") << text;
    }
}

TEST(JsonArray, LoadsTextsAndFilesThatHoldAnArray) {
    const tests::Profile profile;
    const std::string path = profile.Write("list.json", "[7]");
    const std::pair<std::string, const char*> cases[] = {
        {R"( [1, {"a":2}, "b"] )", R"([1,{"a":2},"b"])"},
        {"[1,2", "[1,2]"},
        {path, "[7]"},
        {profile.Write("name", path), "[7]"},  // a file that holds the path of another
    };
    ClsJsonArray json;
    for (const auto& [text, emitted] : cases) {
        EXPECT_TRUE(json.Load(text)) << text;
        EXPECT_EQ(json.Emit(), emitted);
    }
    for (const char* wrong : {"", R"({"a":[1]})", "true", "x [1]", "no file"}) {
        EXPECT_FALSE(json.Load(wrong)) << wrong;
        EXPECT_THAT(json.LastErrorText(), HasSubstr("Unable to get array at index 0."));
        EXPECT_EQ(json.Size(), 0);
    }
    EXPECT_THAT(json.LastErrorText(), HasSubstr("Attention: The contents of the JSON should be passed to this method, "
                                                "NOT the file path."));
}

TEST(JsonObject, PathsLeadWhereTheGrammarSays) {
    ClsJsonObject json;
    ASSERT_TRUE(json.Load(R"({"a":[10,[20,21],{"n":"x"}],"o":{"p.q":{"r":1},"\"":2,"":3},"n":null,"a b":4})"));
    json.SetI(1);
    json.SetJ(2);
    json.SetK(7);
    for (const auto& row : tests::TestData("toolkit/json-paths.tsv")) {
        std::string path = row[0];
        for (const auto& [escape, character] : {std::pair("\\t", "\t"), {"\\r", "\r"}, {"\\n", "\n"}})
            if (const auto at = path.find(escape); at != std::string::npos) path.replace(at, 2, character);
        const bool leads = row[2].empty();
        EXPECT_EQ(json.StringOf(path), leads ? std::optional(row[1]) : std::nullopt) << path;
        EXPECT_THAT(json.LastErrorText(), HasSubstr(row[2])) << path;
        EXPECT_EQ(json.HasMember(path), leads) << path;
    }
}

TEST(JsonObject, ReadsValuesAsTextFlagsAndNumbers) {
    ClsJsonObject json;
    ASSERT_TRUE(
        json.Load(R"({"t":"TrUe","u":true,"one":1,"f":"truer","n":" -12x","big":99999999999,"arr":[1,2],"ob":{},)"
                  R"("esc":"\u0416\ud83d\ude00\ud800!\/\t\q\u12"})"));
    for (const char* yes : {"t", "u"})
        EXPECT_TRUE(json.BoolOf(yes)) << yes;
    for (const char* no : {"one", "f", "arr", "missing"})
        EXPECT_FALSE(json.BoolOf(no)) << no;
    const std::pair<const char*, int> numbers[] = {
        {"n", -12}, {"big", 2147483647}, {"t", 0}, {"missing", 0}, {"arr", 0}};
    for (const auto& [path, number] : numbers)
        EXPECT_EQ(json.IntOf(path), number) << path;
    EXPECT_THAT(json.LastErrorText(), HasSubstr("Path did not end at a JSON value (3)"));
    for (const auto& [path, size] : {std::pair("arr", 2), {"ob", -1}, {"missing", -1}})
        EXPECT_EQ(json.SizeOfArray(path), size) << path;
    EXPECT_EQ(json.StringOf("esc"), "Ж\U0001F600\uFFFD!/\t\\q\\u12");
    EXPECT_EQ(json.ArrayOf("ob"), nullptr);
    EXPECT_THAT(json.LastErrorText(), HasSubstr("Path did not end at a JSON array."));
}

TEST(JsonObject, MakesWhatIsMissingOnTheWayOfAnUpdate) {
    ClsJsonObject json;
    EXPECT_TRUE(json.UpdateBool("timestampToken.enabled", true));
    EXPECT_TRUE(json.UpdateString("timestampToken.tsaUrl", "http://x"));
    for (const auto& [path, number] :
         {std::pair("list[5].n", -3), {"list[0].n", 4}, {"list[*].n", 5}, {"grid[0][0]", 1}, {"grid[0][1]", 2}})
        EXPECT_TRUE(json.UpdateInt(path, number)) << path;
    EXPECT_TRUE(json.UpdateString(R"("1.2".x)", "y"));
    EXPECT_EQ(json.Emit(), R"({"timestampToken":{"enabled":true,"tsaUrl":"http://x"},"list":[{"n":4},{"n":5}],)"
                           R"("grid":[[1,2]],"1.2":{"x":"y"}})");
    EXPECT_TRUE(json.UpdateString("grid", "gone")) << "a value takes the place of whatever stood there";
    EXPECT_EQ(json.StringOf("grid"), "gone");
    EXPECT_FALSE(json.UpdateString("grid.x", ""));
    EXPECT_THAT(json.LastErrorText(), HasSubstr("Value expected to be an object."));
    EXPECT_FALSE(json.UpdateString("", "x"));
    EXPECT_THAT(json.LastErrorText(), HasSubstr("Path did not end at a JSON value (1)"));
}

TEST(JsonObject, EveryTextSurvivesUpdateEmitLoadAndRead) {
    std::string all(127, '\0');
    std::iota(all.begin(), all.end(), '\x01');
    for (const std::string& text : {all, std::string("Ключ \U0001F511 C:\\path\\"), std::string("a\0b", 3)}) {
        ClsJsonObject json, again;
        ASSERT_TRUE(json.UpdateString("k", text) && json.AddStringAt(0, text, "named"));
        ASSERT_TRUE(again.Load(*json.Emit()));
        EXPECT_EQ(again.StringOf("k"), text);
        EXPECT_EQ(again.Emit(), json.Emit());
        EXPECT_EQ(again.Size(), 2);
    }
    ClsJsonObject json;
    json.UpdateString("k", "\t\n\r\b\f\"\\\x01\x1f/Ж");
    EXPECT_TRUE(json.UpdateInt("a\"b", 1));
    EXPECT_TRUE(json.UpdateInt("a\"b", 2)) << "a bare name with a quote is found again";
    EXPECT_EQ(json.Emit(), "{\"k\":\"\\t\\n\\r\\b\\f\\\"\\\\\\u0001\\u001f/Ж\",\"a\\\"b\":2}");
}

TEST(JsonObject, LaysOutItsTextByTheSettings) {
    ClsJsonObject json;
    ASSERT_TRUE(json.Load(R"({"a":1,"b":[1,{"c":"x"},[]],"d":{}})"));
    json.SetEmitCompact(false);
    const std::string lines =
        "{\n  \"a\": 1,\n  \"b\": [\n    1,\n    {\n      \"c\": \"x\"\n    },\n    [\n    ]\n  ],\n  \"d\": {}\n}\n";
    EXPECT_EQ(json.Emit(), std::regex_replace(lines, std::regex("\n"), "\r\n"));
    json.SetEmitCrLf(false);
    EXPECT_EQ(json.Emit(), lines);
    ClsJsonArray array;
    array.SetEmitCompact(false);
    array.AddStringAt(-1, "z");
    EXPECT_EQ(array.Emit(), "[\r\n  \"z\"\r\n]\r\n");
}

TEST(JsonObject, InsertsMembersAndElementsAtTheirIndex) {
    ClsJsonObject json, part;
    ClsJsonArray array;
    EXPECT_TRUE(part.UpdateInt("x", 1));
    EXPECT_TRUE(array.AddStringAt(99, "b") && array.AddStringAt(0, "a") && array.AddObjectCopyAt(1, part));
    EXPECT_TRUE(json.AddStringAt(-1, "s.t", "v") && json.AddObjectCopyAt(0, "o", part));
    EXPECT_TRUE(json.AddArrayCopyAt(1, "l", array));
    EXPECT_TRUE(json.AddObjectCopyAt(-1, "self", json)) << "a copy of itself";
    part.UpdateInt("x", 2);
    array.AddStringAt(-1, "later");
    const std::string inside = R"("o":{"x":1},"l":["a",{"x":1},"b"],"s.t":"v")";
    EXPECT_EQ(json.Emit(), "{" + inside + ",\"self\":{" + inside + "}}");
    EXPECT_FALSE(array.AddObjectCopyAt(-2, part));
    EXPECT_THAT(array.LastErrorText(), HasSubstr("Failed to add object at the given index."));
}

TEST(JsonObject, SharesItsDocumentWithPartsThatMayOutliveIt) {
    auto json = std::make_unique<ClsJsonObject>();
    ASSERT_TRUE(json->Load(R"({"list":[{"a":1},2]})"));
    const auto list = json->ArrayOf("list");
    const auto first = list->ObjectAt(0);
    for (const int index : {1, 2, -1})
        EXPECT_EQ(list->ObjectAt(index), nullptr) << index;
    EXPECT_TRUE(first->UpdateString("b", "shared"));
    EXPECT_EQ(json->StringOf("list[0].b"), "shared");
    json.reset();
    EXPECT_EQ(list->Emit(), R"([{"a":1,"b":"shared"},2])");
}

TEST(JsonObject, TellsThatAPartWasReplacedInsteadOfLosingItsUpdates) {
    ClsJsonObject json;
    ASSERT_TRUE(json.Load(R"({"list":[{"a":1}]})"));
    const auto list = json.ArrayOf("list");
    const auto first = list->ObjectAt(0);
    json.UpdateString("list", "none");
    EXPECT_FALSE(first->UpdateInt("a", 2));
    EXPECT_THAT(first->LastErrorText(), HasSubstr("Unable to lock my JSON object."));
    EXPECT_FALSE(list->AddStringAt(0, "x"));
    EXPECT_THAT(list->LastErrorText(), HasSubstr("Internal Error: Failed to lock JSON object."));
}

TEST(JsonObject, StandsAnyNesting) {
    std::string text = "{\"a\":";
    for (int i = 0; i < 100'000; ++i)
        text += "[{\"b\":";
    ClsJsonObject json, copy;
    ASSERT_TRUE(json.Load(text) && copy.AddObjectCopyAt(-1, "copy", json));
    EXPECT_GT(copy.Emit().value_or("").size(), text.size());
    json.SetEmitCompact(false);
    EXPECT_EQ(json.Emit(), std::nullopt) << "so many levels of indentation are gigabytes";
    EXPECT_TRUE(json.UpdateString("a", "flat"));
    EXPECT_EQ(json.Emit(), "{\r\n  \"a\": \"flat\"\r\n}\r\n");
}

TEST(CkJsonObject, CarriesTextThroughItsWideSide) {
    CkJsonObjectW json, again;
    EXPECT_TRUE(json.UpdateString(u"име.собствено", u"Ѝван \U0001F511"));
    EXPECT_TRUE(again.Load(json.Emit()));
    EXPECT_EQ(std::u16string(again.StringOf(u"име.собствено")), u"Ѝван \U0001F511");
    EXPECT_EQ(again.StringOf(u"няма"), nullptr);
    EXPECT_NE(std::u16string(again.lastErrorText()).find(u"JSON member not found."), std::u16string::npos);
    EXPECT_TRUE(again.Load(uR"({"name":"bank.bg\u0000.evil","l":[{}]})"));
    EXPECT_EQ(std::u16string(again.StringOf(u"name")), u"bank.bg\uFFFD.evil") << "a NUL must not cut the text";
    EXPECT_NE(again.ArrayOf(u"l")->ObjectAt(0), nullptr);
    EXPECT_EQ(again.ArrayOf(u"name"), nullptr);
    EXPECT_TRUE(again.Load(nullptr));
    EXPECT_EQ(again.Size(), 0);
}

TEST(CkJsonObject, KeepsAResultForNineMore) {
    CkJsonObjectW json;
    json.UpdateString(u"first", u"первый");
    const char16_t* first = json.StringOf(u"first");
    for (int i = 0; i < 9; ++i)
        EXPECT_NE(json.Emit(), first);
    EXPECT_EQ(std::u16string(first), u"первый");
}

}  // namespace
}  // namespace toolkit
