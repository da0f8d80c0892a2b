#pragma once
// Which certificates of a source are offered or reported: those valid now that the lists let through.

#include <functional>
#include <string>
#include <string_view>
#include <unordered_set>

#include "crypt/CryptCertificate.h"
#include "crypt/CryptStore.h"
#include "toolkit/CkJsonObjectW.h"

namespace certificates {

// Texts that are compared as they stand but for letter case: blanks and colons count.
class UpperCaseList {
  public:
    void Add(std::u16string text);
    // The text is upper case already.
    [[nodiscard]] bool Contains(const std::u16string& text) const { return entries_.contains(text); }
    [[nodiscard]] bool Empty() const { return entries_.empty(); }

  private:
    std::unordered_set<std::u16string> entries_;
};

// Excluding beats including; the two include lists are alternatives. An empty entry stands for certificates without an
// authority key identifier.
struct CertificateFilter {
    UpperCaseList thumbprintExclude, authIdExclude, thumbprintInclude, authIdInclude;

    // By the lists alone; time is the caller's business.
    [[nodiscard]] bool LetsThrough(tessaly::CryptCertificate& certificate) const;
};

// The members "ThumbprintExclude", "AuthIdExclude", "ThumbprintInclude" and "AuthIdInclude". One that is absent or no
// array is an empty list.
CertificateFilter ReadFilter(toolkit::CkJsonObjectW& request);

// Calls `take` for each certificate that is valid now and let through, in the source's order.
void ForEachFiltered(const tessaly::CryptStore& source, const CertificateFilter& filter,
                     const std::function<void(tessaly::CryptCertificate)>& take);

// Copies what is valid now and let through, in the source's order; of two certificates with the same issuer and serial
// number the one whose validity starts later stays.
void CopyFiltered(const tessaly::CryptStore& source, const CertificateFilter& filter, tessaly::CryptStore& target);

}  // namespace certificates
