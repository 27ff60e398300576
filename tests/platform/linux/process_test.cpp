// Programs started without a shell: results follow the exit status, and none runs past its limit.
#include "tarncore.h"

#include <gtest/gtest.h>

#include <chrono>

namespace {

using namespace std::chrono_literals;

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

TEST(Exec, AHungProgramIsKilledAtItsLimit) {
    auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(TLIBCExec("/bin/sh", "-c", "sleep 60; true", nullptr), -1);
    EXPECT_LT(std::chrono::steady_clock::now() - start, 10s);
}

}  // namespace
