// Network library on Linux: the inter-process file lock.
#include "hostkit/lock.h"
#include "tarnnetwork.h"

#include <sys/file.h>

namespace tarnnetwork::utils {

FileLock::FileLock(const std::string& path, bool create) : path_(path), create_(create) {}

FileLock::~FileLock() { Unlock(); }

// With `create` the lock file and its directories are made when missing; without it only an
// existing file can be locked.
bool FileLock::Lock() {
    if (fd_ >= 0) return true;
    fd_ = tarnlinux::TakeLockOrLog(path_, create_);
    return fd_ >= 0;
}

int FileLock::Unlock() {
    if (fd_ < 0) return 0;
    flock(fd_, LOCK_UN);
    close(fd_);
    fd_ = -1;
    return 0;
}

}  // namespace tarnnetwork::utils
