#include "platform/posix/NativeTable.h"

#include <mutex>
#include <string>
#include <unordered_map>

namespace platform::posix {
namespace {

constexpr std::size_t kMaxEntries = 512;
// A certificate of this size is somebody's joke; it is decoded, but not kept.
constexpr std::size_t kMaxKept = 64 * 1024;

class NativeTable {
  public:
    X509Ptr Find(const std::string& key) {
        const std::scoped_lock lock(lock_);
        const auto found = entries_.find(key);
        return found == entries_.end() ? nullptr : Share(found->second.get());
    }
    void Keep(const std::string& key, X509* certificate) {
        const std::scoped_lock lock(lock_);
        if (entries_.size() >= kMaxEntries) entries_.clear();
        entries_.emplace(key, Share(certificate));
    }

  private:
    static X509Ptr Share(X509* certificate) {
        X509_up_ref(certificate);
        return X509Ptr(certificate);
    }
    std::mutex lock_;
    std::unordered_map<std::string, X509Ptr> entries_;
};

X509Ptr Decode(ByteView der) {
    const unsigned char* in = der.data();
    X509Ptr certificate(d2i_X509(nullptr, &in, static_cast<long>(der.size())));
    if (in != der.data() + der.size()) certificate.reset();
    if (!certificate) DrainErrorQueue();
    return certificate;
}

}  // namespace

X509Ptr SharedNative(ByteView der, const Bytes& sha256) {
    // Never destroyed: the crypto library may be gone before the process's static objects are.
    static NativeTable& table = *new NativeTable;
    const std::string key(AsText(sha256));
    if (key.empty()) return Decode(der);
    if (X509Ptr known = table.Find(key)) return known;
    X509Ptr certificate = Decode(der);
    if (certificate && der.size() <= kMaxKept) table.Keep(key, certificate.get());
    return certificate;
}

}  // namespace platform::posix
