// JSON texts and paths. The first line is a path, the rest a text; what was read must come back the same from what is
// emitted, unless it was not whole.

#include <algorithm>
#include <cstdlib>
#include <string>

#include "toolkit/ClsJsonArray.h"
#include "toolkit/ClsJsonObject.h"

namespace {

void Require(bool holds) {
    if (!holds) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view input(reinterpret_cast<const char*>(data), size);
    const std::string_view path = input.substr(0, input.find('\n'));
    // A brace keeps the text from being taken for the name of a file.
    const std::string text = std::string("{").append(input.substr(std::min(path.size() + 1, size)));

    toolkit::ClsJsonObject json;
    json.SetI(1);
    if (json.Load(text)) {
        toolkit::ClsJsonObject again, copy;
        const auto emitted = json.Emit();
        Require(emitted.has_value());
        Require(copy.AddObjectCopyAt(0, "copy", json) && copy.StringOf("copy") == emitted);
        if (again.Load(*emitted)) (void)again.Emit();
    }
    Require(json.HasMember(path) == json.StringOf(path).has_value());
    (void)json.BoolOf(path);
    (void)json.IntOf(path);
    if (const auto array = json.ArrayOf(path)) {
        Require(array->Size() == json.SizeOfArray(path));
        for (int i = 0; i < array->Size(); ++i)
            (void)array->ObjectAt(i);
    }
    if (json.UpdateString(path, text) && path.find('[') == std::string_view::npos) {
        Require(json.StringOf(path) == text);
        json.SetEmitCompact(false);
        toolkit::ClsJsonObject again;
        const auto laidOut = json.Emit();
        if (laidOut) (void)again.Load(*laidOut);
    }
    toolkit::ClsJsonArray array;
    (void)array.Load(std::string("[").append(text));
    (void)array.Emit();
    return 0;
}
