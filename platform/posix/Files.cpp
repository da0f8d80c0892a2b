#include "platform/Files.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <limits>
#include <new>
#include <utility>

#include "platform/System.h"

namespace platform {
namespace {

bool FailWith(ErrorCode code) {
    SetLastError(code);
    return false;
}

// errno of a failed write; what has no code of its own is a fault of writing.
bool FailWriting(int error) {
    const ErrorCode code = error == EIO ? ERROR_WRITE_FAULT : ErrorFromErrno(error);
    return FailWith(code == ERROR_GEN_FAILURE ? ERROR_WRITE_FAULT : code);
}

constexpr std::uint64_t kLargestOffset = std::numeric_limits<off_t>::max();

bool PositionedWrite(int descriptor, std::uint64_t offset, ByteView bytes) {
    if (offset > kLargestOffset || bytes.size() > kLargestOffset - offset) return FailWith(ERROR_FILE_TOO_LARGE);
    while (!bytes.empty()) {
        const ssize_t written = pwrite(descriptor, bytes.data(), bytes.size(), static_cast<off_t>(offset));
        if (written < 0 && errno == EINTR) continue;
        if (written < 0) return FailWriting(errno);
        if (written == 0) return FailWith(ERROR_WRITE_FAULT);
        offset += static_cast<std::uint64_t>(written);
        bytes = bytes.subspan(static_cast<std::size_t>(written));
    }
    return true;
}

std::filesystem::path FolderOf(const std::filesystem::path& target) {
    const auto folder = target.parent_path();
    return folder.empty() ? "." : folder;
}

// A hidden name that does not depend on the target's, which may already be as long as names can be.
std::filesystem::path HiddenName(const std::filesystem::path& folder) {
    std::array<std::uint8_t, 8> random{};
    BCryptGenRandom(random);  // a clash is noticed when the name is taken
    std::string name = ".norvik-";
    for (const std::uint8_t byte : random) {
        std::array<char, 3> digits;
        std::snprintf(digits.data(), digits.size(), "%02x", byte);
        name += digits.data();
    }
    return folder / (name + ".tmp");
}

std::array<char, 40> DescriptorPath(int descriptor) {
    std::array<char, 40> path;
    std::snprintf(path.data(), path.size(), "/proc/self/fd/%d", descriptor);
    return path;
}

enum class Place { free, taken, refused };

Place Refuse(ErrorCode code) {
    SetLastError(code);
    return Place::refused;
}

// /dev/stdout and its like: links that lead to what a process has open. They belong to the machine, and a file in their
// place would be found by every program.
bool NamesADescriptor(const std::filesystem::path& link) {
    std::error_code error;
    return std::filesystem::read_symlink(link, error).native().starts_with("/proc/");
}

// What stands at the target already decides whether a file may be put there.
Place LookAt(const std::filesystem::path& target) {
    struct stat status {};
    if (lstat(target.c_str(), &status) != 0) return errno == ENOENT ? Place::free : Refuse(ErrorFromErrno(errno));
    const bool isLink = S_ISLNK(status.st_mode);
    if (isLink && NamesADescriptor(target)) return Refuse(ERROR_INVALID_DATA);
    if (isLink && stat(target.c_str(), &status) != 0) return Place::taken;  // a link to nothing
    if (S_ISDIR(status.st_mode)) return Refuse(ERROR_DIRECTORY);
    if (!S_ISREG(status.st_mode)) return Refuse(ERROR_INVALID_DATA);
    if (isLink || faccessat(AT_FDCWD, target.c_str(), W_OK, AT_EACCESS) == 0) return Place::taken;
    return Refuse(ErrorFromErrno(errno));
}

int OpenNameless(const std::filesystem::path& folder, unsigned mode) {
    const int descriptor = open(folder.c_str(), O_TMPFILE | O_RDWR | O_CLOEXEC, mode);
    if (descriptor < 0) return -1;
    // The name is given through /proc, which a jail may not have.
    if (access(DescriptorPath(descriptor).data(), F_OK) == 0) return descriptor;
    close(descriptor);
    return -1;
}

constexpr int kNameAttempts = 16;

bool LinkAs(int descriptor, const std::filesystem::path& name) {
    return linkat(AT_FDCWD, DescriptorPath(descriptor).data(), AT_FDCWD, name.c_str(), AT_SYMLINK_FOLLOW) == 0;
}

}  // namespace

std::optional<InputFile> InputFile::Open(const std::filesystem::path& path) {
    // O_NONBLOCK: a FIFO without a writer would hang the caller; for regular files it means nothing.
    const int descriptor = open(path.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
    if (descriptor < 0) {
        // A socket or a device without a driver.
        SetLastError(errno == ENXIO || errno == ENODEV ? ERROR_INVALID_DATA : ErrorFromErrno(errno));
        return std::nullopt;
    }
    InputFile file(descriptor, 0);
    struct stat status {};
    if (fstat(descriptor, &status) != 0) {
        SetLastError(ErrorFromErrno(errno));
        return std::nullopt;
    }
    if (!S_ISREG(status.st_mode)) {
        SetLastError(S_ISDIR(status.st_mode) ? ERROR_DIRECTORY : ERROR_INVALID_DATA);
        return std::nullopt;
    }
    file.size_ = static_cast<std::uint64_t>(status.st_size);
    return file;
}

InputFile::InputFile(InputFile&& other) noexcept
    : descriptor_(std::exchange(other.descriptor_, -1)), size_(std::exchange(other.size_, 0)) {}

InputFile& InputFile::operator=(InputFile&& other) noexcept {
    std::swap(descriptor_, other.descriptor_);
    std::swap(size_, other.size_);
    return *this;
}

InputFile::~InputFile() {
    if (descriptor_ >= 0) close(descriptor_);
}

std::optional<std::size_t> InputFile::ReadAt(std::uint64_t offset, std::span<std::uint8_t> buffer) const {
    std::size_t done = 0;
    while (done < buffer.size() && offset <= kLargestOffset - done) {
        const ssize_t got =
            pread(descriptor_, buffer.data() + done, buffer.size() - done, static_cast<off_t>(offset + done));
        if (got < 0 && errno == EINTR) continue;
        if (got < 0) {
            SetLastError(ERROR_READ_FAULT);
            return std::nullopt;
        }
        if (got == 0) break;
        done += static_cast<std::size_t>(got);
    }
    return done;
}

bool InputFile::ReadExactly(std::uint64_t offset, std::span<std::uint8_t> buffer) const {
    const auto got = ReadAt(offset, buffer);
    return got && (*got == buffer.size() || FailWith(ERROR_HANDLE_EOF));
}

std::optional<OutputFile> OutputFile::Create(const std::filesystem::path& target, unsigned mode) {
    if (target.filename().empty() || target.filename() == "." || target.filename() == "..") {
        SetLastError(ERROR_DIRECTORY);
        return std::nullopt;
    }
    const Place place = LookAt(target);
    if (place == Place::refused) return std::nullopt;
    const bool replaces = place == Place::taken;
    const auto folder = FolderOf(target);
    if (const int nameless = OpenNameless(folder, mode); nameless >= 0)
        return OutputFile(nameless, mode, replaces, target, {});
    for (int attempt = 0; attempt < kNameAttempts; ++attempt) {
        auto name = HiddenName(folder);
        Leftover leftover(name);
        const int descriptor = open(name.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, mode);
        if (descriptor >= 0) {
            OutputFile file(descriptor, mode, replaces, target, std::move(name));
            file.leftover_ = std::move(leftover);
            return file;
        }
        if (errno != EEXIST) break;
    }
    SetLastError(errno == ENOENT ? ERROR_PATH_NOT_FOUND : ErrorFromErrno(errno));
    return std::nullopt;
}

OutputFile::OutputFile(int descriptor, unsigned mode, bool replaces, std::filesystem::path target,
                       std::filesystem::path temporary)
    : descriptor_(descriptor),
      mode_(mode),
      replaces_(replaces),
      target_(std::move(target)),
      temporary_(std::move(temporary)) {}

OutputFile::OutputFile(OutputFile&& other) noexcept
    : descriptor_(std::exchange(other.descriptor_, -1)),
      position_(other.position_),
      mode_(other.mode_),
      replaces_(other.replaces_),
      target_(std::move(other.target_)),
      temporary_(std::move(other.temporary_)),
      leftover_(std::move(other.leftover_)) {}

OutputFile& OutputFile::operator=(OutputFile&& other) noexcept {
    if (this == &other) return *this;
    Discard();
    descriptor_ = std::exchange(other.descriptor_, -1);
    position_ = other.position_;
    mode_ = other.mode_;
    replaces_ = other.replaces_;
    target_ = std::move(other.target_);
    temporary_ = std::move(other.temporary_);
    leftover_ = std::move(other.leftover_);
    return *this;
}

OutputFile::~OutputFile() {
    Discard();
}

void OutputFile::Discard() noexcept {
    if (descriptor_ < 0) return;
    if (!temporary_.empty()) unlink(temporary_.c_str());
    leftover_ = Leftover();
    close(std::exchange(descriptor_, -1));
}

bool OutputFile::Write(ByteView bytes) {
    if (!PositionedWrite(descriptor_, position_, bytes)) return false;
    position_ += bytes.size();
    return true;
}

bool OutputFile::Write(std::span<const ByteView> parts) {
    std::vector<iovec> vector;
    std::size_t total = 0;
    for (const ByteView part : parts) {
        vector.push_back({const_cast<std::uint8_t*>(part.data()), part.size()});
        total += part.size();
    }
    ssize_t written = 0;
    if (position_ <= kLargestOffset && vector.size() <= IOV_MAX)
        written = pwritev(descriptor_, vector.data(), static_cast<int>(vector.size()), static_cast<off_t>(position_));
    if (written > 0 && static_cast<std::size_t>(written) == total) {
        position_ += total;
        return true;
    }
    // Interrupted, a full disk: part by part it goes on, or tells what is wrong.
    return std::ranges::all_of(parts, [this](ByteView part) { return Write(part); });
}

bool OutputFile::WriteAt(std::uint64_t offset, ByteView bytes) {
    return PositionedWrite(descriptor_, offset, bytes);
}

bool OutputFile::Commit() {
    if (descriptor_ < 0) return FailWith(ERROR_INVALID_HANDLE);
    if ((mode_ & 077) == 0 && fdatasync(descriptor_) != 0) return FailWriting(errno);
    // Network file systems tell only at closing that a write failed; then the name must not be given.
    if (const int copy = dup(descriptor_); copy >= 0 && close(copy) != 0 && errno != EINTR) return FailWriting(errno);
    if (temporary_.empty() && (replaces_ || !LinkAs(descriptor_, target_))) {
        // A link never replaces: take a hidden name first, then rename over what stands there.
        int error = replaces_ ? EEXIST : errno;
        for (int attempt = 0; error == EEXIST && attempt < kNameAttempts; ++attempt) {
            auto name = HiddenName(FolderOf(target_));
            leftover_ = Leftover(name);
            error = LinkAs(descriptor_, name) ? 0 : errno;
            if (error == 0) temporary_ = std::move(name);
        }
        if (error != 0) return FailWriting(error);
    }
    if (!temporary_.empty()) {
        if (rename(temporary_.c_str(), target_.c_str()) != 0) return FailWriting(errno);
        temporary_.clear();
        leftover_ = Leftover();
    }
    close(std::exchange(descriptor_, -1));
    return true;
}

std::optional<Bytes> ReadWholeFile(const std::filesystem::path& path, std::uint64_t limit) try {
    const auto file = InputFile::Open(path);
    if (!file) return std::nullopt;
    if (file->Size() > limit) {
        SetLastError(ERROR_FILE_INVALID);
        return std::nullopt;
    }
    Bytes bytes(file->Size());
    const auto got = file->ReadAt(0, bytes);
    if (!got) return std::nullopt;
    bytes.resize(*got);
    return bytes;
} catch (const std::exception&) {  // more than fits in memory
    SetLastError(ERROR_NOT_ENOUGH_MEMORY);
    return std::nullopt;
}

bool WriteWholeFile(const std::filesystem::path& path, ByteView bytes, unsigned mode) {
    auto file = OutputFile::Create(path, mode);
    return file && file->Write(bytes) && file->Commit();
}

}  // namespace platform
