#include "src/settings/TsaList.h"

#include "src/settings/Settings.h"
#include "toolkit/CkBinDataW.h"
#include "toolkit/CkJsonArrayW.h"
#include "toolkit/CkJsonObjectW.h"
#include "units/Registry.h"

namespace settings {
namespace {

std::u16string TextOf(toolkit::CkJsonObjectW& object, const char16_t* member) {
    const char16_t* const text = object.StringOf(member);
    return text == nullptr ? std::u16string() : text;
}

std::u16string DecodePassword(const std::u16string& encoded) {
    toolkit::CkBinDataW bytes;
    if (encoded.empty() || !bytes.LoadEncoded(encoded.c_str(), u"Base64")) return {};
    const char16_t* const text = bytes.GetString(u"unicode");
    return text == nullptr ? std::u16string() : text;
}

std::u16string EncodePassword(const std::u16string& password) {
    platform::Bytes bytes;
    for (const char16_t unit : password) {
        bytes.push_back(static_cast<std::uint8_t>(unit & 0xFF));
        bytes.push_back(static_cast<std::uint8_t>(unit >> 8));
    }
    toolkit::CkBinDataW data;
    data.AppendBinary2(bytes.data(), bytes.size());
    const char16_t* const text = data.GetEncoded(u"Base64");
    return text == nullptr ? std::u16string() : text;
}

std::u16string StoredList() {
    CRegistry registry;
    registry.Open(kTsaKey, false);  // a user who never opened the settings has no such key, and gets none by looking
    return registry.ReadString(u"JSON");
}

}  // namespace

std::vector<TsaRecord> LoadTsaList(const char16_t* json) {
    std::vector<TsaRecord> list;
    toolkit::CkJsonArrayW array;
    if (!array.Load(json != nullptr ? json : StoredList().c_str())) return list;
    bool selectedFound = false;
    for (int i = 0; i < array.Size(); ++i) {
        const auto object = array.ObjectAt(i);
        if (!object || (!object->HasMember(u"title") && !object->HasMember(u"url"))) continue;
        TsaRecord record;
        record.title = TextOf(*object, u"title");
        record.url = TextOf(*object, u"url");
        record.username = TextOf(*object, u"username");
        record.password = DecodePassword(TextOf(*object, u"password"));
        record.selected = !selectedFound && object->BoolOf(u"selected");
        selectedFound = selectedFound || record.selected;
        list.push_back(std::move(record));
    }
    return list;
}

std::u16string FormatTsaList(const std::vector<TsaRecord>& list) {
    toolkit::CkJsonArrayW array;
    array.Load(u"[]");
    for (const TsaRecord& record : list) {
        toolkit::CkJsonObjectW object;
        object.AddStringAt(-1, u"title", record.title.c_str());
        object.AddStringAt(-1, u"url", record.url.c_str());
        object.AddStringAt(-1, u"username", record.username.c_str());
        object.AddStringAt(-1, u"password", EncodePassword(record.password).c_str());
        if (record.selected) object.UpdateBool(u"selected", true);
        array.AddObjectCopyAt(-1, object);
    }
    array.put_EmitCompact(true);
    const char16_t* const text = array.Emit();
    return text == nullptr ? std::u16string() : text;
}

platform::ErrorCode StoreTsaList(const std::vector<TsaRecord>& list) {
    return Store(*FindSetting(u"TSA", u"JSON"), FormatTsaList(list));
}

}  // namespace settings
