// Inter-process locks on lock files we own: a link, a FIFO or a device in the file's place fails
// at once instead of redirecting or blocking the open, and so does a directory that another user
// could change.
#ifndef TARN_HOSTKIT_LOCK_H
#define TARN_HOSTKIT_LOCK_H

#include "hostkit/fd.h"

#include <chrono>
#include <string>

namespace tarnlinux {

// A holder gets this long to finish before a waiting taker gives up.
inline constexpr std::chrono::seconds kLockWait{30};

// Takes flock(LOCK_EX) on `fd`, waiting at most `limit` for a holder: true when taken.
bool FlockWithin(int fd, std::chrono::milliseconds limit);

// The lock file at `path` opened and locked, waiting at most `limit`; with `create` the file and
// its directories are made when missing. -1, with the reason in `why`, when it cannot be taken.
int TakeLock(const std::string& path, bool create, std::string& why, std::chrono::milliseconds limit = kLockWait);
// TakeLock, its refusal logged with the reason.
int TakeLockOrLog(const std::string& path, bool create);

// An exclusive lock, made when missing, held from Take until it goes out of scope.
class HeldLock {
public:
    explicit HeldLock(std::string path) : path_(std::move(path)) {}
    bool Take() {
        fd_.Reset(TakeLockOrLog(path_, true));
        return fd_.Get() >= 0;
    }
    // Take, the refusal's reason in `why` for the caller to report instead of logged here.
    bool Take(std::string& why) {
        fd_.Reset(TakeLock(path_, true, why));
        return fd_.Get() >= 0;
    }

private:
    std::string path_;
    Fd fd_;
};

}  // namespace tarnlinux

#endif
