#pragma once

#include <string_view>

namespace results {

// Whether a file of this name is not to be opened, because desktops run such files. The end of the name (its last four
// characters, without the first of them if that is no dot) is looked for anywhere in a list of extensions, in the
// letter case that it has: ".as" counts, for ".asp" contains it, and ".EXE" does not.
bool HasUnsafeExtension(std::u16string_view name);

}  // namespace results
