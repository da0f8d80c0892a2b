#pragma once
// The settings of one HTTP client, and its POST.

#include <optional>
#include <string>
#include <string_view>

#include "platform/Http.h"
#include "toolkit/ClsBase.h"

namespace toolkit {

class ClsHttp : public ClsBase {
  public:
    void SetBasicAuth(bool on);
    void SetLogin(std::string_view login);
    void SetPassword(platform::Secret password);
    // For the whole exchange; at least one second.
    void SetTimeout(std::chrono::seconds timeout);

    // Posts the body. An answer of any status is an answer; empty when there was none, with the reason in `log`.
    std::optional<platform::HttpResponse> Post(std::string_view url, platform::ByteView body,
                                               std::string_view contentType, std::string_view accept,
                                               OperationLog& log) const;

  private:
    bool basicAuth_ = false;
    std::string login_;
    platform::Secret password_;
    std::chrono::seconds timeout_{60};
};

}  // namespace toolkit
