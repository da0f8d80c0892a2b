#include "toolkit/ClsJsonObject.h"

#include <algorithm>

#include "toolkit/ClsJsonArray.h"
#include "toolkit/JsonFile.h"
#include "toolkit/JsonParser.h"
#include "toolkit/JsonText.h"

namespace toolkit {
namespace {

using Kind = JsonValue::Kind;

constexpr std::string_view kNotReachable = "Unable to lock my JSON object.";
constexpr std::string_view kNoValueToUpdate = "Path did not end at a JSON value (1)";
constexpr std::string_view kNoValueToRead = "Path did not end at a JSON value (3)";

}  // namespace

ClsJsonObject::ClsJsonObject(std::shared_ptr<JsonDocument> document, JsonObject& object)
    : document_(std::move(document)), object_(&object) {}

bool ClsJsonObject::Load(std::string text) {
    Operation operation(*this, "Load");
    if (auto content = JsonFileNamed(text, '{', 512)) text = std::move(*content);
    auto document = std::make_shared<JsonDocument>(std::move(text));
    const JsonRoot parsed = ParseJsonObject(*document);
    if (parsed.fault) {
        operation.Log().Line(parsed.fault->reason);
        operation.Log().Value("offset", std::to_string(parsed.fault->offset));
        document_ = nullptr;
        object_ = nullptr;
        return operation.Finish(false);
    }
    document_ = std::move(document);
    object_ = parsed.root;
    return operation.Finish(true);
}

std::optional<std::string> ClsJsonObject::Emit() {
    Operation operation(*this, "Emit");
    JsonObject* object = Reach(operation.Log());
    if (object == nullptr) return std::nullopt;
    auto text = WriteJson(JsonValue::Of(*object), layout_);
    if (!text) operation.Log().Line("The JSON text would be too long.");
    operation.Finish(text.has_value());
    return text;
}

void ClsJsonObject::SetEmitCompact(bool compact) {
    const auto lock = Lock();
    layout_.compact = compact;
}

void ClsJsonObject::SetEmitCrLf(bool crLf) {
    const auto lock = Lock();
    layout_.crLf = crLf;
}

void ClsJsonObject::SetI(int value) {
    const auto lock = Lock();
    indices_.i = value;
}

void ClsJsonObject::SetJ(int value) {
    const auto lock = Lock();
    indices_.j = value;
}

void ClsJsonObject::SetK(int value) {
    const auto lock = Lock();
    indices_.k = value;
}

int ClsJsonObject::Size() const {
    const auto lock = Lock();
    return object_ == nullptr || object_->detached ? 0 : static_cast<int>(object_->members.size());
}

bool ClsJsonObject::HasMember(std::string_view path) {
    Operation operation(*this, "HasMember");
    JsonObject* object = ReachExisting(operation.Log());
    return operation.Finish(object != nullptr && FindPath(*object, path, indices_, operation.Log()).value != nullptr);
}

std::optional<std::string> ClsJsonObject::StringOf(std::string_view path) {
    Operation operation(*this, "StringOf");
    const JsonValue* value = Find(path, operation.Log());
    if (value == nullptr) return std::nullopt;
    std::optional<std::string> text;
    if (value->GetKind() == Kind::string) {
        text = UnescapeJson(value->Text());
    } else {
        text = WriteJson(*value, JsonLayout{.compact = true});
    }
    operation.Finish(text.has_value());
    return text;
}

bool ClsJsonObject::BoolOf(std::string_view path) {
    Operation operation(*this, "BoolOf");
    const JsonValue* value = Find(path, operation.Log());
    if (value == nullptr) return false;
    if (value->IsContainer()) operation.Log().Line(kNoValueToRead);
    const auto same = [](char c, char lower) { return c == lower || c == lower - 32; };
    constexpr std::string_view kTrue = "true";
    operation.Finish(!value->IsContainer());
    const std::string text = UnescapeJson(value->Text());
    return std::equal(text.begin(), text.end(), kTrue.begin(), kTrue.end(), same);
}

int ClsJsonObject::IntOf(std::string_view path) {
    Operation operation(*this, "IntOf");
    const JsonValue* value = Find(path, operation.Log());
    if (value == nullptr) return 0;
    if (value->IsContainer()) operation.Log().Line(kNoValueToRead);
    operation.Finish(!value->IsContainer());
    return LeadingInt(UnescapeJson(value->Text()));
}

int ClsJsonObject::SizeOfArray(std::string_view path) {
    Operation operation(*this, "SizeOfArray");
    const JsonValue* value = Find(path, operation.Log());
    const bool found = value != nullptr && value->AsArray() != nullptr;
    operation.Finish(found);
    return found ? static_cast<int>(value->AsArray()->elements.size()) : -1;
}

std::unique_ptr<ClsJsonArray> ClsJsonObject::ArrayOf(std::string_view path) {
    Operation operation(*this, "ArrayOf");
    const JsonValue* value = Find(path, operation.Log());
    if (value == nullptr) return nullptr;
    if (value->AsArray() == nullptr) {
        operation.Log().Line("Path did not end at a JSON array.");
        return nullptr;
    }
    operation.Finish(true);
    return std::make_unique<ClsJsonArray>(document_, *value->AsArray());
}

bool ClsJsonObject::UpdateString(std::string_view path, std::string_view text) {
    return Update("UpdateString", path, JsonValue::Copy(Kind::string, EscapeJson(text)));
}

bool ClsJsonObject::UpdateBool(std::string_view path, bool value) {
    return Update("UpdateBool", path, JsonValue::Slice(Kind::token, value ? "true" : "false"));
}

bool ClsJsonObject::UpdateInt(std::string_view path, int value) {
    return Update("UpdateInt", path, JsonValue::Copy(Kind::token, std::to_string(value)));
}

bool ClsJsonObject::AddStringAt(int index, std::string_view name, std::string_view text) {
    Operation operation(*this, "AddStringAt");
    return operation.Finish(Add(operation.Log(), index, name, JsonValue::Copy(Kind::string, EscapeJson(text))));
}

bool ClsJsonObject::AddObjectCopyAt(int index, std::string_view name, const ClsJsonObject& object) {
    const auto locks = LockBoth(*this, object);
    Operation operation(*this, "AddObjectCopyAt");
    if (Reach(operation.Log()) == nullptr) return false;
    JsonObject* source = object.ReachExisting(operation.Log());
    if (source == nullptr && object.object_ != nullptr) return false;
    JsonValue copy =
        source == nullptr ? JsonValue::Of(document_->NewObject()) : document_->CopyOf(JsonValue::Of(*source));
    return operation.Finish(Add(operation.Log(), index, name, std::move(copy)));
}

bool ClsJsonObject::AddArrayCopyAt(int index, std::string_view name, const ClsJsonArray& array) {
    const auto locks = LockBoth(*this, array);
    Operation operation(*this, "AddArrayCopyAt");
    if (Reach(operation.Log()) == nullptr) return false;
    JsonArray* source = array.ReachExisting(operation.Log());
    if (source == nullptr && array.array_ != nullptr) return false;
    JsonValue copy =
        source == nullptr ? JsonValue::Of(document_->NewArray()) : document_->CopyOf(JsonValue::Of(*source));
    return operation.Finish(Add(operation.Log(), index, name, std::move(copy)));
}

JsonObject* ClsJsonObject::Reach(OperationLog& log) {
    if (object_ == nullptr) {
        document_ = std::make_shared<JsonDocument>();
        object_ = &document_->NewObject();
    }
    return ReachExisting(log);
}

JsonObject* ClsJsonObject::ReachExisting(OperationLog& log) const {
    if (object_ == nullptr || !object_->detached) return object_;
    log.Line(kNotReachable);
    return nullptr;
}

JsonValue* ClsJsonObject::Find(std::string_view path, OperationLog& log) const {
    JsonObject* object = ReachExisting(log);
    if (object == nullptr) {
        if (object_ == nullptr) log.Line("JSON member not found.");
        return nullptr;
    }
    const PathEnd end = FindPath(*object, path, indices_, log);
    if (end.value == nullptr && !end.faulty) log.Line(kNoValueToRead);
    return end.value;
}

bool ClsJsonObject::Update(std::string_view name, std::string_view path, JsonValue value) {
    Operation operation(*this, name);
    JsonObject* object = Reach(operation.Log());
    if (object == nullptr) return false;
    const PathEnd end = MakePath(*document_, *object, path, indices_, operation.Log());
    if (end.value == nullptr) {
        if (!end.faulty) operation.Log().Line(kNoValueToUpdate);
        return false;
    }
    JsonDocument::Replace(*end.value, std::move(value));
    return operation.Finish(true);
}

bool ClsJsonObject::Add(OperationLog& log, int index, std::string_view name, JsonValue value) {
    JsonObject* object = Reach(log);
    if (object == nullptr) return false;
    JsonMember member{JsonValue::Copy(Kind::string, EscapeJson(name)), std::move(value)};
    if (InsertAt(object->members, index, std::move(member))) return true;
    log.Line("The index is negative.");
    return false;
}

}  // namespace toolkit
