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

constexpr blackbox::Millis kLimit = 3s;
constexpr uid_t kOtherUser = 1234;

struct LockCase {
    const char* name;
    // Puts something hostile at `lock` (the lock's directory, not yet made) or inside it;
    // `elsewhere` is an empty directory a link may lead to.
    void (*prepare)(const fs::path& lock, const fs::path& elsewhere);
};

void PrintTo(const LockCase& c, std::ostream* os) { *os << c.name; }

class HostileLockPath : public ::testing::TestWithParam<LockCase> {};

TEST_P(HostileLockPath, FailsAtOnceAndMakesNothing) {
    if (GetParam().prepare == nullptr) GTEST_SKIP() << "needs root";
    blackbox::TempDir dir;
    fs::path lock = dir / "lock", elsewhere = dir / "elsewhere";
    fs::create_directory(elsewhere);
    GetParam().prepare(lock, elsewhere);
    std::string path = (lock / "lock_ipv6_router").string();
    blackbox::Run ended = blackbox::InChild(
        [&path] {
            tarnnetwork::utils::FileLock fileLock(path, true);
            return fileLock.Lock() ? 1 : 0;
        },
        kLimit);
    EXPECT_EQ(ended.status, 0) << "1: locked, -1: still waiting after " << ended.took.count() << " ms";
    EXPECT_TRUE(fs::is_empty(elsewhere));
}

void MakeLockDir(const fs::path& lock, mode_t mode) {
    ASSERT_EQ(mkdir(lock.c_str(), 0755), 0);
    ASSERT_EQ(chmod(lock.c_str(), mode), 0);
}

INSTANTIATE_TEST_SUITE_P(
    Cases, HostileLockPath,
    ::testing::Values(LockCase{"FifoInPlace",
                               [](const fs::path& lock, const fs::path&) {
                                   MakeLockDir(lock, 0755);
                                   ASSERT_EQ(mkfifo((lock / "lock_ipv6_router").c_str(), 0600), 0);
                               }},
                      LockCase{"LinkInPlace",
                               [](const fs::path& lock, const fs::path& elsewhere) {
                                   MakeLockDir(lock, 0755);
                                   fs::create_symlink(elsewhere / "made", lock / "lock_ipv6_router");
                               }},
                      LockCase{"DirectoryIsALink",
                               [](const fs::path& lock, const fs::path& elsewhere) { fs::create_symlink(elsewhere, lock); }},
                      LockCase{"DirectoryOthersCanWrite", [](const fs::path& lock, const fs::path&) { MakeLockDir(lock, 01777); }},
                      LockCase{"DirectoryOfAnotherUser",
                               geteuid() != 0 ? nullptr : +[](const fs::path& lock, const fs::path&) {
                                   MakeLockDir(lock, 0755);
                                   ASSERT_EQ(chown(lock.c_str(), kOtherUser, kOtherUser), 0);
                               }}),
    [](const ::testing::TestParamInfo<LockCase>& info) { return std::string(info.param.name); });

}  // namespace
