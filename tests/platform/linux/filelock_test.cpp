// The file lock between processes (two open files of one path conflict like two processes), and
// what a program started under it may not hold.
#include "blackbox/tempdir.h"
#include "hostkit/lock.h"
#include "tarncore.h"
#include "tarnnetwork.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <gtest/gtest.h>

#include <filesystem>

namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using tarnnetwork::utils::FileLock;

class Lock : public ::testing::Test {
protected:
    // Whether another opener gets the lock within `limit`.
    bool TryFor(std::chrono::milliseconds limit) const {
        tarnlinux::Fd fd(open(path_.c_str(), O_RDONLY | O_CLOEXEC));
        return fd.Get() >= 0 && tarnlinux::FlockWithin(fd.Get(), limit);
    }
    blackbox::TempDir tmp_;
    fs::path dir_{tmp_.Path()};
    std::string path_{(dir_ / "lock" / "lock_ipv6_router").string()};
};

TEST_F(Lock, UnlockIsHarmlessAndDestructionReleases) {
    {
        FileLock held(path_, true);
        EXPECT_EQ(held.Unlock(), 0);
        ASSERT_TRUE(held.Lock());
        EXPECT_FALSE(TryFor(0ms));
        EXPECT_EQ(held.Unlock(), 0);
        EXPECT_EQ(held.Unlock(), 0);
        EXPECT_TRUE(TryFor(0ms));
        ASSERT_TRUE(held.Lock());
    }
    EXPECT_TRUE(TryFor(0ms));
    FileLock existingOnly((dir_ / "other" / "lock").string(), false);
    EXPECT_FALSE(existingOnly.Lock());
    EXPECT_FALSE(fs::exists(dir_ / "other"));
}

// A taker gives up at its limit, not before nor long after, and says why.
TEST_F(Lock, WaiterGivesUpAtItsLimitAndRefusalSaysWhy) {
    FileLock holder(path_, true);
    ASSERT_TRUE(holder.Lock());
    std::string why;
    auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(tarnlinux::TakeLock(path_, true, why, 200ms), -1);
    auto waited = std::chrono::steady_clock::now() - start;
    EXPECT_TRUE(waited >= 200ms && waited < 2s) << std::chrono::duration_cast<std::chrono::milliseconds>(waited).count();
    EXPECT_EQ(why, "held by another process past 200 ms");
    ASSERT_EQ(mkfifo((dir_ / "fifo").c_str(), 0600), 0);
    EXPECT_EQ(tarnlinux::TakeLock((dir_ / "fifo").string(), true, why, 0ms), -1);
    EXPECT_EQ(why, "not a regular file");
    fs::permissions(dir_, fs::perms::others_write, fs::perm_options::add);
    EXPECT_EQ(tarnlinux::TakeLock((dir_ / "lock2").string(), true, why, 0ms), -1);
    EXPECT_NE(why.find("writable by others"), std::string::npos) << why;
}

// A program started while the router lock is held must not hold the lock's file open, or the
// lock would outlive the tool.
TEST_F(Lock, ProgramGetsNoDescriptorOfTheTool) {
    FileLock lock(path_, true);
    ASSERT_TRUE(lock.Lock());
    const char* script = "for fd in /proc/$$/fd/*; do [ \"$(readlink \"$fd\")\" = \"$1\" ] && exit 1; done; exit 0";
    EXPECT_EQ(TLIBCExec("/bin/sh", "-c", script, "sh", path_.c_str(), nullptr), 0);
    // Its output goes to the log, not to the tool's standard output or error.
    EXPECT_EQ(TLIBCExec("/bin/sh", "-c",
                        "case $(readlink /proc/$$/fd/1)$(readlink /proc/$$/fd/2) in pipe:*pipe:*) ;; *) exit 1;; esac", nullptr),
              0);
}

}  // namespace
