#include <gtest/gtest.h>

#include "tests/support/Profile.h"
#include "toolkit/CkJsonArrayW.h"
#include "toolkit/CkJsonObjectW.h"
#include "toolkit/ClsJsonArray.h"
#include "toolkit/ClsJsonObject.h"

namespace toolkit {
namespace {

std::string Noted(const ClsBase& object, std::string_view reason) {
    const std::string text = object.LastErrorText();
    if (text.find(reason) != std::string::npos) return {};
    return std::string(reason).append(" is not in: ").append(text);
}

TEST(JsonObject, LoadingLeavesWhatCouldBeRead) {
    const struct {
        const char* text;
        bool loads;
        const char* emitted;
    } cases[] = {
        {"", true, "{}"},
        {"no bracket, no file", true, "{}"},
        {"\xEF\xBB\xBFjunk {\"a\":1} tail", true, R"({"a":1})"},
        {R"( { "b" : true , "a":[ 1 ,"x", null ] , "e":{} } )", true, R"({"b":true,"a":[1,"x",null],"e":{}})"},
        {R"({"a":[1 | 2,,3 |,]})", true, R"({"a":[1,2,3]})"},
        {R"({"a":"x\"y\\","b":"\\\\"})", true, R"({"a":"x\"y\\","b":"\\\\"})"},
        {R"({"a":1,"b":{"c":"half)", true, R"({"a":1,"b":{"c":"half"}})"},
        {R"({"a":"half\)", true, R"({"a":"half"})"},
        {R"({"a":)", true, R"({"a":})"},
        {R"({"a)", true, "{}"},
        {R"({"a":1,"a":2})", true, R"({"a":1,"a":2})"},
        {R"({"a":[[1,2},"b":3})", true, R"({"a":[[1,2]]})"},
        {R"({"a":[{"b":1],"c":2})", true, R"({"a":[{"b":1}],"c":2})"},
        {R"({"a":1]})", true, R"({"a":1})"},
        {R"({"a":1,b:2})", false, "{}"},
        {R"({"a" 1})", false, "{}"},
    };
    for (const auto& [text, loads, emitted] : cases) {
        ClsJsonObject json;
        json.UpdateString("old", "value");
        EXPECT_EQ(json.Load(text), loads) << text << json.LastErrorText();
        EXPECT_EQ(json.Emit().value_or("none"), emitted) << text;
    }
}

TEST(JsonObject, TakesAShortTextWithoutABraceForAFileThatExists) {
    const tests::Profile profile;
    const std::string path = profile.Write("request.json", R"({"name":"Иван"})");
    ClsJsonObject json;
    ASSERT_TRUE(json.Load(path));
    EXPECT_EQ(json.StringOf("name"), "Иван");

    const std::string braced = profile.Write("{}", R"({"read":true})");
    ASSERT_TRUE(json.Load(braced));
    EXPECT_EQ(json.Size(), 0) << "a text with a brace is never a file name";

    const std::string longPath = std::string(512 - path.size(), '/') + path;
    ASSERT_TRUE(json.Load(longPath));
    EXPECT_EQ(json.Size(), 0) << "512 bytes are no file name";
    ASSERT_TRUE(json.Load(longPath.substr(1)));
    EXPECT_EQ(json.Size(), 1) << "511 bytes are one";

    ASSERT_TRUE(json.Load(profile.Folder())) << "a folder is no file";
    EXPECT_EQ(json.Size(), 0);
}

TEST(JsonArray, LoadsTextsAndFilesThatHoldAnArray) {
    const tests::Profile profile;
    ClsJsonArray json;
    EXPECT_TRUE(json.Load(R"( [1, {"a":2}, "b"] )"));
    EXPECT_EQ(json.Emit(), R"([1,{"a":2},"b"])");
    EXPECT_TRUE(json.Load("[1,2")) << "an array that ends early";
    EXPECT_EQ(json.Size(), 2);
    const std::string path = profile.Write("list.json", "[7]");
    EXPECT_TRUE(json.Load(path));
    EXPECT_EQ(json.Emit(), "[7]");
    EXPECT_TRUE(json.Load(profile.Write("name", path))) << "a file that holds the path of another";
    EXPECT_EQ(json.Emit(), "[7]");
    for (const char* wrong : {"", "no file", R"({"a":[1]})", "true", "x [1]"}) {
        EXPECT_FALSE(json.Load(wrong)) << wrong;
        EXPECT_EQ(Noted(json, "Unable to get array at index 0."), "");
        EXPECT_EQ(json.Size(), 0);
    }
    EXPECT_FALSE(json.Load("no file"));
    EXPECT_EQ(Noted(json, "Attention: The contents of the JSON should be passed to this method, NOT the file path."),
              "");
}

TEST(JsonObject, PathsLeadWhereTheGrammarSays) {
    ClsJsonObject json;
    ASSERT_TRUE(json.Load(R"({"a":[10,[20,21],{"n":"x"}],"o":{"p.q":{"r":1},"\"":2,"":3},"n":null,"a b":4})"));
    json.SetI(1);
    json.SetJ(2);
    json.SetK(7);
    const std::pair<const char*, const char*> there[] = {{"a[0]", "10"},
                                                         {" \ta[i][0]", "20"},
                                                         {"a[I] \r\n[1]", "21"},
                                                         {"a[junk].n", "x"},
                                                         {"a[ 2].n", "x"},
                                                         {"a[zero]", "10"},
                                                         {"a[2]. n", "x"},
                                                         {"a[1]", "[20,21]"},
                                                         {"n", "null"},
                                                         {R"(o."p.q".r)", "1"},
                                                         {R"(o."p.q)", R"({"r":1})"},
                                                         {R"(o."\"")", "2"},
                                                         {"a b", "4"}};
    for (const auto& [path, value] : there) {
        EXPECT_EQ(json.StringOf(path), value) << path;
        EXPECT_TRUE(json.HasMember(path)) << path;
    }
    const std::pair<const char*, std::vector<const char*>> nowhere[] = {
        {"Path did not end at a JSON value (3)", {"", ".", "o.", "a[2]."}},
        {"JSON member not found.", {"A"}},
        {"Value expected to be an object.", {"a.b"}},
        {"Value expected to be an array.", {"o.[0]", "o[0]"}},
        {"Did not find closing ']' in JSON path.", {"a[0"}},
        {"JSON array index out-of-bounds", {"a[3]", "a[ki]", "a[*]", "a[]", "a[-9]", "a[99999999999999999999]"}},
        {"JSON path error: expected an object.", {"a[0].x"}},
        {"JSON path error: expected an array.", {"a[0][0]"}},
        {"Expected a '.' or '[' char.", {"a[0]x", "a\tb", R"("a"b)"}},
    };
    for (const auto& [note, paths] : nowhere) {
        for (const char* path : paths) {
            EXPECT_EQ(json.StringOf(path), std::nullopt) << path;
            EXPECT_EQ(Noted(json, note), "") << path;
            EXPECT_FALSE(json.HasMember(path)) << path;
        }
    }
}

