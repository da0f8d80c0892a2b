#pragma once
// The user's list of timestamp authorities, kept as one JSON text in the registry: an array of objects with the members
// title, url, username, password (Base64 of the UTF-16LE bytes; no protection) and, where an outside writer put it,
// selected.

#include <string>
#include <vector>

#include "platform/Error.h"

namespace settings {

struct TsaRecord {
    std::u16string url;
    std::u16string title;     // unique in the list: the record's key
    std::u16string username;  // empty: no credentials
    std::u16string password;
    bool selected = false;  // offered first
};

// The records of a JSON array text, or of the registry if null, in their order. What cannot be read is an empty list;
// a record with neither title nor url is skipped. At most one comes back as selected: the first that is.
std::vector<TsaRecord> LoadTsaList(const char16_t* json);

// The list as it is stored: compact, and "selected" only where it is set.
std::u16string FormatTsaList(const std::vector<TsaRecord>& list);
// The stored list for somebody who is going to store another one in its place. An error where that would lose
// something: the registry's own if it cannot be read, ERROR_INVALID_DATA if the value is no text, not a whole list, or
// has an element that is no record.
platform::ErrorCode LoadTsaListForChange(std::vector<TsaRecord>& list);
// Replaces the list in the registry.
platform::ErrorCode StoreTsaList(const std::vector<TsaRecord>& list);

}  // namespace settings
