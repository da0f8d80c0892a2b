#pragma once
// A JSON object: a document of its own, or a part of one that it shares with other objects and arrays. Text is UTF-8
// and may hold any byte; paths are those of JsonPath.h.
//
//   ClsJsonObject json;
//   json.UpdateBool("timestampToken.enabled", true);
//   json.SetI(1);
//   json.UpdateString("signers[i].\"1.2.3\".name", "Иван");   // makes what is missing
//   const std::string text = *json.Emit();

#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "toolkit/ClsBase.h"
#include "toolkit/JsonDocument.h"
#include "toolkit/JsonPath.h"
#include "toolkit/JsonWriter.h"

namespace toolkit {

class ClsJsonArray;

class ClsJsonObject : public ClsBase {
  public:
    ClsJsonObject() = default;
    // A part of a document. The object must belong to it.
    ClsJsonObject(std::shared_ptr<JsonDocument> document, JsonObject& object);

    // Replaces what this object held by a document of its own. A text of less than 512 bytes without `{` that names an
    // existing file stands for the file's bytes. The text is read tolerantly (JsonParser.h): true does not mean that it
    // is well formed. After false the object is empty.
    bool Load(std::string text);
    // Empty if the text would be longer than kMaxJsonText.
    std::optional<std::string> Emit();
    void SetEmitCompact(bool compact);
    void SetEmitCrLf(bool crLf);
    void SetI(int value);
    void SetJ(int value);
    void SetK(int value);

    [[nodiscard]] int Size() const;
    bool HasMember(std::string_view path);
    // A string is decoded, a token is its text, a container its compact JSON text; empty if the path leads nowhere.
    std::optional<std::string> StringOf(std::string_view path);
    bool BoolOf(std::string_view path);      // the text is "true" in any letter case
    int IntOf(std::string_view path);        // the number that the text starts with, else 0
    int SizeOfArray(std::string_view path);  // -1 if there is no array
    std::unique_ptr<ClsJsonArray> ArrayOf(std::string_view path);

    bool UpdateString(std::string_view path, std::string_view text);
    bool UpdateBool(std::string_view path, bool value);
    bool UpdateInt(std::string_view path, int value);

    // A new member ahead of the one at the index, -1 for the end; the name is no path.
    bool AddStringAt(int index, std::string_view name, std::string_view text);
    bool AddObjectCopyAt(int index, std::string_view name, const ClsJsonObject& object);
    bool AddArrayCopyAt(int index, std::string_view name, const ClsJsonArray& array);

  private:
    friend class ClsJsonArray;

    // The object, which comes into being with a document of its own; null with the reason in the log if it is no longer
    // part of its document.
    JsonObject* Reach(OperationLog& log);
    // For reading: also null, without a reason, if there is nothing yet.
    JsonObject* ReachExisting(OperationLog& log) const;
    JsonValue* Find(std::string_view path, OperationLog& log) const;
    bool Update(std::string_view operation, std::string_view path, JsonValue value);
    bool Add(OperationLog& log, int index, std::string_view name, JsonValue value);

    std::shared_ptr<JsonDocument> document_;
    JsonObject* object_ = nullptr;
    PathIndices indices_;
    JsonLayout layout_;
};

}  // namespace toolkit
