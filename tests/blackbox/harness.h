// Runs tarnnetdtool-sim (TARNSIM_BINARY) as a process, with a time limit, and compares what it
// did with a case's expectations.
#ifndef TESTS_BLACKBOX_HARNESS_H
#define TESTS_BLACKBOX_HARNESS_H

#include "blackbox/tempdir.h"

#include <gtest/gtest.h>
#include <json/reader.h>
#include <json/writer.h>

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstring>
#include <fstream>
#include <functional>
#include <set>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

extern char** environ;

namespace blackbox {

using Millis = std::chrono::milliseconds;
using namespace std::chrono_literals;

struct Run {
    std::string out, err;
    int status = -1;                   // exit status, or 128 + signal, or -1 when killed at its time limit
    std::vector<Json::Value> journal;  // syslog texts as "tarnnetdtool:N <message>" (RunSim only)
    std::vector<int> logLines;         // the line numbers taken out of the syslog texts
};

// One event as one journal line (no line end).
inline std::string Compact(const Json::Value& event) {
    Json::StreamWriterBuilder builder;
    builder["indentation"] = "";
    builder["emitUTF8"] = true;
    return Json::writeString(builder, event);
}

inline std::vector<Json::Value> ParseLines(const std::string& lines) {
    std::vector<Json::Value> events;
    std::istringstream in(lines);
    Json::CharReaderBuilder builder;
    builder["failIfExtra"] = true;  // two events on one line would otherwise check only the first
    for (std::string line; std::getline(in, line);) {
        if (line.find_first_not_of(" \t") == std::string::npos) continue;
        std::istringstream event(line);
        if (!Json::parseFromStream(builder, event, &events.emplace_back(), nullptr))
            throw std::runtime_error("bad JSON line: " + line);
    }
    return events;
}

// Waits for `pid` at most `limit`, kills it there, and reaps it on every path.
inline Run Await(pid_t pid, Millis limit) {
    auto start = std::chrono::steady_clock::now();
    auto elapsed = [start] { return std::chrono::duration_cast<Millis>(std::chrono::steady_clock::now() - start); };
    Run run;
    int wstatus = 0;
    pid_t done = 0;
    while ((done = waitpid(pid, &wstatus, WNOHANG)) == 0 && elapsed() < limit) std::this_thread::sleep_for(1ms);
    if (done == pid) run.status = WIFEXITED(wstatus) ? WEXITSTATUS(wstatus) : 128 + WTERMSIG(wstatus);
    if (done != pid && kill(pid, SIGKILL) == 0) waitpid(pid, nullptr, 0);
    return run;
}

// Runs `body` in a forked child whose exit status is body's result, killed at `limit`.
inline Run InChild(const std::function<int()>& body, Millis limit) {
    pid_t pid = fork();
    if (pid < 0) throw std::runtime_error(std::string("fork: ") + std::strerror(errno));
    if (pid == 0) _exit(body());
    return Await(pid, limit);
}

// Takes the line number out of a syslog text, so that rows do not depend on source lines.
inline void Normalize(Json::Value& event, std::vector<int>& lines) {
    static const std::string source = "tarnnetdtool:";
    if (event["op"] != "syslog" || !event["args"][1].isString()) return;
    std::string text = event["args"][1].asString();
    size_t digits = text.find_first_not_of("0123456789", source.size());
    if (text.rfind(source, 0) != 0 || digits == source.size() || digits >= text.size() || text[digits] != ' ') return;
    lines.push_back(std::stoi(text.substr(source.size(), digits - source.size())));
    event["args"][1] = source + "N" + text.substr(digits);
}

// Runs the simulated tool as `argv0` with `args` in a scratch directory, with the scenario text
// (none when empty) and a journal in place of our own TARNSIM_ variables, and reads what it did.
inline Run RunSim(const std::vector<std::string>& args, const std::string& scenario = "",
                  const std::string& argv0 = "tarnnetdtool") {
    TempDir dir;
    std::vector<std::string> argvText{argv0}, envText{"TARNSIM_JOURNAL=" + (dir / "journal")};
    argvText.insert(argvText.end(), args.begin(), args.end());
    if (!scenario.empty()) {
        std::ofstream(dir / "scenario.json") << scenario;
        envText.push_back("TARNSIM_SCENARIO=" + (dir / "scenario.json"));
    }
    for (char** e = environ; *e != nullptr; ++e)
        if (std::strncmp(*e, "TARNSIM_", 8) != 0) envText.emplace_back(*e);
    std::vector<char*> argv, envp;
    for (std::string& a : argvText) argv.push_back(a.data());
    for (std::string& e : envText) envp.push_back(e.data());
    argv.push_back(nullptr);
    envp.push_back(nullptr);
    std::string outPath = dir / "out", errPath = dir / "err";
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, outPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, errPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    pid_t pid = -1;
    int spawned = posix_spawn(&pid, TARNSIM_BINARY, &actions, nullptr, argv.data(), envp.data());
    posix_spawn_file_actions_destroy(&actions);
    if (spawned != 0) throw std::runtime_error(std::string("cannot start the tool: ") + std::strerror(spawned));
    Run run = Await(pid, 30s);
    run.out = ReadFile(outPath);
    run.err = ReadFile(errPath);
    run.journal = ParseLines(ReadFile(dir / "journal"));
    for (Json::Value& event : run.journal) Normalize(event, run.logLines);
    return run;
}

// Effects: the journal without bookkeeping calls equals the expected lines, in order. Contains:
// each expected line matches a later actual event with the same "op" and equal values for the
// members it names.
enum class Journal { Effects, Contains, Ignore };

// Calls that only manage the tool's own objects and buffers (constructors and destructors of the
// library objects, list and text helpers). The router instance's destructor and the lock's
// constructor (its path) stay: they are part of what the tool does.
inline bool IsBookkeeping(const Json::Value& event) {
    static const std::set<std::string> kHelpers = {"TLIBCSzListAlloc", "TLIBCSzListFree", "TLIBCSzListRemoveAll",
                                                   "TLIBCStrSep",      "TLIBCStrReplace", "TARNNetSeperateSubnet",
                                                   "FilterList"};
    std::string op = event["op"].asString();
    size_t dot = op.find('.');
    if (dot == std::string::npos) return kHelpers.count(op) > 0;
    std::string cls = op.substr(0, dot), method = op.substr(dot + 1);
    return !event.isMember("args") && cls != "Router6" && (method == cls || method == "~" + cls);
}

inline bool Matches(const Json::Value& actual, const Json::Value& expected) {
    for (const std::string& key : expected.getMemberNames())
        if (!actual.isMember(key) || actual[key] != expected[key]) return false;
    return true;
}

inline ::testing::AssertionResult JournalMatches(const std::vector<Json::Value>& journal, const std::string& expected,
                                                 Journal check) {
    if (check == Journal::Ignore) return ::testing::AssertionSuccess();
    std::vector<Json::Value> want = ParseLines(expected), actual;
    for (const Json::Value& event : journal)
        if (check == Journal::Contains || !IsBookkeeping(event)) actual.push_back(event);
    size_t next = 0;
    for (const Json::Value& event : actual)
        if (check == Journal::Contains && next < want.size() && Matches(event, want[next])) ++next;
    if (check == Journal::Contains ? next == want.size() : actual == want) return ::testing::AssertionSuccess();
    std::string listing = "journal differs\nexpected:\n";
    for (const Json::Value& e : want) listing += "  " + Compact(e) + "\n";
    listing += "actual:\n";
    for (const Json::Value& e : actual) listing += "  " + Compact(e) + "\n";
    return ::testing::AssertionFailure() << listing;
}

// One black-box row; `journal` is JSON lines.
struct Case {
    std::string name;
    std::vector<std::string> args;
    std::string scenario, out, err;
    int status = 0;
    std::string journal;
    Journal check = Journal::Effects;
};

inline void Check(const Case& c) {
    Run run = RunSim(c.args, c.scenario);
    EXPECT_EQ(run.out, c.out) << "standard output";
    EXPECT_EQ(run.err, c.err) << "standard error";
    EXPECT_EQ(run.status, c.status) << "exit status";
    EXPECT_TRUE(JournalMatches(run.journal, c.journal, c.check));
    for (int line : run.logLines) EXPECT_GT(line, 0) << "log line number";
}

struct CaseName {
    std::string operator()(const ::testing::TestParamInfo<Case>& info) const { return info.param.name; }
};

inline void PrintTo(const Case& c, std::ostream* os) { *os << c.name; }

// A suite whose every parameter is one row: BLACKBOX_SUITE(Suite); then INSTANTIATE_TEST_SUITE_P.
#define BLACKBOX_SUITE(suite)                                         \
    class suite : public ::testing::TestWithParam<blackbox::Case> {}; \
    TEST_P(suite, Row) { blackbox::Check(GetParam()); }

}  // namespace blackbox

#endif
