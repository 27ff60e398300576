// Hostile files in the platform's paths: each is refused at once and leaves everything as it was.
#include "blackbox/harness.h"
#include "tarncore.h"
#include "tarnnetwork.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>
#include <tuple>

namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using blackbox::TempDir;

// A FIFO in a key/value file's place is refused at once and stays as it was.
TEST(FifoKeyValueFile, IsRefusedAtOnce) {
    TempDir dir;
    std::string fifo = dir / "tarnvpn.conf";
    ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
    char buf[1024];
    const std::function<int()> calls[] = {
        [&] { return TLIBCFileGetKeyValue(fifo.c_str(), "ovpn_enable_ipv6", buf, sizeof buf, 0); },
        [&] { return TLIBCFileSetLine(fifo.c_str(), "server-ipv6", "server-ipv6 2001:db8::/64", 0); },
    };
    for (const auto& call : calls) {
        blackbox::Run ended = blackbox::InChild([&] { return call() <= 0 ? 0 : 1; }, 3s);
        EXPECT_EQ(ended.status, 0) << "1: accepted, -1: still blocked at the limit";
    }
    EXPECT_TRUE(fs::is_fifo(fifo));
    EXPECT_EQ(std::distance(fs::directory_iterator(dir.Path()), fs::directory_iterator()), 1);
}

// What another local user can put in the lock's place is a failure to lock, at once, and
// never makes a file anywhere.
TEST(HostileLockPath, FailsAtOnceAndMakesNothing) {
    // the lock directory's mode (0: a link to an empty directory), its owner (0: ours), what is
    // in the lock file's place
    const std::tuple<mode_t, uid_t, const char*> rows[] = {
        {0755, 0, "fifo"}, {0755, 0, "link"}, {0, 0, ""}, {01777, 0, ""}, {0755, 1234, ""},
    };
    for (const auto& [mode, owner, inPlace] : rows) {
        if (owner != 0 && geteuid() != 0) continue;  // needs root
        TempDir dir;
        fs::path lock = dir / "lock", elsewhere = dir / "elsewhere", file = lock / "lock_ipv6_router";
        fs::create_directory(elsewhere);
        if (mode == 0) fs::create_symlink(elsewhere, lock);
        bool failed = mode != 0 && (mkdir(lock.c_str(), 0755) != 0 || chmod(lock.c_str(), mode) != 0);
        failed = failed || (owner != 0 && chown(lock.c_str(), owner, owner) != 0);
        ASSERT_FALSE(failed || (inPlace == std::string("fifo") && mkfifo(file.c_str(), 0600) != 0)) << std::strerror(errno);
        if (inPlace == std::string("link")) fs::create_symlink(elsewhere / "made", file);
        blackbox::Run ended = blackbox::InChild([&file] { return tarnnetwork::utils::FileLock(file, true).Lock() ? 1 : 0; }, 3s);
        const std::string row = std::to_string(mode) + " " + std::to_string(owner) + " " + inPlace;
        EXPECT_EQ(ended.status, 0) << row << " 1: locked, -1: still waiting at the limit";
        EXPECT_TRUE(fs::is_empty(elsewhere)) << row;
    }
}

}  // namespace
