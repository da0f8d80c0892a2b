#pragma once
// Walking a path such as `signers[i].certificates[0]."1.2.840".name` through a tree.
//
// A member name is bare, up to `.`, `[`, the end or a tab, CR or LF, or stands in double quotes, where a backslash
// takes the next character with it. An index is a number, one of the letters i, j, k (in either case, only the first
// character counts) for a setting of the caller, or `*` or nothing for -1.

#include <string_view>

#include "toolkit/ClsBase.h"
#include "toolkit/JsonDocument.h"

namespace toolkit {

struct PathIndices {
    int i = 0, j = 0, k = 0;
};

// What a walk ends with: the place it leads to, or none; then `faulty` tells whether the log got a reason for it. A
// path that is empty, the delimiter alone, or that ends in a delimiter leads nowhere without being faulty.
struct PathEnd {
    JsonValue* value = nullptr;
    bool faulty = false;
};

PathEnd FindPath(JsonObject& start, std::string_view path, const PathIndices& indices, OperationLog& log);

// Makes what is missing on the way: members at the end of their object and elements at the end of their array, as what
// the rest of the path asks for. The last one is an empty token.
PathEnd MakePath(JsonDocument& document, JsonObject& start, std::string_view path, const PathIndices& indices,
                 OperationLog& log);

// The number at the front of a text, after blanks, with a sign; 0 if there is none, the nearest int if it is too large.
int LeadingInt(std::string_view text);

}  // namespace toolkit
