#include "platform/posix/DecodedTable.h"

#include <mutex>
#include <string_view>
#include <unordered_map>

namespace platform::posix {
namespace {

// Some 700 KiB. The authorities of the signers at hand are few; signers come and go.
constexpr std::size_t kMaxEntries = 96;
// A certificate of this size is somebody's joke; it is decoded, but not kept.
constexpr std::size_t kMaxKept = 64 * 1024;
constexpr std::size_t kMaxCrlEntries = 16;
constexpr std::size_t kMaxCrlBytes = std::size_t{2} << 20;

struct Table {
    std::mutex lock;
    // The keys are views into the values.
    std::unordered_map<std::string_view, std::shared_ptr<const DecodedCertificate>> entries;
    std::unordered_map<std::string_view, std::shared_ptr<const CrlContext::Impl>> crls;
    std::size_t crlBytes = 0;
};

// Never destroyed: the crypto library may be gone before the process's static objects are.
Table& TheTable() {
    static Table& table = *new Table;
    return table;
}

}  // namespace

std::shared_ptr<const DecodedCertificate> FindDecoded(ByteView der) {
    if (der.size() > kMaxKept) return nullptr;
    Table& table = TheTable();
    const std::scoped_lock lock(table.lock);
    const auto found = table.entries.find(AsText(der));
    return found == table.entries.end() ? nullptr : found->second;
}

void KeepDecoded(const std::shared_ptr<const DecodedCertificate>& certificate) {
    if (certificate->encoded.size() > kMaxKept) return;
    Table& table = TheTable();
    const std::scoped_lock lock(table.lock);
    if (table.entries.size() >= kMaxEntries) table.entries.clear();
    table.entries.try_emplace(AsText(certificate->encoded), certificate);
}

std::shared_ptr<const CrlContext::Impl> FindDecodedCrl(ByteView der) {
    if (der.size() > kMaxCrlBytes) return nullptr;
    Table& table = TheTable();
    const std::scoped_lock lock(table.lock);
    const auto found = table.crls.find(AsText(der));
    return found == table.crls.end() ? nullptr : found->second;
}

void KeepDecodedCrl(const std::shared_ptr<const CrlContext::Impl>& crl) {
    const std::size_t size = crl->encoded.size();
    if (size > kMaxCrlBytes) return;
    Table& table = TheTable();
    const std::scoped_lock lock(table.lock);
    if (table.crls.size() >= kMaxCrlEntries || table.crlBytes + size > kMaxCrlBytes) {
        table.crls.clear();
        table.crlBytes = 0;
    }
    if (table.crls.try_emplace(AsText(crl->encoded), crl).second) table.crlBytes += size;
}

}  // namespace platform::posix
