#pragma once

#include <sys/types.h>

#include <filesystem>
#include <functional>
#include <optional>
#include <string>

/// What is in the file, as far as `most` bytes; nothing if there is none. Throws
/// `std::runtime_error` with the cause if it can't be read or is no regular file.
std::optional<std::string> readWholeFile(const std::filesystem::path& path,
                                         std::size_t most = std::string::npos);

/// A name beside the target for what is to take its place, "TARGET.XXXXXXXX.tmp" with digits that
/// nobody can have chosen.
std::filesystem::path temporaryName(const std::filesystem::path& target);

/// Makes an empty file at `path`, where there is none, with the permissions of `model`, and its
/// owner and group as far as the user may give files away. Throws `std::runtime_error` with the
/// cause.
void createFileLike(const std::filesystem::path& path, const std::filesystem::path& model);

/// A text on its way to the place of what is at `path`, all or nothing: whoever opens that, also
/// after a crash or a power cut, finds the whole of the old or of the new. The text goes into a
/// file of its own in the same directory, to the disk, and with `commit` to the name.
///
/// Both steps throw `std::runtime_error` with the cause. What isn't committed is removed again; a
/// process that is killed meanwhile may leave a PATH.XXXXXXXX.tmp behind, which disturbs nobody.
class FileReplacement {
  public:
    /// The new file gets the permissions of `model`, and its owner and group as far as the user may
    /// give files away, if there is such a file. Nobody may read it before who may not after.
    FileReplacement(std::filesystem::path target, const std::string& text,
                    const std::filesystem::path& model);
    /// Or with these permissions, whatever the process's mask.
    FileReplacement(std::filesystem::path target, const std::string& text, mode_t permissions);
    ~FileReplacement();
    FileReplacement(const FileReplacement&) = delete;
    FileReplacement& operator=(const FileReplacement&) = delete;

    /// Once.
    void commit();

  private:
    explicit FileReplacement(std::filesystem::path target);
    /// `setPermissions` gets the descriptor of the new file, which has those of `first`.
    void write(const std::string& text, mode_t first,
               const std::function<void(int)>& setPermissions);

    const std::filesystem::path path;
    const std::filesystem::path temporary;  // gone when committed
};
