#include "toolkit/JsonPath.h"

#include <charconv>
#include <limits>
#include <string>

#include "toolkit/JsonText.h"

namespace toolkit {
namespace {

constexpr char kDelimiter = '.';
constexpr std::string_view kBlanks = " \t\r\n";
constexpr std::string_view kEndsBareName = ".[\t\r\n";

class Walk {
  public:
    // Without a document nothing is made.
    Walk(JsonDocument* document, JsonObject& start, std::string_view path, const PathIndices& indices,
         OperationLog& log)
        : document_(document), object_(&start), path_(path), indices_(indices), log_(log) {}

    PathEnd Run() {
        while (object_ != nullptr) {
            JsonValue* value = Member();
            if (value == nullptr || path_.empty()) return {value, faulty_};
            if (path_[0] == kDelimiter) {
                Descend(*value, "Value expected to be an object.");
            } else if (path_[0] == '[') {
                value = Elements(*value);
                if (value != nullptr || object_ == nullptr) return {value, faulty_};
            } else {
                Fault("Expected a '.' or '[' char.");
            }
        }
        return {nullptr, faulty_};
    }

  private:
    JsonValue* Member() {
        SkipBlanks();
        if (path_.empty() || path_ == std::string_view(&kDelimiter, 1)) return nullptr;
        const std::string name = AsWrittenName(path_[0] == '"' ? QuotedName() : BareName());
        if (JsonValue* found = object_->Find(name)) return found;
        if (document_ == nullptr) return Fault("JSON member not found.");
        object_->members.push_back({JsonValue::Copy(JsonValue::Kind::string, name), NewForTheRest()});
        return &object_->members.back().value;
    }

    std::string_view QuotedName() {
        std::size_t end = 1;
        while (end < path_.size() && path_[end] != '"')
            end += path_[end] == '\\' ? 2 : 1;
        end = std::min(end, path_.size());
        const std::string_view name = path_.substr(1, end - 1);
        path_.remove_prefix(std::min(end + 1, path_.size()));
        return name;
    }

    std::string_view BareName() {
        const std::string_view name = path_.substr(0, path_.find_first_of(kEndsBareName));
        path_.remove_prefix(name.size());
        return name;
    }

    // All indices that follow one another: [2][0]... The element if the path ends there; else null, and the walk goes
    // on in object_ unless that is null too.
    JsonValue* Elements(JsonValue& start) {
        JsonArray* array = start.AsArray();
        if (array == nullptr) return Fault("Value expected to be an array.");
        for (;;) {
            JsonValue* element = Element(*array);
            if (element == nullptr || path_.empty()) return element;
            if (path_[0] == kDelimiter) {
                Descend(*element, "JSON path error: expected an object.");
                return nullptr;
            }
            if (path_[0] != '[') return Fault("Expected a '.' or '[' char.");
            array = element->AsArray();
            if (array == nullptr) return Fault("JSON path error: expected an array.");
        }
    }

    JsonValue* Element(JsonArray& array) {
        const auto close = path_.find(']');
        if (close == std::string_view::npos) return Fault("Did not find closing ']' in JSON path.");
        const int index = Index(path_.substr(1, close - 1));
        path_.remove_prefix(close + 1);
        SkipBlanks();
        if (index >= 0 && static_cast<std::size_t>(index) < array.elements.size()) {
            return &array.elements[static_cast<std::size_t>(index)];
        }
        if (document_ == nullptr) return Fault("JSON array index out-of-bounds");
        array.elements.push_back(NewForTheRest());
        return &array.elements.back();
    }

    [[nodiscard]] int Index(std::string_view text) const {
        if (text.empty()) return -1;
        switch (text[0]) {
            case 'i':
            case 'I':
                return indices_.i;
            case 'j':
            case 'J':
                return indices_.j;
            case 'k':
            case 'K':
                return indices_.k;
            case '*':
                return -1;
            default:
                return LeadingInt(text);
        }
    }

    [[nodiscard]] JsonValue NewForTheRest() const {
        if (path_.empty()) return {};
        if (path_[0] == '[') return JsonValue::Of(document_->NewArray());
        if (path_[0] == kDelimiter) return JsonValue::Of(document_->NewObject());
        return {};
    }

    void Descend(const JsonValue& value, std::string_view otherwise) {
        object_ = value.AsObject();
        if (object_ == nullptr) Fault(otherwise);
        path_.remove_prefix(1);
    }

    JsonValue* Fault(std::string_view reason) {
        log_.Line(reason);
        faulty_ = true;
        object_ = nullptr;
        return nullptr;
    }

    void SkipBlanks() { path_.remove_prefix(std::min(path_.find_first_not_of(kBlanks), path_.size())); }

    JsonDocument* document_;
    JsonObject* object_;  // null once the walk is over
    std::string_view path_;
    const PathIndices& indices_;
    OperationLog& log_;
    bool faulty_ = false;
};

}  // namespace

PathEnd FindPath(JsonObject& start, std::string_view path, const PathIndices& indices, OperationLog& log) {
    return Walk(nullptr, start, path, indices, log).Run();
}

PathEnd MakePath(JsonDocument& document, JsonObject& start, std::string_view path, const PathIndices& indices,
                 OperationLog& log) {
    return Walk(&document, start, path, indices, log).Run();
}

int LeadingInt(std::string_view text) {
    text.remove_prefix(std::min(text.find_first_not_of(" \t\r\n\v\f"), text.size()));
    if (text.starts_with('+')) text.remove_prefix(1);
    int number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error != std::errc::result_out_of_range) return number;
    return text.starts_with('-') ? std::numeric_limits<int>::min() : std::numeric_limits<int>::max();
}

}  // namespace toolkit
