#pragma once
// What servers answered about certificates, kept on disk: CRLs, OCSP answers and issuers' certificates. Files of the
// user's own, in $XDG_CACHE_HOME/norvik/revocation, each as it came from the network. Nothing in here is believed for
// lying here: whoever reads judges anew.

#include <filesystem>
#include <optional>
#include <string_view>

#include "platform/Stores.h"

namespace platform::posix {

// The folder is made when the first answer is kept, for its owner alone. Where that cannot be, or somebody else could
// read or write it, nothing is kept and nothing found.
class AnswerCache {
  public:
    enum class Kind { crl, ocsp, issuer };
    struct Kept {
        Bytes bytes;
        bool old = false;  // for a week nobody has asked whether there is a newer one
    };
    [[nodiscard]] std::optional<Kept> Find(Kind kind, std::string_view key) const;
    // A list of some megabytes is decoded once for as long as the file stays the same. One that does not decode is
    // dropped.
    struct KeptCrl {
        CrlContext crl;
        bool old = false;
    };
    [[nodiscard]] std::optional<KeptCrl> FindCrl(std::string_view url) const;

    // Whole or not at all, whatever stops the process. The oldest files make room: 128 MiB or 2048 files together.
    void Keep(Kind kind, std::string_view key, ByteView bytes) const;
    void Drop(Kind kind, std::string_view key) const;

  private:
    [[nodiscard]] bool Open() const;
    [[nodiscard]] std::filesystem::path FileOf(Kind kind, std::string_view key) const;
    void MakeRoom() const;

    mutable std::filesystem::path folder_;  // empty: not open
};

}  // namespace platform::posix
