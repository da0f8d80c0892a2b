#include "toolkit/cms/HashThread.h"

#include <system_error>

namespace toolkit::cms {

HashThread::HashThread(platform::Hash& hash) : hash_(hash), memory_(kPieces * kPieceSize) {
    try {
        thread_ = std::thread([this] { Run(); });
    } catch (const std::system_error&) {
        // No more threads for this process: slower, not wrong.
    }
}

HashThread::~HashThread() {
    {
        const std::lock_guard lock(mutex_);
        ending_ = true;
    }
    changed_.notify_all();
    if (thread_.joinable()) thread_.join();
}

std::span<std::uint8_t> HashThread::NextBuffer() {
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [this] { return handedOver_ - hashed_ < kPieces; });
    return std::span(memory_).subspan((handedOver_ % kPieces) * kPieceSize, kPieceSize);
}

void HashThread::HandOver(std::size_t size) {
    if (!thread_.joinable()) {
        hash_.Update({memory_.data(), size});
        return;
    }
    {
        const std::lock_guard lock(mutex_);
        sizes_[handedOver_ % kPieces] = size;
        ++handedOver_;
    }
    changed_.notify_all();
}

void HashThread::Run() {
    for (;;) {
        std::size_t piece = 0;
        {
            std::unique_lock lock(mutex_);
            changed_.wait(lock, [this] { return handedOver_ > hashed_ || ending_; });
            if (handedOver_ == hashed_) return;
            piece = hashed_ % kPieces;
        }
        hash_.Update({memory_.data() + piece * kPieceSize, sizes_[piece]});
        {
            const std::lock_guard lock(mutex_);
            ++hashed_;
        }
        changed_.notify_all();
    }
}

}  // namespace toolkit::cms
