#pragma once
// A rotating log file that several processes write at once: every line is appended whole under a lock, and a process
// whose file was rotated away by another goes on in the new one.

#include <spdlog/sinks/base_sink.h>
#include <sys/types.h>

#include <cstddef>
#include <filesystem>
#include <mutex>

class SharedLogSink : public spdlog::sinks::base_sink<std::mutex> {
  public:
    // Keeps `file` and up to `keptFiles` older ones named with a number before the extension, the lowest being the
    // newest.
    SharedLogSink(std::filesystem::path file, std::size_t maximumSize, int keptFiles);
    ~SharedLogSink() override;

  protected:
    // Never throws: what cannot be written is lost, and the operation that wrote it goes on.
    void sink_it_(const spdlog::details::log_msg& message) override;
    void flush_() override {}

  private:
    void Append(std::string_view line);
    bool OpenLock();
    bool OpenCurrent();
    void Rotate();
    [[nodiscard]] std::filesystem::path Numbered(int number) const;

    std::filesystem::path file_;
    std::size_t maximumSize_;
    int keptFiles_;
    int lock_ = -1;
    int log_ = -1;
    pid_t owner_ = 0;
};
