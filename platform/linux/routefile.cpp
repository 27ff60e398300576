// The routing library's files: read without following links, replaced atomically.
#include "linux/linux.h"
#include "linux/routing.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>

namespace tarnroute {
namespace {

constexpr mode_t kDirMode = 0755;
constexpr mode_t kFileMode = 0644;

std::string DirOf(const std::string& path) { return path.substr(0, path.rfind('/')); }

// Makes the directory and its parents when missing.
bool MakeDirs(const std::string& dir) {
    if (dir.empty()) return true;
    struct stat info;
    if (stat(dir.c_str(), &info) == 0) return S_ISDIR(info.st_mode);
    if (!MakeDirs(DirOf(dir))) return false;
    if (mkdir(dir.c_str(), kDirMode) != 0) return errno == EEXIST;
    // The mode is ours to say, whatever the caller's umask.
    return chmod(dir.c_str(), kDirMode) == 0;
}

bool WriteAll(int fd, const std::string& text) {
    for (size_t done = 0; done < text.size();) {
        ssize_t put = write(fd, text.data() + done, text.size() - done);
        if (put < 0 && errno == EINTR) continue;
        if (put <= 0) return false;
        done += static_cast<size_t>(put);
    }
    return true;
}

}  // namespace

bool ReadRegularFile(const std::string& path, std::string& text, bool& exists) {
    text.clear();
    tarnlinux::Fd fd(open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    exists = fd.Get() >= 0 || errno != ENOENT;
    if (!exists) return true;
    struct stat info;
    if (fd.Get() < 0 || fstat(fd.Get(), &info) != 0 || !S_ISREG(info.st_mode)) return false;
    char chunk[8192];
    for (;;) {
        ssize_t got = read(fd.Get(), chunk, sizeof chunk);
        if (got < 0 && errno == EINTR) continue;
        if (got < 0) return false;
        if (got == 0) return true;
        text.append(chunk, static_cast<size_t>(got));
    }
}

bool WriteFileAtomic(const std::string& path, const std::string& text) {
    std::string old;
    bool exists = false;
    // Anything but a regular file (a link, a directory) is refused, never replaced.
    if (!ReadRegularFile(path, old, exists)) return false;
    if (exists && old == text) return true;
    std::string dir = DirOf(path);
    if (!MakeDirs(dir)) return false;
    std::string temp = path + ".XXXXXX";
    tarnlinux::Fd fd(mkostemp(&temp[0], O_CLOEXEC));
    if (fd.Get() < 0) return false;
    bool written = fchmod(fd.Get(), kFileMode) == 0 && WriteAll(fd.Get(), text) && fsync(fd.Get()) == 0 &&
                   close(fd.Release()) == 0 && rename(temp.c_str(), path.c_str()) == 0;
    if (!written) {
        unlink(temp.c_str());
        return false;
    }
    tarnlinux::Fd dirFd(open(dir.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (dirFd.Get() >= 0) fsync(dirFd.Get());
    return true;
}

}  // namespace tarnroute
