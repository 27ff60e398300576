// Files that the Linux platform and tarnnetd read and rewrite: read without following a link
// or waiting on a FIFO, replaced atomically so that no reader ever sees half a file.
#ifndef TARN_PLATFORM_LINUX_ATOMICFILE_H
#define TARN_PLATFORM_LINUX_ATOMICFILE_H

#include "hostkit/fd.h"

#include <sys/stat.h>
#include <sys/types.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>

namespace tarnlinux {

// The rest of `fd` appended to `text`; false on a read error or past `limit` bytes in all.
bool ReadAll(int fd, std::string& text, size_t limit = SIZE_MAX);
bool WriteAll(int fd, const std::string& text);

// Opens `path` for reading without following a link or waiting on a FIFO: false, with errno
// (EINVAL for anything but a regular file of at most `limit` bytes), when it cannot.
bool OpenRegular(const std::string& path, Fd& fd, struct stat& info, size_t limit = SIZE_MAX);

// What a read of a file we own found.
enum class ReadResult { kRead, kMissing, kRefused };
// Reads `path` without following a link: kRefused (with errno) when it cannot be opened or read,
// is not a regular file or is larger than `limit`. `info` gets its fstat.
ReadResult ReadRegular(const std::string& path, std::string& text, size_t limit = SIZE_MAX, struct stat* info = nullptr);

// The directory that holds `path`: "." without a slash, "/" for a file in the root.
std::string DirectoryOf(const std::string& path);

// Makes `dir` and its missing parents with mode 0755, whatever the umask.
bool MakeDirectories(const std::string& dir);

// How a replacement is made.
struct NewFile {
    mode_t mode = 0644;
    uid_t uid = static_cast<uid_t>(-1);  // -1: the writer's
    gid_t gid = static_cast<gid_t>(-1);
    // The temporary file is ".<name>.XXXXXX" beside the target, hidden from whoever lists the
    // directory; false: "<name>.XXXXXX".
    bool hidden = true;
};

// Replaces `path` with `text`: a temporary file in the same directory (made when missing),
// fchmod, fsync, rename over `path` (a link there is replaced, never followed), fsync of the
// directory. False with errno when any step failed; the temporary file is then gone.
bool ReplaceFile(const std::string& path, const std::string& text, const NewFile& how = NewFile());

// ReplaceFile unless `path` holds `text` already; anything there but a regular file (a link, a
// directory) is refused, never replaced.
bool UpdateFile(const std::string& path, const std::string& text);

// Removes from `dir` the hidden temporary files of ReplaceFile that a kill left behind: regular
// files named ".<target>.XXXXXX" for a target that `target` accepts, last changed more than
// `age` ago. Anything else there is left alone.
void RemoveStaleTemporaries(const std::string& dir, const std::function<bool(const std::string&)>& target,
                            std::chrono::seconds age);

}  // namespace tarnlinux

#endif
