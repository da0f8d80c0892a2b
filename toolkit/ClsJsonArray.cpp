#include "toolkit/ClsJsonArray.h"

#include "toolkit/ClsJsonObject.h"
#include "toolkit/JsonFile.h"
#include "toolkit/JsonParser.h"
#include "toolkit/JsonText.h"

namespace toolkit {

ClsJsonArray::ClsJsonArray(std::shared_ptr<JsonDocument> document, JsonArray& array)
    : document_(std::move(document)), array_(&array) {}

bool ClsJsonArray::Load(std::string text) {
    Operation operation(*this, "Load");
    if (auto content = JsonFileNamed(text, '[', 512)) text = std::move(*content);
    // A file that holds nothing but the path of another one is followed once more.
    if (auto content = JsonFileNamed(text, '[', 200)) text = std::move(*content);
    if (text.size() < 200 && text.find('[') == std::string::npos) {
        operation.Log().Line("Attention: The contents of the JSON should be passed to this method, NOT the file path.");
    }
    auto document = std::make_shared<JsonDocument>(std::move(text));
    const JsonFirst parsed = ParseJsonValue(*document);
    document_ = nullptr;
    array_ = nullptr;
    if (parsed.fault || parsed.value.AsArray() == nullptr) {
        if (parsed.fault) operation.Log().Line(parsed.fault->reason);
        operation.Log().Line("Unable to get array at index 0.");
        return false;
    }
    document_ = std::move(document);
    array_ = parsed.value.AsArray();
    return operation.Finish(true);
}

std::optional<std::string> ClsJsonArray::Emit() {
    Operation operation(*this, "Emit");
    JsonArray* array = Reach(operation.Log());
    if (array == nullptr) return std::nullopt;
    auto text = WriteJson(JsonValue::Of(*array), layout_);
    if (!text) operation.Log().Line("The JSON text would be too long.");
    operation.Finish(text.has_value());
    return text;
}

void ClsJsonArray::SetEmitCompact(bool compact) {
    const auto lock = Lock();
    layout_.compact = compact;
}

void ClsJsonArray::SetEmitCrLf(bool crLf) {
    const auto lock = Lock();
    layout_.crLf = crLf;
}

int ClsJsonArray::Size() const {
    const auto lock = Lock();
    return array_ == nullptr || array_->detached ? 0 : static_cast<int>(array_->elements.size());
}

std::unique_ptr<ClsJsonObject> ClsJsonArray::ObjectAt(int index) {
    Operation operation(*this, "ObjectAt");
    const JsonArray* array = ReachExisting(operation.Log());
    if (array == nullptr || index < 0 || static_cast<std::size_t>(index) >= array->elements.size()) return nullptr;
    JsonObject* object = array->elements[static_cast<std::size_t>(index)].AsObject();
    if (object == nullptr) return nullptr;
    operation.Finish(true);
    return std::make_unique<ClsJsonObject>(document_, *object);
}

bool ClsJsonArray::AddStringAt(int index, std::string_view text) {
    Operation operation(*this, "AddStringAt");
    JsonArray* array = Reach(operation.Log());
    if (array == nullptr) return false;
    return operation.Finish(
        InsertAt(array->elements, index, JsonValue::Copy(JsonValue::Kind::string, EscapeJson(text))));
}

bool ClsJsonArray::AddObjectCopyAt(int index, const ClsJsonObject& object) {
    const auto locks = LockBoth(*this, object);
    Operation operation(*this, "AddObjectCopyAt");
    JsonArray* array = Reach(operation.Log());
    JsonObject* source = object.ReachExisting(operation.Log());
    bool added = array != nullptr && (source != nullptr || object.object_ == nullptr);
    if (added) {
        JsonValue copy =
            source == nullptr ? JsonValue::Of(document_->NewObject()) : document_->CopyOf(JsonValue::Of(*source));
        added = InsertAt(array->elements, index, std::move(copy));
    }
    if (!added) operation.Log().Line("Failed to add object at the given index.");
    return operation.Finish(added);
}

JsonArray* ClsJsonArray::Reach(OperationLog& log) {
    if (array_ == nullptr) {
        document_ = std::make_shared<JsonDocument>();
        array_ = &document_->NewArray();
    }
    return ReachExisting(log);
}

JsonArray* ClsJsonArray::ReachExisting(OperationLog& log) const {
    if (array_ == nullptr || !array_->detached) return array_;
    log.Line("Internal Error: Failed to lock JSON object.");
    return nullptr;
}

}  // namespace toolkit
