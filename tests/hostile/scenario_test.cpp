// Hostile scenarios: refused like any bad scenario (one line, status 255), and quickly.
#include "blackbox/harness.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <fstream>

namespace {

using namespace std::chrono_literals;
using blackbox::TempDir;

constexpr blackbox::Millis kLimit = 3s;
constexpr size_t kDeep = 5000;

std::string Written(const TempDir& dir, const std::string& text) {
    std::string path = dir / "scenario.json";
    std::ofstream(path) << text;
    return path;
}

struct ScenarioCase {
    const char* name;
    std::string (*make)(const TempDir& dir);  // the scenario's path
    const char* failure;                      // "cannot read" or "cannot parse"
    const char* reason;                       // what follows the path
};

void PrintTo(const ScenarioCase& c, std::ostream* os) { *os << c.name; }

class HostileScenario : public ::testing::TestWithParam<ScenarioCase> {};

TEST_P(HostileScenario, IsABadScenario) {
    TempDir dir;
    std::string path = GetParam().make(dir);
    blackbox::Run run = blackbox::RunTool({"--gen-DUID"}, {"TARNSIM_SCENARIO=" + path}, dir.Path(), kLimit);
    EXPECT_EQ(run.status, 255) << "took " << run.took.count() << " ms";
    EXPECT_EQ(run.out, "");
    std::string line =
        std::string("tarnnetdtool-sim: bad scenario: ") + GetParam().failure + " " + path + ": " + GetParam().reason;
    EXPECT_EQ(run.err.substr(0, line.size()), line);
    EXPECT_EQ(run.err.find('\n'), run.err.size() - 1) << run.err;
}

INSTANTIATE_TEST_SUITE_P(
    Cases, HostileScenario,
    ::testing::Values(ScenarioCase{"DeepAtTopLevel",
                                   [](const TempDir& d) { return Written(d, std::string(kDeep, '[') + std::string(kDeep, ']')); },
                                   "cannot parse", "Exceeded stackLimit"},
                      ScenarioCase{"DeepInsideAMember",
                                   [](const TempDir& d) {
                                       return Written(d, "{\"route_tables\": {\"0\": " + std::string(kDeep, '[') +
                                                             std::string(kDeep, ']') + "}}");
                                   },
                                   "cannot parse", "Exceeded stackLimit"},
                      ScenarioCase{"EndlessDevice", [](const TempDir&) { return std::string("/dev/zero"); }, "cannot read",
                                   "not a regular file"},
                      ScenarioCase{"Fifo",
                                   [](const TempDir& d) {
                                       std::string path = d / "fifo";
                                       return mkfifo(path.c_str(), 0600) == 0 ? path : "mkfifo failed";
                                   },
                                   "cannot read", "not a regular file"},
                      ScenarioCase{"OverTheSizeBound",
                                   [](const TempDir& d) { return Written(d, "{}" + std::string((4 << 20) - 1, ' ')); },
                                   "cannot read", "larger than 4 MiB"}),
    [](const ::testing::TestParamInfo<ScenarioCase>& info) { return std::string(info.param.name); });

}  // namespace
