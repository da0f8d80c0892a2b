#include "toolkit/ClsBase.h"

#include <algorithm>

namespace toolkit {

void OperationLog::Clear() {
    text_.clear();
    depth_ = 0;
}

void OperationLog::Line(std::string_view text) {
    text_.append(static_cast<std::size_t>(depth_) * 2, ' ').append(text).append("\r\n");
}

void OperationLog::Value(std::string_view name, std::string_view value) {
    // Values come from files and servers: none of them may look like further lines of the log.
    std::string line = std::string(name).append(": ").append(value);
    std::replace_if(
        line.begin(), line.end(), [](char c) { return static_cast<unsigned char>(c) < 0x20 || c == 0x7F; }, ' ');
    Line(line);
}

OperationLog::Context OperationLog::Enter(std::string_view name) {
    Line(std::string(name).append(":"));
    return Context(*this);
}

std::string ClsBase::LastErrorText() const {
    const auto lock = Lock();
    return log_.Text();
}

void ClsBase::SetVerboseLogging(bool verbose) {
    const auto lock = Lock();
    log_.verbose = verbose;
}

bool ClsBase::LastMethodSuccess() const {
    const auto lock = Lock();
    return lastMethodSuccess_;
}

ClsBase::Operation::Operation(const ClsBase& object, std::string_view name) : object_(object), lock_(object.Lock()) {
    object_.log_.Clear();
    object_.log_.Line(std::string(name).append(":"));
}

ClsBase::Operation::~Operation() {
    object_.lastMethodSuccess_ = success_;
}

}  // namespace toolkit
