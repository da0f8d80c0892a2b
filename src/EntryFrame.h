#pragma once
// The scope that each exported function opens: it holds the application for the length of the call and lets no
// exception out. What a thrown exception turns into is decided by the kind of failure that the function names.
//
//   return EntryFrame::Run(JsonArrayFailure{callback, context}, [&] { return certificates::Report(request, ...); });

#include <cstdint>
#include <exception>
#include <string_view>
#include <type_traits>
#include <utility>

#include "norvik/norvik.h"
#include "src/Norvik.h"
#include "units/Helpers.h"

// One object (an array of one, on one line if compact) with "Error" and "ErrorMessage" goes to the callback; the result
// is false.
struct JsonFailure {
    NorvikJsonCallback callback;
    std::uint64_t context;
    bool operator()(std::u16string_view what) const;
};
struct JsonArrayFailure {
    NorvikJsonCallback callback;
    std::uint64_t context;
    bool compact = true;
    bool operator()(std::u16string_view what) const;
};
// The record callbacks get error and message. The result is the one that the function has for a failure.
struct RecordFailure {
    NorvikRecordCallback callback;
    std::uint64_t context;
    bool result = false;
    bool operator()(std::u16string_view what) const;
};
struct RecordFlagFailure {
    NorvikRecordFlagCallback callback;
    std::uint64_t context;
    bool result = false;
    bool operator()(std::u16string_view what) const;
};
struct SignInfoFailure {
    NorvikSignInfoCallback callback;
    std::uint64_t context;
    void operator()(std::u16string_view what) const;
};
// A box with the title "Грешка" for functions without a callback; the int result is 1, which does not tell it from
// success.
struct MessageBoxFailure {
    int operator()(std::u16string_view what) const;
};
// The log alone; the result is false.
struct LogFailure {
    bool operator()(std::u16string_view what) const;
};

class EntryFrame {
  public:
    // Runs the operation and hands through its result, or the failure's if it threw a std::exception. Where the
    // operation's result is of another type than the failure's, that of the operation rules (a void operation drops
    // both).
    template <typename Failure, typename Operation>
    static auto Run(const Failure& failure, Operation&& operation) -> std::invoke_result_t<Operation> {
        const auto application = CNorvikApp::Current();
        try {
            return std::forward<Operation>(operation)();
        } catch (const std::exception& error) {
            const auto what = units::WideFromWhat(error.what());
            LogError(what);
            if constexpr (std::is_void_v<std::invoke_result_t<Operation>>) {
                failure(what);
            } else {
                return failure(what);
            }
        }
    }
};
