// Journal failures: the journal stays valid JSON Lines, and a journal that cannot be written
// fails the run.
#include "blackbox/harness.h"

#include <gtest/gtest.h>

namespace {

using namespace std::chrono_literals;
using blackbox::TempDir;

constexpr blackbox::Millis kLimit = 3s;

TEST(Journal, ArgumentBytesThatAreNotUtf8AreReplacedAsOnStandardOutput) {
    TempDir dir;
    blackbox::Run run =
        blackbox::RunTool({"--reset-ipv6-module", "eth\xff\xc3"}, {"TARNSIM_JOURNAL=" + (dir / "journal")}, dir.Path(), kLimit);
    EXPECT_EQ(run.status, 0) << run.err;
    std::string journal = blackbox::ReadFile(dir / "journal");
    EXPECT_TRUE(blackbox::IsUtf8(journal)) << journal;
    std::vector<Json::Value> events = blackbox::ParseLines(journal);
    ASSERT_EQ(events.size(), 3u) << journal;
    EXPECT_EQ(events[1]["args"][0], "eth\uFFFD\uFFFD");
}

TEST(Journal, ThatCannotBeWrittenFailsTheRun) {
    TempDir dir;
    blackbox::Run run = blackbox::RunTool({"--gen-DUID"}, {"TARNSIM_JOURNAL=/dev/full"}, dir.Path(), kLimit);
    EXPECT_EQ(run.status, 255);
    EXPECT_EQ(run.err, "tarnnetdtool-sim: cannot write journal /dev/full: No space left on device\n");
    EXPECT_EQ(run.out, "");
}

}  // namespace
