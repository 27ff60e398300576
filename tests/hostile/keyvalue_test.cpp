// Hostile key/value files: a FIFO in a key/value file's place is refused at once and stays
// as it was.
#include "blackbox/harness.h"
#include "tarncore.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>

namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;

TEST(FifoKeyValueFile, IsRefusedAtOnce) {
    blackbox::TempDir dir;
    std::string fifo = dir / "tarnvpn.conf";
    ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
    char buf[1024];
    const std::function<int()> calls[] = {
        [&] { return TLIBCFileGetKeyValue(fifo.c_str(), "ovpn_enable_ipv6", buf, sizeof buf, 0); },
        [&] { return TLIBCFileSetLine(fifo.c_str(), "server-ipv6", "server-ipv6 2001:db8::/64", 0); },
    };
    for (const auto& call : calls) {
        blackbox::Run ended = blackbox::InChild([&] { return call() <= 0 ? 0 : 1; }, 3s);
        EXPECT_EQ(ended.status, 0) << "1: accepted, -1: still blocked after " << ended.took.count() << " ms";
    }
    EXPECT_TRUE(fs::is_fifo(fifo));
    EXPECT_EQ(std::distance(fs::directory_iterator(dir.Path()), fs::directory_iterator()), 1);
}

}  // namespace