TEST(JsonObject, ReadsValuesAsTextFlagsAndNumbers) {
    ClsJsonObject json;
    ASSERT_TRUE(
        json.Load(R"({"t":"TrUe","u":true,"one":1,"f":"truer","n":" -12x","big":99999999999,"arr":[1,2],"ob":{},)"
                  R"("esc":"\u0416\ud83d\ude00\ud800!\/\t\q\u12"})"));
    EXPECT_TRUE(json.BoolOf("t"));
    EXPECT_TRUE(json.BoolOf("u"));
    for (const char* no : {"one", "f", "arr", "missing"})
        EXPECT_FALSE(json.BoolOf(no)) << no;
    EXPECT_EQ(json.IntOf("n"), -12);
    EXPECT_EQ(json.IntOf("big"), 2147483647);
    EXPECT_EQ(json.IntOf("t"), 0);
    EXPECT_EQ(json.IntOf("missing"), 0);
    EXPECT_EQ(json.IntOf("arr"), 0);
    EXPECT_EQ(Noted(json, "Path did not end at a JSON value (3)"), "");
    EXPECT_EQ(json.SizeOfArray("arr"), 2);
    EXPECT_EQ(json.SizeOfArray("ob"), -1);
    EXPECT_EQ(json.SizeOfArray("missing"), -1);
    EXPECT_EQ(json.StringOf("esc"), "Ж\U0001F600\uFFFD!/\t\\q\\u12");
    EXPECT_EQ(json.ArrayOf("ob"), nullptr);
    EXPECT_EQ(Noted(json, "Path did not end at a JSON array."), "");
}

