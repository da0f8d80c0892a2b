#pragma once
// EXPECT_FAILS(call, code): the call answers nothing (false, null, empty) and leaves this code as last error.

#include <gtest/gtest.h>

#include "platform/Error.h"

namespace tests {

template <typename Result>
platform::ErrorCode FailureOf(const Result& result) {
    if constexpr (requires { result.empty(); }) {
        return result.empty() ? platform::GetLastError() : platform::ERROR_SUCCESS;
    } else {
        return result ? platform::ERROR_SUCCESS : platform::GetLastError();
    }
}

}  // namespace tests

#define EXPECT_FAILS(call, code) \
    EXPECT_EQ((platform::SetLastError(platform::ERROR_SUCCESS), tests::FailureOf(call)), code)
