// A file descriptor closed when it goes out of scope.
#ifndef TARN_HOSTKIT_FD_H
#define TARN_HOSTKIT_FD_H

#include <unistd.h>

namespace tarnlinux {

class Fd {
public:
    explicit Fd(int fd = -1) : fd_(fd) {}
    ~Fd() { Reset(); }
    Fd(const Fd&) = delete;
    Fd& operator=(const Fd&) = delete;
    int Get() const { return fd_; }
    int Release() {
        int fd = fd_;
        fd_ = -1;
        return fd;
    }
    void Reset(int fd = -1) {
        if (fd_ >= 0) ::close(fd_);
        fd_ = fd;
    }

private:
    int fd_;
};

}  // namespace tarnlinux

#endif
