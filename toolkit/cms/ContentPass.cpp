#include "toolkit/cms/ContentPass.h"

#include <algorithm>

#include "toolkit/cms/HashThread.h"
#include "toolkit/cms/PlatformFailure.h"

namespace toolkit::cms {

using platform::Bytes;
using platform::Hash;
using platform::InputFile;

namespace {

bool ReadPiece(const InputFile& input, std::uint64_t offset, std::span<std::uint8_t> piece, OperationLog& log) {
    if (input.ReadExactly(offset, piece)) return true;
    const bool shrunk = platform::GetLastError() == platform::ERROR_HANDLE_EOF;
    LogPlatformFailure(log,
                       shrunk ? "The input file became shorter while it was read." : "Failed to read the input file.");
    return false;
}

bool EndsWhereItDid(const InputFile& input, OperationLog& log) {
    std::uint8_t more = 0;
    const auto read = input.ReadAt(input.Size(), {&more, 1});
    if (!read) {
        LogPlatformFailure(log, "Failed to read the input file.");
        return false;
    }
    if (*read > 0) log.Line("The input file became longer while it was read.");
    return *read == 0;
}

// Alone, reading costs so little beside hashing that a second thread gains nothing (measured); a buffer that stays in
// the processor's cache does.
constexpr std::size_t kReadSize = std::size_t{256} << 10;

bool PassAlone(const InputFile& input, Hash& hash, const ProgressHandler& progress, OperationLog& log) {
    const std::uint64_t total = input.Size();
    Bytes buffer(static_cast<std::size_t>(std::min<std::uint64_t>(kReadSize, total)));
    for (std::uint64_t done = 0; done < total;) {
        const auto size = static_cast<std::size_t>(std::min<std::uint64_t>(buffer.size(), total - done));
        const auto piece = std::span(buffer).first(size);
        if (!ReadPiece(input, done, piece, log)) return false;
        hash.Update(piece);
        done += size;
        if (progress) progress(done, total);
    }
    return true;
}

// A thread is not worth starting for a single piece.
bool PassWhole(const InputFile& input, Hash& hash, const ContentSink& sink, const ProgressHandler& progress,
               OperationLog& log) {
    Bytes content(static_cast<std::size_t>(input.Size()));
    if (!ReadPiece(input, 0, content, log)) return false;
    hash.Update(content);
    if (!sink(content)) return false;
    if (progress) progress(content.size(), content.size());
    return true;
}

bool PassInPieces(const InputFile& input, Hash& hash, const ContentSink& sink, const ProgressHandler& progress,
                  OperationLog& log) {
    HashThread hashing(hash);
    const std::uint64_t total = input.Size();
    for (std::uint64_t done = 0; done < total;) {
        const auto size = static_cast<std::size_t>(std::min<std::uint64_t>(HashThread::kPieceSize, total - done));
        const auto piece = hashing.NextBuffer().first(size);
        if (!ReadPiece(input, done, piece, log)) return false;
        hashing.HandOver(size);
        if (!sink(piece)) return false;
        done += size;
        if (progress) progress(done, total);
    }
    return true;
}

bool Pass(const InputFile& input, Hash& hash, const ContentSink& sink, const ProgressHandler& progress,
          OperationLog& log) {
    if (!sink) return PassAlone(input, hash, progress, log);
    if (input.Size() <= HashThread::kPieceSize) return PassWhole(input, hash, sink, progress, log);
    return PassInPieces(input, hash, sink, progress, log);
}

}  // namespace

std::optional<Bytes> PassContent(const InputFile& input, platform::HashAlgorithm algorithm, const ContentSink& sink,
                                 const ProgressHandler& progress, OperationLog& log) {
    Hash hash(algorithm);
    if (!hash) {
        LogPlatformFailure(log, "The host has no such hash algorithm.");
        return std::nullopt;
    }
    if (!Pass(input, hash, sink, progress, log) || !EndsWhereItDid(input, log)) return std::nullopt;
    return hash.Finish();
}

}  // namespace toolkit::cms