TEST(JsonObject, MakesWhatIsMissingOnTheWayOfAnUpdate) {
    ClsJsonObject json;
    EXPECT_TRUE(json.UpdateBool("timestampToken.enabled", true));
    EXPECT_TRUE(json.UpdateString("timestampToken.tsaUrl", "http://x"));
    EXPECT_TRUE(json.UpdateInt("list[5].n", -3));
    EXPECT_TRUE(json.UpdateInt("list[0].n", 4));
    EXPECT_TRUE(json.UpdateInt("list[*].n", 5));
    EXPECT_TRUE(json.UpdateInt("grid[0][0]", 1));
    EXPECT_TRUE(json.UpdateInt("grid[0][1]", 2));
    EXPECT_TRUE(json.UpdateString(R"("1.2".x)", "y"));
    EXPECT_EQ(json.Emit(), R"({"timestampToken":{"enabled":true,"tsaUrl":"http://x"},"list":[{"n":4},{"n":5}],)"
                           R"("grid":[[1,2]],"1.2":{"x":"y"}})");
    EXPECT_TRUE(json.UpdateString("grid", "gone")) << "a value takes the place of whatever stood there";
    EXPECT_EQ(json.StringOf("grid"), "gone");
    EXPECT_FALSE(json.UpdateString("grid.x", ""));
    EXPECT_EQ(Noted(json, "Value expected to be an object."), "");
    EXPECT_FALSE(json.UpdateString("", "x"));
    EXPECT_EQ(Noted(json, "Path did not end at a JSON value (1)"), "");
}

TEST(JsonObject, EveryTextSurvivesUpdateEmitLoadAndRead) {
    std::string all;
    for (int c = 1; c < 128; ++c)
        all.push_back(static_cast<char>(c));
    for (const std::string& text : {all, std::string("Ключ \U0001F511 C:\\path\\"), std::string("a\0b", 3)}) {
        ClsJsonObject json, again;
        ASSERT_TRUE(json.UpdateString("k", text));
        ASSERT_TRUE(json.AddStringAt(0, text, "named"));
        ASSERT_TRUE(again.Load(*json.Emit()));
        EXPECT_EQ(again.StringOf("k"), text);
        EXPECT_EQ(again.Emit(), json.Emit());
        EXPECT_EQ(again.Size(), 2);
    }
    ClsJsonObject json;
    json.UpdateString("k", "\t\n\r\b\f\"\\\x01\x1f/Ж");
    EXPECT_EQ(json.Emit(), "{\"k\":\"\\t\\n\\r\\b\\f\\\"\\\\\\u0001\\u001f/Ж\"}");
    ClsJsonObject odd;
    EXPECT_TRUE(odd.UpdateInt("a\"b", 1));
    EXPECT_TRUE(odd.UpdateInt("a\"b", 2)) << "a bare name with a quote is found again";
    EXPECT_EQ(odd.Emit(), R"({"a\"b":2})");
}

