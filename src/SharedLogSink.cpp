#include "src/SharedLogSink.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <utility>

namespace {

void CloseDescriptor(int& descriptor) {
    if (descriptor >= 0) close(descriptor);
    descriptor = -1;
}

int OpenForAppend(const std::filesystem::path& path) {
    return open(path.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600);
}

// Holds the lock between processes for one line.
class FileLock {
  public:
    explicit FileLock(int descriptor) : descriptor_(descriptor) {
        while (flock(descriptor_, LOCK_EX) != 0 && errno == EINTR) {
        }
    }
    ~FileLock() { flock(descriptor_, LOCK_UN); }
    FileLock(const FileLock&) = delete;
    FileLock& operator=(const FileLock&) = delete;

  private:
    int descriptor_;
};

}  // namespace

SharedLogSink::SharedLogSink(std::filesystem::path file, std::size_t maximumSize, int keptFiles)
    : file_(std::move(file)), maximumSize_(maximumSize), keptFiles_(keptFiles) {}

SharedLogSink::~SharedLogSink() {
    CloseDescriptor(log_);
    CloseDescriptor(lock_);
}

void SharedLogSink::sink_it_(const spdlog::details::log_msg& message) {
    spdlog::memory_buf_t line;
    formatter_->format(message, line);
    Append({line.data(), line.size()});
}

void SharedLogSink::Append(std::string_view line) {
    if (!OpenLock()) return;
    const FileLock lock(lock_);
    if (!OpenCurrent()) return;
    struct stat state {};
    if (fstat(log_, &state) == 0 && state.st_size > 0 &&
        static_cast<std::size_t>(state.st_size) + line.size() > maximumSize_)
        Rotate();
    while (log_ >= 0 && !line.empty()) {
        const ssize_t written = write(log_, line.data(), line.size());
        if (written < 0 && errno == EINTR) continue;
        if (written <= 0) return;
        line.remove_prefix(static_cast<std::size_t>(written));
    }
}

// The lock is on the log's folder, so that it needs no file of its own. It belongs to what was opened, which a forked
// child shares with its parent: a child opens its own.
bool SharedLogSink::OpenLock() {
    if (owner_ != getpid()) {
        CloseDescriptor(lock_);
        CloseDescriptor(log_);
        owner_ = getpid();
    }
    if (lock_ < 0) lock_ = open(file_.parent_path().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    return lock_ >= 0;
}

// Another process may have rotated the file since the last line.
bool SharedLogSink::OpenCurrent() {
    struct stat mine {
    }, named{};
    const bool current = log_ >= 0 && fstat(log_, &mine) == 0 && stat(file_.c_str(), &named) == 0 &&
                         mine.st_dev == named.st_dev && mine.st_ino == named.st_ino;
    if (current) return true;
    CloseDescriptor(log_);
    log_ = OpenForAppend(file_);
    return log_ >= 0;
}

void SharedLogSink::Rotate() {
    for (int number = keptFiles_; number > 0; --number)
        rename(Numbered(number - 1).c_str(), Numbered(number).c_str());
    CloseDescriptor(log_);
    log_ = OpenForAppend(file_);
}

std::filesystem::path SharedLogSink::Numbered(int number) const {
    if (number == 0) return file_;
    auto path = file_;
    return path.replace_filename(file_.stem().string() + "." + std::to_string(number) + file_.extension().string());
}
