#pragma once
// The common root of the toolkit's working objects: the lock that an operation holds, the text of what happened during
// the last one, and the switch for its detail. All text in this layer is UTF-8.

#include <mutex>
#include <string>
#include <string_view>
#include <utility>

namespace toolkit {

// What an operation has to tell. Lines are indented by the context they stand in.
class OperationLog {
  public:
    void Clear();
    void Line(std::string_view text);                           // a message, as it stands
    void Value(std::string_view name, std::string_view value);  // "name: value"
    // Opens a named context that ends with the returned object.
    class Context {
      public:
        ~Context() { --log_.depth_; }
        Context(const Context&) = delete;
        Context& operator=(const Context&) = delete;

      private:
        friend class OperationLog;
        explicit Context(OperationLog& log) : log_(log) { ++log_.depth_; }
        OperationLog& log_;
    };
    [[nodiscard]] Context Enter(std::string_view name);
    // Detail is kept only when verbose.
    void Detail(std::string_view name, std::string_view value) {
        if (verbose) Value(name, value);
    }
    [[nodiscard]] const std::string& Text() const { return text_; }
    bool verbose = false;

  private:
    std::string text_;
    int depth_ = 0;
};

class ClsBase {
  public:
    virtual ~ClsBase() = default;
    ClsBase() = default;
    ClsBase(const ClsBase&) = delete;
    ClsBase& operator=(const ClsBase&) = delete;

    [[nodiscard]] std::string LastErrorText() const;
    void SetVerboseLogging(bool verbose);
    [[nodiscard]] bool LastMethodSuccess() const;

  protected:
    // The span of one operation: holds the object's lock, starts its log anew and records how it ended. Starts as
    // failed.
    class Operation {
      public:
        Operation(const ClsBase& object, std::string_view name);
        ~Operation();
        Operation(const Operation&) = delete;
        Operation& operator=(const Operation&) = delete;
        // Notes and hands through the outcome.
        bool Finish(bool success) { return success_ = success; }
        [[nodiscard]] OperationLog& Log() const { return object_.log_; }

      private:
        const ClsBase& object_;
        std::unique_lock<std::recursive_mutex> lock_;
        bool success_ = false;
    };
    // Both objects' locks, in an order that two threads cannot turn against each other.
    [[nodiscard]] static auto LockBoth(const ClsBase& one, const ClsBase& other) {
        std::unique_lock first(one.mutex_, std::defer_lock);
        std::unique_lock second(other.mutex_, std::defer_lock);
        if (&one == &other) {
            first.lock();
        } else {
            std::lock(first, second);
        }
        return std::pair(std::move(first), std::move(second));
    }
    // Holds the lock alone: for a property, which does not touch the log.
    [[nodiscard]] std::unique_lock<std::recursive_mutex> Lock() const { return std::unique_lock(mutex_); }

  private:
    mutable std::recursive_mutex mutex_;
    mutable OperationLog log_;
    mutable bool lastMethodSuccess_ = false;
};

}  // namespace toolkit
