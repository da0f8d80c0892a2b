#include "toolkit/JsonWriter.h"

#include <string_view>
#include <vector>

namespace toolkit {
namespace {

using Kind = JsonValue::Kind;

class Writer {
  public:
    Writer(JsonLayout layout, std::size_t limit) : compact_(layout.compact), limit_(limit) {
        if (!compact_) lineEnd_ = layout.crLf ? "\r\n" : "\n";
    }

    std::optional<std::string> Write(const JsonValue& value) {
        Begin(value);
        while (!open_.empty() && out_.size() <= limit_)
            Continue();
        if (out_.size() > limit_) return std::nullopt;
        return std::move(out_);
    }

  private:
    struct Level {
        const JsonValue* container;
        std::size_t next = 0;
    };

    // A scalar or an empty object is written whole; another container is opened.
    void Begin(const JsonValue& value) {
        if (value.GetKind() == Kind::token) {
            out_ += value.Text();
        } else if (value.GetKind() == Kind::string) {
            Quoted(value);
        } else if (value.AsObject() != nullptr && value.AsObject()->members.empty()) {
            out_ += "{}";
        } else {
            out_ += value.AsObject() != nullptr ? '{' : '[';
            out_ += lineEnd_;
            open_.push_back({&value});
        }
    }

    void Continue() {
        Level& level = open_.back();
        const auto* object = level.container->AsObject();
        const auto* array = level.container->AsArray();
        const std::size_t count = object != nullptr ? object->members.size() : array->elements.size();
        if (level.next > 0) out_ += level.next < count && compact_ ? "," : "";
        if (level.next == count) return End(object != nullptr ? '}' : ']');
        Indent(open_.size());
        const std::size_t index = level.next++;
        const JsonValue* value = nullptr;
        if (object != nullptr) {
            Quoted(object->members[index].name);
            out_ += compact_ ? ":" : ": ";
            value = &object->members[index].value;
        } else {
            value = &array->elements[index];
        }
        const std::size_t depth = open_.size();
        Begin(*value);
        if (open_.size() == depth) EndLine();
    }

    void End(char bracket) {
        open_.pop_back();
        Indent(open_.size());
        out_ += bracket;
        EndLine();
    }

    // After a member, an element or the root, once all of it is written.
    void EndLine() {
        if (compact_) return;
        if (!open_.empty() && MoreIn(open_.back())) out_ += ',';
        out_ += lineEnd_;
    }
    static bool MoreIn(const Level& level) {
        const auto* object = level.container->AsObject();
        return level.next < (object != nullptr ? object->members.size() : level.container->AsArray()->elements.size());
    }

    void Indent(std::size_t depth) {
        if (!compact_) out_.append(depth * 2, ' ');
    }
    void Quoted(const JsonValue& text) {
        out_ += '"';
        out_ += text.Text();
        out_ += '"';
    }

    bool compact_;
    std::size_t limit_;
    std::string_view lineEnd_;
    std::string out_;
    std::vector<Level> open_;
};

}  // namespace

std::optional<std::string> WriteJson(const JsonValue& value, JsonLayout layout, std::size_t limit) {
    return Writer(layout, limit).Write(value);
}

}  // namespace toolkit
