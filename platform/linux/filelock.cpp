// Network library on Linux: the inter-process file lock.
#include "linux.h"
#include "tarnnetwork.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <thread>

namespace tarnlinux {
namespace {

// How often a waiting Lock looks again; short beside the holders' work, long beside a syscall.
constexpr std::chrono::milliseconds kPollInterval{50};

}  // namespace

bool FlockWithin(int fd, std::chrono::milliseconds limit) {
    auto deadline = std::chrono::steady_clock::now() + limit;
    for (;;) {
        if (flock(fd, LOCK_EX | LOCK_NB) == 0) return true;
        if (errno != EWOULDBLOCK && errno != EINTR) return false;
        auto now = std::chrono::steady_clock::now();
        if (now >= deadline) return false;
        std::this_thread::sleep_for(std::min<std::chrono::steady_clock::duration>(kPollInterval, deadline - now));
    }
}

}  // namespace tarnlinux

namespace tarnnetwork::utils {
namespace {

// A holder gets this long to finish before Lock gives up.
constexpr std::chrono::seconds kLockWait{30};
// Lock directories are writable by their owner alone, lock files open to their owner alone, so
// that no other user can swap the file or hold the lock.
constexpr mode_t kDirMode = 0755;
constexpr mode_t kFileMode = 0600;

// Makes `dir` and its missing parents.
bool MakeDirs(const std::string& dir) {
    for (size_t slash = dir.find('/', 1);; slash = dir.find('/', slash + 1)) {
        if (mkdir(dir.substr(0, slash).c_str(), kDirMode) != 0 && errno != EEXIST) return false;
        if (slash == std::string::npos) return true;
    }
}

// The directory opened without following a link, or -1 when another user could change what
// it holds: anyone but us or root owns it, or its group or others may write to it.
int OpenTrustedDir(const std::string& dir) {
    tarnlinux::Fd fd(open(dir.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    struct stat info;
    if (fd.Get() < 0 || fstat(fd.Get(), &info) != 0) return -1;
    if (info.st_uid != geteuid() && info.st_uid != 0) return -1;
    if ((info.st_mode & (S_IWGRP | S_IWOTH)) != 0) return -1;
    return fd.Release();
}

}  // namespace

FileLock::FileLock(const std::string& path, bool create) : path_(path), create_(create) {}

FileLock::~FileLock() { Unlock(); }

// With `create` the lock file and its directories are made when missing; without it only an
// existing file can be locked. A link, a FIFO or a device in the file's place fails at once
// instead of redirecting or blocking the open. The descriptor is not inherited by programs
// the holder starts, so the lock ends with the holder.
bool FileLock::Lock() {
    if (fd_ >= 0) return true;
    std::filesystem::path path(path_);
    std::string dir = path.has_parent_path() ? path.parent_path().string() : ".";
    if (create_ && !MakeDirs(dir)) return false;
    tarnlinux::Fd dirFd(OpenTrustedDir(dir));
    if (dirFd.Get() < 0) return false;
    int flags = O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC | (create_ ? O_CREAT : 0);
    tarnlinux::Fd fd(openat(dirFd.Get(), path.filename().c_str(), flags, kFileMode));
    struct stat info;
    if (fd.Get() < 0 || fstat(fd.Get(), &info) != 0 || !S_ISREG(info.st_mode)) return false;
    if (!tarnlinux::FlockWithin(fd.Get(), kLockWait)) return false;
    fd_ = fd.Release();
    return true;
}

int FileLock::Unlock() {
    if (fd_ < 0) return 0;
    flock(fd_, LOCK_UN);
    close(fd_);
    fd_ = -1;
    return 0;
}

}  // namespace tarnnetwork::utils
