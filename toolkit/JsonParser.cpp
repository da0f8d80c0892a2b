#include "toolkit/JsonParser.h"

#include <string_view>
#include <vector>

namespace toolkit {
namespace {

using Kind = JsonValue::Kind;

class Reader {
  public:
    explicit Reader(JsonDocument& document) : document_(document), text_(document.Source()) {}

    JsonRoot ReadRoot() {
        JsonObject& root = document_.NewObject();
        const auto brace = text_.find('{');
        if (brace == std::string_view::npos) return {&root, std::nullopt};
        at_ = brace + 1;
        Open({&root, nullptr});
        return {&root, ReadContents()};
    }

    JsonFirst ReadFirst() {
        SkipBlanks();
        JsonFirst first;
        first.value = ReadValue();
        first.fault = ReadContents();
        return first;
    }

  private:
    struct Level {
        JsonObject* object;  // one of the two
        JsonArray* array;
    };

    void Open(Level level) {
        open_.push_back(level);
        arrays_ += level.array != nullptr ? 1 : 0;
    }
    void CloseOne() {
        arrays_ -= open_.back().array != nullptr ? 1 : 0;
        open_.pop_back();
    }
    // Closes up to the nearest container that this bracket closes; ignored if there is none.
    void Close(char bracket) {
        const bool array = bracket == ']';
        const std::size_t candidates = array ? arrays_ : open_.size() - arrays_;
        if (candidates == 0 && array) return;
        while (!open_.empty()) {
            const bool match = (open_.back().array != nullptr) == array;
            CloseOne();
            if (match) return;
        }
    }

    std::optional<JsonFault> ReadContents() {
        while (!open_.empty()) {
            if (open_.back().array != nullptr) {
                ReadElements(*open_.back().array);
            } else if (auto fault = ReadMembers(*open_.back().object)) {
                return fault;
            }
            if (at_ >= text_.size()) break;
        }
        return std::nullopt;
    }

    // Reads until a container opens or closes, or the text ends.
    void ReadElements(JsonArray& array) {
        const std::size_t depth = open_.size();
        while (open_.size() == depth) {
            while (at_ < text_.size() && (IsBlank(text_[at_]) || text_[at_] == ',' || text_[at_] == '|'))
                ++at_;
            if (at_ >= text_.size()) return;
            if (text_[at_] == ']' || text_[at_] == '}') return Close(text_[at_++]);
            array.elements.push_back(ReadValue());
        }
    }

    std::optional<JsonFault> ReadMembers(JsonObject& object) {
        const std::size_t depth = open_.size();
        while (open_.size() == depth) {
            while (at_ < text_.size() && (IsBlank(text_[at_]) || text_[at_] == ','))
                ++at_;
            if (at_ >= text_.size()) return std::nullopt;
            if (text_[at_] == '}' || text_[at_] == ']') {
                Close(text_[at_++]);
                continue;
            }
            if (text_[at_] != '"') return JsonFault{at_, "Expected a member name in double quotes."};
            const std::string_view name = ReadQuoted();
            SkipBlanks();
            if (at_ >= text_.size()) return std::nullopt;
            if (text_[at_] != ':') return JsonFault{at_, "Expected a colon after the member name."};
            ++at_;
            SkipBlanks();
            object.members.push_back({JsonValue::Slice(Kind::string, name), ReadValue()});
        }
        return std::nullopt;
    }

    // A container is answered while it is still empty and is then the innermost open one.
    JsonValue ReadValue() {
        if (at_ >= text_.size()) return {};
        switch (text_[at_]) {
            case '"':
                return JsonValue::Slice(Kind::string, ReadQuoted());
            case '{': {
                ++at_;
                JsonObject& object = document_.NewObject();
                Open({&object, nullptr});
                return JsonValue::Of(object);
            }
            case '[': {
                ++at_;
                JsonArray& array = document_.NewArray();
                Open({nullptr, &array});
                return JsonValue::Of(array);
            }
            default:
                return JsonValue::Slice(Kind::token, ReadToken());
        }
    }

    std::string_view ReadQuoted() {
        const std::size_t start = ++at_;
        for (;;) {
            at_ = text_.find_first_of("\"\\", at_);
            if (at_ == std::string_view::npos) {
                at_ = text_.size();
                // Half an escape at the very end would take the closing quote with it when the value is written.
                return WithoutHalfEscape(text_.substr(start));
            }
            if (text_[at_] == '"') return text_.substr(start, at_++ - start);
            at_ += 2;
        }
    }

    static std::string_view WithoutHalfEscape(std::string_view written) {
        std::size_t slashes = 0;
        while (slashes < written.size() && written[written.size() - 1 - slashes] == '\\')
            ++slashes;
        return written.substr(0, written.size() - slashes % 2);
    }

    std::string_view ReadToken() {
        const std::size_t start = at_;
        at_ = std::min(text_.find_first_of(" \t\r\n,]}", at_), text_.size());
        return text_.substr(start, at_ - start);
    }

    void SkipBlanks() {
        while (at_ < text_.size() && IsBlank(text_[at_]))
            ++at_;
    }
    static bool IsBlank(char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; }

    JsonDocument& document_;
    std::string_view text_;
    std::size_t at_ = 0;
    std::vector<Level> open_;
    std::size_t arrays_ = 0;  // of those that are open
};

}  // namespace

JsonRoot ParseJsonObject(JsonDocument& document) {
    return Reader(document).ReadRoot();
}

JsonFirst ParseJsonValue(JsonDocument& document) {
    return Reader(document).ReadFirst();
}

}  // namespace toolkit
