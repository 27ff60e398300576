// Programs started without a shell: results follow the exit status, and a started program gets
// nothing of the tool but what it is given.
#include "tarncore.h"
#include "tarnnetwork.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <string>

namespace {

namespace fs = std::filesystem;

TEST(Popen, FailuresAreNullAndTheStatusIsTheExitStatus) {
    EXPECT_EQ(TLIBCPopen("/nonexistent/ifconfig", "r", "eth0", nullptr), nullptr);
    EXPECT_EQ(TLIBCPopen("printf", "r", "x", nullptr), nullptr);  // a path, never a search
    FILE* stream = TLIBCPopen("/bin/false", "r", nullptr);
    ASSERT_NE(stream, nullptr);
    EXPECT_EQ(TLIBCPclose(stream), 1);
}

TEST(Exec, ResultFollowsTheExitStatus) {
    EXPECT_EQ(TLIBCExec("/bin/true", nullptr), 0);
    EXPECT_EQ(TLIBCExec("/bin/false", nullptr), -1);
    EXPECT_EQ(TLIBCExec("/nonexistent/openvpn.sh", "restart", nullptr), -1);
    EXPECT_EQ(TLIBCExec("/bin/sh", "-c", "kill -TERM $$", nullptr), -1);
}

// A program started while the router lock is held must not hold the lock's file open, or the
// lock would outlive the tool.
TEST(Exec, ProgramGetsNoDescriptorOfTheTool) {
    fs::path dir = fs::temp_directory_path() / ("tarnexec-" + std::to_string(getpid()));
    std::string path = (dir / "lock_ipv6_router").string();
    {
        tarnnetwork::utils::FileLock lock(path, true);
        ASSERT_TRUE(lock.Lock());
        const char* script = "for fd in /proc/$$/fd/*; do [ \"$(readlink \"$fd\")\" = \"$1\" ] && exit 1; done; exit 0";
        EXPECT_EQ(TLIBCExec("/bin/sh", "-c", script, "sh", path.c_str(), nullptr), 0);
        EXPECT_EQ(TLIBCExec("/bin/sh", "-c", "[ \"$1\" = \"$(readlink /proc/$$/fd/1)\" ]", "sh", "/dev/null", nullptr), 0);
    }
    fs::remove_all(dir);
}

}  // namespace
