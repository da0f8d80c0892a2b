#pragma once
// One certificate out of a file or a store, picked by a person or taken because it is the only one.

#include <cstdint>

#include "norvik/norvik.h"

namespace certificates {

// The four texts of a choice, each with room for 300 characters.
struct ChoiceBuffers {
    char16_t* commonName = nullptr;
    char16_t* thumbprint = nullptr;
    char16_t* notBefore = nullptr;
    char16_t* notAfter = nullptr;
    [[nodiscard]] bool Complete() const {
        return commonName != nullptr && thumbprint != nullptr && notBefore != nullptr && notAfter != nullptr;
    }
};

// All of them throw as Gather does, and ui::Unavailable where nobody can be asked.

// The record of the choice, or an object with "Error" and "ErrorMessage", goes to the callback, over several lines; no
// call where nothing was chosen. True if the choice was reported.
bool SelectByJson(const char16_t* request, NorvikJsonCallback callback, std::uint64_t context);

// From the store "MY". Where nothing was chosen the buffers stay as they are.
bool SelectIntoBuffers(const ChoiceBuffers& buffers);
// From a file: -1 for a null pointer or a blank name, 1 for a choice, else 0.
int SelectFromFileIntoBuffers(const char16_t* file, const ChoiceBuffers& buffers, bool* flag, bool showDialogIfOne);

// With the dates as the record has them. True if the choice was reported.
bool SelectFromStore(const char16_t* store, NorvikRecordFlagCallback callback, std::uint64_t context);
bool SelectFromFile(const char16_t* file, bool showDialogIfOne, NorvikRecordFlagCallback callback,
                    std::uint64_t context);

}  // namespace certificates
