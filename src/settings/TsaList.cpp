#include "src/settings/TsaList.h"

#include "src/settings/Settings.h"
#include "toolkit/CkBinDataW.h"
#include "toolkit/CkJsonArrayW.h"
#include "toolkit/CkJsonObjectW.h"
#include "units/Registry.h"

namespace settings {
namespace {

constexpr char16_t kJsonBlanks[] = u" \t\r\n";

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

platform::ErrorCode LoadTsaListForChange(std::vector<TsaRecord>& list) {
    using namespace platform;
    list.clear();
    const auto isMissing = [](ErrorCode code) { return code == ERROR_FILE_NOT_FOUND || code == ERROR_PATH_NOT_FOUND; };
    const auto& setting = *FindSetting(u"TSA", u"JSON");
    RegistryKey key;
    RegistryValue value;
    ErrorCode code = RegOpenKeyExW(setting.hive, setting.key, key);
    if (code == ERROR_SUCCESS) code = RegQueryValueExW(key, setting.name, value);
    if (code != ERROR_SUCCESS) return isMissing(code) ? ERROR_SUCCESS : code;
    const auto text = StoredText(setting);
    if (!text) return ERROR_INVALID_DATA;
    const auto first = text->find_first_not_of(kJsonBlanks), last = text->find_last_not_of(kJsonBlanks);
    if (first == text->npos) return ERROR_SUCCESS;
    toolkit::CkJsonArrayW array;
    if ((*text)[first] != u'[' || (*text)[last] != u']' || !array.Load(text->c_str())) return ERROR_INVALID_DATA;
    list = LoadTsaList(text->c_str());
    if (list.size() == static_cast<std::size_t>(array.Size())) return ERROR_SUCCESS;
    list.clear();
    return ERROR_INVALID_DATA;
}

platform::ErrorCode StoreTsaList(const std::vector<TsaRecord>& list) {
    return Store(*FindSetting(u"TSA", u"JSON"), FormatTsaList(list));
}

}  // namespace settings
