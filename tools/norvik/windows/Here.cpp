#include "tools/norvik/Command.h"
#include "tools/norvik/Windows.h"

namespace cli {

void NeedWindows() {}

int RunWithWindows(char**) {
    return kFailed;  // nobody asks for it here
}

}  // namespace cli