TEST(JsonObject, LaysOutItsTextByTheSettings) {
    ClsJsonObject json;
    ASSERT_TRUE(json.Load(R"({"a":1,"b":[1,{"c":"x"},[]],"d":{}})"));
    json.SetEmitCompact(false);
    EXPECT_EQ(json.Emit(),
              "{\r\n  \"a\": 1,\r\n  \"b\": [\r\n    1,\r\n    {\r\n      \"c\": \"x\"\r\n    },\r\n    [\r\n    ]\r\n"
              "  ],\r\n  \"d\": {}\r\n}\r\n");
    json.SetEmitCrLf(false);
    EXPECT_EQ(json.Emit().value_or("").find('\r'), std::string::npos);
    ClsJsonArray array;
    array.SetEmitCompact(false);
    array.AddStringAt(-1, "z");
    EXPECT_EQ(array.Emit(), "[\r\n  \"z\"\r\n]\r\n");
}

TEST(JsonObject, InsertsMembersAndElementsAtTheirIndex) {
    ClsJsonObject json, part;
    ClsJsonArray array;
    EXPECT_TRUE(part.UpdateInt("x", 1));
    EXPECT_TRUE(array.AddStringAt(99, "b"));
    EXPECT_TRUE(array.AddStringAt(0, "a"));
    EXPECT_TRUE(array.AddObjectCopyAt(1, part));
    EXPECT_TRUE(json.AddStringAt(-1, "s.t", "v"));
    EXPECT_TRUE(json.AddObjectCopyAt(0, "o", part));
    EXPECT_TRUE(json.AddArrayCopyAt(1, "l", array));
    EXPECT_TRUE(json.AddObjectCopyAt(-1, "self", json)) << "a copy of itself";
    part.UpdateInt("x", 2);
    array.AddStringAt(-1, "later");
    EXPECT_EQ(json.Emit(), R"({"o":{"x":1},"l":["a",{"x":1},"b"],"s.t":"v",)"
                           R"("self":{"o":{"x":1},"l":["a",{"x":1},"b"],"s.t":"v"}})");
    EXPECT_FALSE(array.AddObjectCopyAt(-2, part));
    EXPECT_EQ(Noted(array, "Failed to add object at the given index."), "");
}

TEST(JsonObject, SharesItsDocumentWithPartsThatMayOutliveIt) {
    auto json = std::make_unique<ClsJsonObject>();
    ASSERT_TRUE(json->Load(R"({"list":[{"a":1},2]})"));
    const auto list = json->ArrayOf("list");
    ASSERT_NE(list, nullptr);
    const auto first = list->ObjectAt(0);
    ASSERT_NE(first, nullptr);
    EXPECT_EQ(list->ObjectAt(1), nullptr) << "a number is no object";
    EXPECT_EQ(list->ObjectAt(2), nullptr);
    EXPECT_EQ(list->ObjectAt(-1), nullptr);
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
    EXPECT_EQ(Noted(*first, "Unable to lock my JSON object."), "");
    EXPECT_FALSE(list->AddStringAt(0, "x"));
    EXPECT_EQ(Noted(*list, "Internal Error: Failed to lock JSON object."), "");
}

TEST(JsonObject, StandsAnyNesting) {
    constexpr int kDepth = 200'000;
    std::string text = "{\"a\":";
    for (int i = 0; i < kDepth; ++i)
        text += i % 2 == 0 ? "[" : "{\"b\":";
    ClsJsonObject json;
    ASSERT_TRUE(json.Load(text));
    ClsJsonObject copy;
    ASSERT_TRUE(copy.AddObjectCopyAt(-1, "copy", json));
    const auto emitted = copy.Emit();
    ASSERT_TRUE(emitted.has_value());
    EXPECT_GT(emitted->size(), text.size());
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
    const auto list = again.ArrayOf(u"l");
    ASSERT_NE(list, nullptr);
    EXPECT_NE(list->ObjectAt(0), nullptr);
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
    EXPECT_NE(json.Emit(), nullptr);
    EXPECT_NE(std::u16string(json.Emit()), u"первый");
}

}  // namespace
}  // namespace toolkit
