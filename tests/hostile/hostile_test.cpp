// Hostile inputs: each is refused at once, with its one line, and leaves everything as it was.
#include "blackbox/harness.h"
#include "tarncore.h"
#include "tarnnetwork.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <tuple>

namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using blackbox::TempDir;

// A scenario is refused like any bad scenario (one line, status 255), and quickly.
TEST(HostileScenario, IsABadScenario) {
    TempDir dir;
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

// The journal stays valid JSON Lines, and a journal that cannot be written fails the run.
TEST(Journal, ArgumentBytesThatAreNotUtf8AreReplacedAsOnStandardOutput) {
    TempDir dir;
    blackbox::Run run =
        blackbox::RunTool({"--reset-ipv6-module", "eth\xff\xc3"}, {"TARNSIM_JOURNAL=" + (dir / "journal")}, dir.Path(), 3s);
    EXPECT_EQ(run.status, 0) << run.err;
    std::string journal = blackbox::ReadFile(dir / "journal");
    EXPECT_TRUE(blackbox::IsUtf8(journal)) << journal;
    std::vector<Json::Value> events = blackbox::ParseLines(journal);
    ASSERT_EQ(events.size(), 3u) << journal;
    EXPECT_EQ(events[1]["args"][0], "eth\uFFFD\uFFFD");
}

TEST(Journal, ThatCannotBeWrittenFailsTheRun) {
    TempDir dir;
    blackbox::Run run = blackbox::RunTool({"--gen-DUID"}, {"TARNSIM_JOURNAL=/dev/full"}, dir.Path(), 3s);
    EXPECT_EQ(run.status, 255);
    EXPECT_EQ(run.err, "tarnnetdtool-sim: cannot write journal /dev/full: No space left on device\n");
    EXPECT_EQ(run.out, "");
}

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
        EXPECT_EQ(ended.status, 0) << "1: accepted, -1: still blocked after " << ended.took.count() << " ms";
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
        EXPECT_EQ(ended.status, 0) << row << " 1: locked, -1: still waiting after " << ended.took.count() << " ms";
        EXPECT_TRUE(fs::is_empty(elsewhere)) << row;
    }
}

}  // namespace
