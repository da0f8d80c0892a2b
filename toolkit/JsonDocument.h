#pragma once
// The tree that JSON objects and arrays share. A value is a quoted string, a bare token, an array or an object; text is
// kept as it is written in JSON, with its escapes, and decoded when it is read.
//
// A document owns every container that was ever made in it, so that handles to a part of it stay safe whatever is done
// to the rest, and so that a tree of any depth is destroyed without recursion. Strings are slices of the loaded text
// where they came from there and own their bytes otherwise: a value costs 16 bytes.

#include <cstddef>
#include <cstdint>
#include <deque>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace toolkit {

struct JsonArray;
struct JsonObject;

class JsonValue {
  public:
    enum class Kind : std::uint8_t { token, string, array, object };

    JsonValue() = default;  // an empty token: no content
    JsonValue(JsonValue&& other) noexcept { Swap(other); }
    JsonValue& operator=(JsonValue&& other) noexcept {
        JsonValue(std::move(other)).Swap(*this);
        return *this;
    }
    ~JsonValue() {
        if (owned_) delete[] static_cast<char*>(pointer_);
    }

    // The text must live as long as the value.
    static JsonValue Slice(Kind kind, std::string_view text);
    static JsonValue Copy(Kind kind, std::string_view text);
    static JsonValue Of(JsonArray& array) { return {Kind::array, &array, 0, false}; }
    static JsonValue Of(JsonObject& object) { return {Kind::object, &object, 0, false}; }

    [[nodiscard]] Kind GetKind() const { return static_cast<Kind>(kind_); }
    [[nodiscard]] bool IsContainer() const { return AsArray() != nullptr || AsObject() != nullptr; }
    // As written; empty for a container.
    [[nodiscard]] std::string_view Text() const {
        return IsContainer() ? std::string_view() : std::string_view(static_cast<const char*>(pointer_), size_);
    }
    [[nodiscard]] JsonArray* AsArray() const {
        return GetKind() == Kind::array ? static_cast<JsonArray*>(pointer_) : nullptr;
    }
    [[nodiscard]] JsonObject* AsObject() const {
        return GetKind() == Kind::object ? static_cast<JsonObject*>(pointer_) : nullptr;
    }

  private:
    JsonValue(Kind kind, void* pointer, std::size_t size, bool owned)
        : pointer_(pointer), size_(size & kMaxSize), kind_(static_cast<std::uint64_t>(kind)), owned_(owned) {}
    void Swap(JsonValue& other) noexcept;

    static constexpr std::uint64_t kMaxSize = (std::uint64_t{1} << 61) - 1;
    void* pointer_ = nullptr;
    std::uint64_t size_ : 61 = 0;
    std::uint64_t kind_ : 2 = 0;
    std::uint64_t owned_ : 1 = 0;
};

struct JsonMember {
    JsonValue name;  // a string
    JsonValue value;
};

// Detached: it was replaced by something else and is no longer part of the document.
struct JsonArray {
    std::vector<JsonValue> elements;
    bool detached = false;
};

struct JsonObject {
    std::vector<JsonMember> members;
    bool detached = false;

    // The first member of that name, as written; null if there is none.
    [[nodiscard]] JsonValue* Find(std::string_view name);
};

class JsonDocument {
  public:
    JsonDocument() = default;
    explicit JsonDocument(std::string source) : source_(std::move(source)) {}
    JsonDocument(const JsonDocument&) = delete;
    JsonDocument& operator=(const JsonDocument&) = delete;

    [[nodiscard]] std::string_view Source() const { return source_; }
    JsonObject& NewObject() { return objects_.emplace_back(); }
    JsonArray& NewArray() { return arrays_.emplace_back(); }

    // A deep copy that belongs to this document. The original may belong to it too.
    JsonValue CopyOf(const JsonValue& original);
    // Puts a value in the place of another and marks all containers of that one as detached.
    static void Replace(JsonValue& place, JsonValue value);

  private:
    JsonValue CopyShallow(const JsonValue& original);

    std::string source_;
    std::deque<JsonObject> objects_;
    std::deque<JsonArray> arrays_;
};

// Inserts ahead of the element at the index; -1 and anything at or past the end mean the end. False for other
// negatives.
template <typename Element>
bool InsertAt(std::vector<Element>& list, int index, Element element) {
    if (index < -1) return false;
    const bool atEnd = index == -1 || static_cast<std::size_t>(index) >= list.size();
    list.insert(atEnd ? list.end() : list.begin() + index, std::move(element));
    return true;
}

}  // namespace toolkit
