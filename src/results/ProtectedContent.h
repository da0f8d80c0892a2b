#pragma once
// The file that a signature protects: the data file of a detached one; of an attached one what is taken out of it.

#include <filesystem>
#include <functional>

namespace results {

class ProtectedContent {
  public:
    using Progress = std::function<void(std::uint64_t done, std::uint64_t total)>;

    // A signature counts as detached if its path holds ".p7s", in any letter case, wherever that is; what it signs lies
    // at the path up to there. Where the path ends with it, who judged the file knows better: the data file that was
    // named is the content, and with none the content is inside, whatever the name says. Any other content will lie in
    // the work folder, under the signature's name less its last extension.
    ProtectedContent(const std::filesystem::path& signFile, const std::filesystem::path& dataFile,
                     const std::filesystem::path& workFolder);

    [[nodiscard]] bool Detached() const { return detached_; }
    // With a folder, unless there is no work folder.
    [[nodiscard]] const std::filesystem::path& Path() const { return path_; }

    // Takes the content of an attached signature out, for the user's eyes alone. False, with the reason in the log and
    // nothing under Path(), if it cannot be written or any signature of the file does not hold.
    bool Extract(const Progress& progress);
    // Whether Path() is what the signature protects: the data file, or what Extract took out.
    [[nodiscard]] bool Available() const { return detached_ || extracted_; }

    // Writes the content to another place, over what stands there unless that is the signature or the data file: from
    // the signature itself, verified again, or from the data file. False: the log has the reason, and what stood there
    // still does.
    [[nodiscard]] bool SaveTo(const std::filesystem::path& target, const Progress& progress) const;

  private:
    std::filesystem::path signFile_, path_;
    bool detached_ = false, hasFolder_ = false, extracted_ = false;
};

}  // namespace results
