#include "platform/formats/Spool.h"

#include <system_error>
#include <utility>

#include "platform/System.h"

namespace platform {
namespace {

constexpr std::size_t kMostInMemory = std::size_t{16} << 20;

class OwnedBytes final : public ByteSource {
  public:
    explicit OwnedBytes(Bytes bytes) : bytes_(std::move(bytes)), source_(bytes_) {}
    [[nodiscard]] std::uint64_t Size() const override { return bytes_.size(); }
    std::optional<ByteView> View(std::uint64_t offset, std::size_t least, std::uint64_t most) override {
        return source_.View(offset, least, most);
    }

  private:
    Bytes bytes_;
    MemorySource source_;
};

}  // namespace

Spool::~Spool() = default;

bool Spool::Append(ByteView bytes) {
    if (!file_ && bytes.size() > kMostInMemory - memory_.size() && !MoveToFile()) return false;
    if (file_) return file_->Write(bytes);
    memory_.insert(memory_.end(), bytes.begin(), bytes.end());
    return true;
}

std::unique_ptr<ByteSource> Spool::Finish() {
    if (!file_) return std::make_unique<OwnedBytes>(std::exchange(memory_, {}));
    const bool written = file_->Commit();
    file_.reset();
    if (!written) return nullptr;
    auto input = InputFile::Open(path_);
    std::error_code ignored;
    std::filesystem::remove(path_, ignored);
    return input ? std::make_unique<FileSource>(std::move(*input)) : nullptr;
}

bool Spool::MoveToFile() {
    const auto folder = GetTempPathW();
    if (folder.empty()) return false;
    path_ = folder / ("message-" + std::filesystem::path(UuidCreate()).string());
    file_ = OutputFile::Create(path_, 0600);
    return file_ && file_->Write(std::exchange(memory_, {}));
}

}  // namespace platform
