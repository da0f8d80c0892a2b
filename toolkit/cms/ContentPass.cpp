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

// A thread is not worth starting for a single piece.
bool PassWhole(const InputFile& input, Hash& hash, const ContentSink& sink, OperationLog& log) {
    Bytes content(static_cast<std::size_t>(input.Size()));
    if (!ReadPiece(input, 0, content, log)) return false;
    hash.Update(content);
    return !sink || sink(content);
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
        if (sink && !sink(piece)) return false;
        done += size;
        if (progress) progress(done, total);
    }
    return true;
}

}  // namespace

std::optional<Bytes> PassContent(const InputFile& input, platform::HashAlgorithm algorithm, const ContentSink& sink,
                                 const ProgressHandler& progress, OperationLog& log) {
    Hash hash(algorithm);
    if (!hash) {
        LogPlatformFailure(log, "The host has no such hash algorithm.");
        return std::nullopt;
    }
    const bool passed = input.Size() <= HashThread::kPieceSize ? PassWhole(input, hash, sink, log)
                                                               : PassInPieces(input, hash, sink, progress, log);
    if (!passed || !EndsWhereItDid(input, log)) return std::nullopt;
    if (progress && input.Size() <= HashThread::kPieceSize) progress(input.Size(), input.Size());
    return hash.Finish();
}

}  // namespace toolkit::cms
