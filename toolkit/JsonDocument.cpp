#include "toolkit/JsonDocument.h"

#include <algorithm>

namespace toolkit {

JsonValue JsonValue::Slice(Kind kind, std::string_view text) {
    return {kind, const_cast<char*>(text.data()), text.size(), false};  // never written through: it is not owned
}

JsonValue JsonValue::Copy(Kind kind, std::string_view text) {
    if (text.empty()) return {kind, nullptr, 0, false};
    auto* bytes = new char[text.size()];
    std::copy(text.begin(), text.end(), bytes);
    return {kind, bytes, text.size(), true};
}

void JsonValue::Swap(JsonValue& other) noexcept {
    std::swap(pointer_, other.pointer_);
    const auto size = size_, kind = kind_, owned = owned_;
    size_ = other.size_;
    kind_ = other.kind_;
    owned_ = other.owned_;
    other.size_ = size;
    other.kind_ = kind;
    other.owned_ = owned;
}

JsonValue* JsonObject::Find(std::string_view name) {
    const auto found =
        std::find_if(members.begin(), members.end(), [name](const JsonMember& m) { return m.name.Text() == name; });
    return found == members.end() ? nullptr : &found->value;
}

JsonValue JsonDocument::CopyShallow(const JsonValue& original) {
    if (original.AsArray() != nullptr) return JsonValue::Of(NewArray());
    if (original.AsObject() != nullptr) return JsonValue::Of(NewObject());
    return JsonValue::Copy(original.GetKind(), original.Text());
}

JsonValue JsonDocument::CopyOf(const JsonValue& original) {
    JsonValue copy = CopyShallow(original);
    // Pairs of an original container and its copy that is still empty. Containers do not move, so the pointers hold.
    std::vector<std::pair<const JsonValue*, JsonValue*>> pending;
    const auto later = [&pending](const JsonValue& from, JsonValue& to) {
        if (from.IsContainer()) pending.emplace_back(&from, &to);
    };
    later(original, copy);
    while (!pending.empty()) {
        const auto [from, to] = pending.back();
        pending.pop_back();
        if (const auto* array = from->AsArray()) {
            auto& elements = to->AsArray()->elements;
            elements.reserve(array->elements.size());
            for (const auto& element : array->elements)
                later(element, elements.emplace_back(CopyShallow(element)));
        } else {
            auto& members = to->AsObject()->members;
            const auto& source = from->AsObject()->members;
            members.reserve(source.size());
            for (const auto& member : source) {
                members.push_back({JsonValue::Copy(JsonValue::Kind::string, member.name.Text()),  //
                                   CopyShallow(member.value)});
                later(member.value, members.back().value);
            }
        }
    }
    return copy;
}

void JsonDocument::Replace(JsonValue& place, JsonValue value) {
    std::vector<const JsonValue*> pending;
    const auto later = [&pending](const JsonValue& part) {
        if (part.IsContainer()) pending.push_back(&part);
    };
    const JsonValue old = std::exchange(place, std::move(value));
    later(old);
    while (!pending.empty()) {
        const JsonValue& part = *pending.back();
        pending.pop_back();
        if (auto* array = part.AsArray()) {
            array->detached = true;
            for (const auto& element : array->elements)
                later(element);
        } else {
            part.AsObject()->detached = true;
            for (const auto& member : part.AsObject()->members)
                later(member.value);
        }
    }
}

}  // namespace toolkit
