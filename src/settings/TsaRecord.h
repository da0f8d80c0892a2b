#pragma once

#include <list>
#include <string>

namespace settings {

// One timestamp authority.
struct TsaRecord {
    std::u16string url;
    std::u16string title;               // shown to people; unique in a list
    std::u16string username, password;  // may be empty
    bool selected = false;              // the one offered first
};

using TsaList = std::list<TsaRecord>;

}  // namespace settings
