#include "hostkit/atomicfile.h"

#include "hostkit/fd.h"

#include <fcntl.h>

#include <dirent.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdlib>
#include <ctime>
#include <memory>

namespace tarnlinux {
namespace {

constexpr mode_t kDirMode = 0755;
// mkostemp's part of a temporary name.
constexpr size_t kTempSuffix = 6;

std::string TempPattern(const std::string& path, bool hidden) {
    size_t name = path.rfind('/') + 1;  // 0 without a slash
    return path.substr(0, name) + (hidden ? "." : "") + path.substr(name) + ".XXXXXX";
}

// Keeps errno of the step that failed while the temporary file is removed.
bool Abandon(const std::string& temp) {
    int saved = errno;
    unlink(temp.c_str());
    errno = saved;
    return false;
}

// The target's name when `name` is a hidden one that TempPattern makes; "" otherwise.
std::string TempTarget(const std::string& name) {
    size_t dot = name.size() - kTempSuffix - 1;
    if (name.size() < kTempSuffix + 3 || name[0] != '.' || name[dot] != '.') return "";
    if (!std::all_of(name.begin() + dot + 1, name.end(), [](unsigned char c) { return std::isalnum(c); })) return "";
    return name.substr(1, dot - 1);
}

}  // namespace

bool ReadAll(int fd, std::string& text, size_t limit) {
    char chunk[8192];
    for (;;) {
        ssize_t got = read(fd, chunk, sizeof chunk);
        if (got < 0 && errno == EINTR) continue;
        if (got < 0) return false;
        if (got == 0) return true;
        if (static_cast<size_t>(got) > limit - text.size()) {
            errno = EFBIG;
            return false;
        }
        text.append(chunk, static_cast<size_t>(got));
    }
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

bool OpenRegular(const std::string& path, Fd& fd, struct stat& info, size_t limit) {
    fd.Reset(open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    if (fd.Get() < 0 || fstat(fd.Get(), &info) != 0) return false;
    errno = EINVAL;
    return S_ISREG(info.st_mode) && static_cast<uintmax_t>(info.st_size) <= limit;
}

ReadResult ReadRegular(const std::string& path, std::string& text, size_t limit, struct stat* info) {
    struct stat own;
    Fd fd;
    if (!OpenRegular(path, fd, info != nullptr ? *info : own, limit))
        return errno == ENOENT ? ReadResult::kMissing : ReadResult::kRefused;
    return ReadAll(fd.Get(), text, limit) ? ReadResult::kRead : ReadResult::kRefused;
}

std::string DirectoryOf(const std::string& path) {
    size_t slash = path.rfind('/');
    if (slash == std::string::npos) return ".";
    return slash == 0 ? "/" : path.substr(0, slash);
}

bool MakeDirectories(const std::string& dir) {
    struct stat info;
    if (stat(dir.c_str(), &info) == 0) {
        errno = ENOTDIR;
        return S_ISDIR(info.st_mode);
    }
    if (errno != ENOENT || !MakeDirectories(DirectoryOf(dir))) return false;
    if (mkdir(dir.c_str(), kDirMode) != 0) return errno == EEXIST;
    // The mode is ours to say, whatever the caller's umask.
    return chmod(dir.c_str(), kDirMode) == 0;
}

bool ReplaceFile(const std::string& path, const std::string& text, const NewFile& how) {
    std::string dir = DirectoryOf(path);
    if (!MakeDirectories(dir)) return false;
    std::string temp = TempPattern(path, how.hidden);
    Fd fd(mkostemp(&temp[0], O_CLOEXEC));
    if (fd.Get() < 0) return false;
    bool written = WriteAll(fd.Get(), text) && fchmod(fd.Get(), how.mode) == 0 && fchown(fd.Get(), how.uid, how.gid) == 0 &&
                   fsync(fd.Get()) == 0 && close(fd.Release()) == 0 && rename(temp.c_str(), path.c_str()) == 0;
    if (!written) return Abandon(temp);
    // The rename itself is durable only once the directory is.
    Fd directory(open(dir.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    return directory.Get() >= 0 && fsync(directory.Get()) == 0;
}

bool UpdateFile(const std::string& path, const std::string& text) {
    std::string old;
    ReadResult result = ReadRegular(path, old);
    if (result == ReadResult::kRefused) return false;
    return (result == ReadResult::kRead && old == text) || ReplaceFile(path, text);
}

void RemoveStaleTemporaries(const std::string& dir, const std::function<bool(const std::string&)>& target,
                            std::chrono::seconds age) {
    Fd dirFd(open(dir.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    std::unique_ptr<DIR, int (*)(DIR*)> listing(dirFd.Get() >= 0 ? fdopendir(dirFd.Get()) : nullptr, closedir);
    if (!listing) return;
    dirFd.Release();  // the listing owns it now
    time_t before = time(nullptr) - static_cast<time_t>(age.count());
    while (const dirent* entry = readdir(listing.get())) {
        std::string name = entry->d_name, of = TempTarget(name);
        struct stat info;
        if (of.empty() || !target(of) || fstatat(dirfd(listing.get()), entry->d_name, &info, AT_SYMLINK_NOFOLLOW) != 0) continue;
        if (S_ISREG(info.st_mode) && info.st_mtime < before) unlinkat(dirfd(listing.get()), entry->d_name, 0);
    }
}

}  // namespace tarnlinux
