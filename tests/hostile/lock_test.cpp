// Hostile lock paths: what another local user can put in the lock's place is a failure to
// lock, at once, and never makes a file anywhere.
#include "blackbox/harness.h"
#include "tarnnetwork.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;

constexpr uid_t kOtherUser = 1234;

void MakeLockDir(const fs::path& lock, mode_t mode) {
    ASSERT_EQ(mkdir(lock.c_str(), 0755), 0);
    ASSERT_EQ(chmod(lock.c_str(), mode), 0);
}

// Each puts something hostile at `lock` (the lock's directory, not yet made) or inside it;
// `elsewhere` is an empty directory a link may lead to.
using Prepare = void (*)(const fs::path& lock, const fs::path& elsewhere);
const std::pair<const char*, Prepare> kHostile[] = {
    {"FifoInPlace",
     [](const fs::path& lock, const fs::path&) {
         MakeLockDir(lock, 0755);
         ASSERT_EQ(mkfifo((lock / "lock_ipv6_router").c_str(), 0600), 0);
     }},
    {"LinkInPlace",
     [](const fs::path& lock, const fs::path& elsewhere) {
         MakeLockDir(lock, 0755);
         fs::create_symlink(elsewhere / "made", lock / "lock_ipv6_router");
     }},
    {"DirectoryIsALink", [](const fs::path& lock, const fs::path& elsewhere) { fs::create_symlink(elsewhere, lock); }},
    {"DirectoryOthersCanWrite", [](const fs::path& lock, const fs::path&) { MakeLockDir(lock, 01777); }},
    {"DirectoryOfAnotherUser",
     [](const fs::path& lock, const fs::path&) {
         MakeLockDir(lock, 0755);
         ASSERT_EQ(chown(lock.c_str(), kOtherUser, kOtherUser), 0);
     }},
};

TEST(HostileLockPath, FailsAtOnceAndMakesNothing) {
    for (const auto& [name, prepare] : kHostile) {
        if (geteuid() != 0 && std::string(name) == "DirectoryOfAnotherUser") continue;  // needs root
        blackbox::TempDir dir;
        fs::path lock = dir / "lock", elsewhere = dir / "elsewhere";
        fs::create_directory(elsewhere);
        prepare(lock, elsewhere);
        std::string path = (lock / "lock_ipv6_router").string();
        blackbox::Run ended = blackbox::InChild(
            [&path] {
                tarnnetwork::utils::FileLock fileLock(path, true);
                return fileLock.Lock() ? 1 : 0;
            },
            3s);
        EXPECT_EQ(ended.status, 0) << name << " 1: locked, -1: still waiting after " << ended.took.count() << " ms";
        EXPECT_TRUE(fs::is_empty(elsewhere)) << name;
    }
}

}  // namespace
