// Hostile scenarios: refused like any bad scenario (one line, status 255), and quickly.
#include "blackbox/harness.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <fstream>
#include <tuple>

namespace {

using namespace std::chrono_literals;

TEST(HostileScenario, IsABadScenario) {
    blackbox::TempDir dir;
    const std::string deep = std::string(5000, '[') + std::string(5000, ']');
    std::ofstream(dir / "deep.json") << deep;
    std::ofstream(dir / "member.json") << "{\"route_tables\": {\"0\": " + deep + "}}";
    std::ofstream(dir / "big.json") << "{}" + std::string((4 << 20) - 1, ' ');
    ASSERT_EQ(mkfifo((dir / "fifo").c_str(), 0600), 0);
    // path, failure, what follows the path
    const std::tuple<std::string, const char*, const char*> rows[] = {
        {dir / "deep.json", "cannot parse", "Exceeded stackLimit"}, {dir / "member.json", "cannot parse", "Exceeded stackLimit"},
        {"/dev/zero", "cannot read", "not a regular file"},         {dir / "fifo", "cannot read", "not a regular file"},
        {dir / "big.json", "cannot read", "larger than 4 MiB"},
    };
    for (const auto& [path, failure, reason] : rows) {
        blackbox::Run run = blackbox::RunTool({"--gen-DUID"}, {"TARNSIM_SCENARIO=" + path}, dir.Path(), 3s);
        EXPECT_EQ(run.status, 255) << path << " took " << run.took.count() << " ms";
        EXPECT_EQ(run.out, "");
        std::string line = std::string("tarnnetdtool-sim: bad scenario: ") + failure + " " + path + ": " + reason;
        EXPECT_EQ(run.err.substr(0, line.size()), line);
        EXPECT_EQ(run.err.find('\n'), run.err.size() - 1) << run.err;
    }
}

}  // namespace
