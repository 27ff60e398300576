#include "hostkit/lock.h"

#include "hostkit/atomicfile.h"
#include "hostkit/log.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <syslog.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <thread>

namespace tarnlinux {
namespace {

// How often a waiting taker looks again; short beside the holders' work, long beside a syscall.
constexpr std::chrono::milliseconds kPollInterval{50};
// Lock files are open to their owner alone, so that no other user can hold the lock.
constexpr mode_t kFileMode = 0600;

// The directory opened without following a link, or -1 when another user could change what
// it holds: anyone but us or root owns it, or its group or others may write to it.
int OpenTrustedDir(const std::string& dir) {
    Fd fd(open(dir.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    struct stat info;
    if (fd.Get() < 0 || fstat(fd.Get(), &info) != 0) return -1;
    if (info.st_uid != geteuid() && info.st_uid != 0) return -1;
    if ((info.st_mode & (S_IWGRP | S_IWOTH)) != 0) return -1;
    return fd.Release();
}

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

// The descriptor is not inherited by programs the holder starts, so the lock ends with the
// holder.
int TakeLock(const std::string& path, bool create, std::string& why, std::chrono::milliseconds limit) {
    std::string dir = DirectoryOf(path);
    if (create && !MakeDirectories(dir)) {
        why = std::string("cannot make ") + dir + ": " + std::strerror(errno);
        return -1;
    }
    Fd dirFd(OpenTrustedDir(dir));
    if (dirFd.Get() < 0) {
        why = dir + " is missing, not a directory, or another user's or writable by others";
        return -1;
    }
    int flags = O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC | (create ? O_CREAT : 0);
    Fd fd(openat(dirFd.Get(), path.substr(path.rfind('/') + 1).c_str(), flags, kFileMode));
    struct stat info;
    if (fd.Get() < 0 || fstat(fd.Get(), &info) != 0) {
        why = std::string("cannot open it: ") + std::strerror(errno);
        return -1;
    }
    if (!S_ISREG(info.st_mode)) {
        why = "not a regular file";
        return -1;
    }
    if (!FlockWithin(fd.Get(), limit)) {
        why = "held by another process past " + std::to_string(limit.count()) + " ms";
        return -1;
    }
    return fd.Release();
}

int TakeLockOrLog(const std::string& path, bool create) {
    std::string why;
    int fd = TakeLock(path, create, why);
    if (fd < 0) Log(LOG_ERR, "lock", path + " not taken: " + why);
    return fd;
}

}  // namespace tarnlinux
