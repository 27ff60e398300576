// Network library on Linux: the inter-process file lock.
#include "linux/linux.h"
#include "tarnnetwork.h"

#include <fcntl.h>
#include <sys/file.h>

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

bool MakeParents(const std::string& path) {
    std::filesystem::path parent = std::filesystem::path(path).parent_path();
    std::error_code error;
    if (parent.empty() || std::filesystem::is_directory(parent, error)) return true;
    std::filesystem::create_directories(parent, error);
    return !error;
}

}  // namespace

FileLock::FileLock(const std::string& path, bool create) : path_(path), create_(create) {}

FileLock::~FileLock() { Unlock(); }

// With `create` the lock file and its directories are made when missing; without it only an
// existing file can be locked. The descriptor is not inherited by programs the holder starts,
// so the lock ends with the holder.
bool FileLock::Lock() {
    if (fd_ >= 0) return true;
    if (create_ && !MakeParents(path_)) return false;
    tarnlinux::Fd fd(open(path_.c_str(), O_RDONLY | O_CLOEXEC | (create_ ? O_CREAT : 0), 0644));
    if (fd.Get() < 0 || !tarnlinux::FlockWithin(fd.Get(), kLockWait)) return false;
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
