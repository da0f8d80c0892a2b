#pragma once
// A JSON array: a document of its own, or a part of one that it shares.

#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "toolkit/ClsBase.h"
#include "toolkit/JsonDocument.h"
#include "toolkit/JsonWriter.h"

namespace toolkit {

class ClsJsonObject;

class ClsJsonArray : public ClsBase {
  public:
    ClsJsonArray() = default;
    // A part of a document. The array must belong to it.
    ClsJsonArray(std::shared_ptr<JsonDocument> document, JsonArray& array);

    // Replaces what this array held. A text of less than 512 bytes without `[` that names an existing file stands for
    // the file's contents. False if the text does not start with an array; the array is empty then.
    bool Load(std::string text);
    std::optional<std::string> Emit();
    void SetEmitCompact(bool compact);
    void SetEmitCrLf(bool crLf);

    [[nodiscard]] int Size() const;
    // Shares the document; null if there is no such element or it is no object.
    std::unique_ptr<ClsJsonObject> ObjectAt(int index);
    // Ahead of the element at the index; -1 and anything past the end mean the end.
    bool AddStringAt(int index, std::string_view text);
    bool AddObjectCopyAt(int index, const ClsJsonObject& object);

  private:
    friend class ClsJsonObject;

    JsonArray* Reach(OperationLog& log);
    JsonArray* ReachExisting(OperationLog& log) const;

    std::shared_ptr<JsonDocument> document_;
    JsonArray* array_ = nullptr;
    JsonLayout layout_;
};

}  // namespace toolkit
