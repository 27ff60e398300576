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

constexpr blackbox::Millis kLimit = 3s;

struct KeyValueCase {
    const char* name;
    int (*call)(const char* path);
};

void PrintTo(const KeyValueCase& c, std::ostream* os) { *os << c.name; }

class FifoKeyValueFile : public ::testing::TestWithParam<KeyValueCase> {};

TEST_P(FifoKeyValueFile, IsRefusedAtOnce) {
    blackbox::TempDir dir;
    std::string fifo = dir / "tarnvpn.conf";
    ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
    blackbox::Run ended = blackbox::InChild([&] { return GetParam().call(fifo.c_str()) <= 0 ? 0 : 1; }, kLimit);
    EXPECT_EQ(ended.status, 0) << "1: accepted, -1: still blocked after " << ended.took.count() << " ms";
    EXPECT_TRUE(fs::is_fifo(fifo));
    EXPECT_EQ(std::distance(fs::directory_iterator(dir.Path()), fs::directory_iterator()), 1);
}

INSTANTIATE_TEST_SUITE_P(Cases, FifoKeyValueFile,
                         ::testing::Values(KeyValueCase{"GetKeyValue",
                                                        [](const char* path) {
                                                            char buf[1024];
                                                            return TLIBCFileGetKeyValue(path, "ovpn_enable_ipv6", buf, sizeof buf,
                                                                                        0);
                                                        }},
                                           KeyValueCase{"SetLine",
                                                        [](const char* path) {
                                                            return TLIBCFileSetLine(path, "server-ipv6",
                                                                                    "server-ipv6 2001:db8::/64", 0);
                                                        }}),
                         [](const ::testing::TestParamInfo<KeyValueCase>& info) { return std::string(info.param.name); });

}  // namespace
