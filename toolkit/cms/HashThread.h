#pragma once
// Hashing beside reading and writing: a ring of buffers that one thread fills and another one hashes.

#include <array>
#include <condition_variable>
#include <mutex>
#include <thread>

#include "platform/Hash.h"
#include "platform/Types.h"

namespace toolkit::cms {

class HashThread {
  public:
    static constexpr std::size_t kPieceSize = std::size_t{1} << 20;

    // The hash must outlive this object, and nobody else touches it meanwhile. Without a thread (the host gave none)
    // the pieces are hashed where they are handed over.
    explicit HashThread(platform::Hash& hash);
    ~HashThread();  // joins, after all that was handed over is hashed
    HashThread(const HashThread&) = delete;
    HashThread& operator=(const HashThread&) = delete;

    // A buffer of kPieceSize that is hashed to the end; waits until there is one. Valid to read until the piece that
    // is `pieces` later is asked for.
    std::span<std::uint8_t> NextBuffer();
    // Hands over the first `size` bytes of the buffer asked for last.
    void HandOver(std::size_t size);

  private:
    static constexpr std::size_t kPieces = 4;
    void Run();

    platform::Hash& hash_;
    std::vector<std::uint8_t> memory_;
    std::array<std::size_t, kPieces> sizes_{};
    std::mutex mutex_;
    std::condition_variable changed_;
    std::size_t handedOver_ = 0;  // guarded by mutex_, as the next two
    std::size_t hashed_ = 0;
    bool ending_ = false;
    std::thread thread_;
};

}  // namespace toolkit::cms
