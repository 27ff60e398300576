// Runs tarnnetdtool-sim as a process, with a time limit, and compares what it did with a
// case's expectations.
#ifndef TESTS_BLACKBOX_HARNESS_H
#define TESTS_BLACKBOX_HARNESS_H

#include <gtest/gtest.h>
#include <json/value.h>

#include <chrono>
#include <functional>
#include <ostream>
#include <string>
#include <vector>

namespace blackbox {

using Millis = std::chrono::milliseconds;

// Status of a process killed at its time limit.
constexpr int kTimedOut = -1;

struct Run {
    std::string out;
    std::string err;
    int status = kTimedOut;  // exit status, or 128 + signal, or kTimedOut
    Millis took{0};
    std::vector<Json::Value> journal;  // syslog texts as "tarnnetdtool:N <message>" (RunSim only)
    std::vector<int> logLines;         // the line numbers taken out of the syslog texts
};

// Runs the simulated tool as `argv0` with `args` in the directory `dir`, with `env` in place of
// our own TARNSIM_ variables; standard output and error go to files in `dir`.
Run RunTool(const std::vector<std::string>& args, const std::vector<std::string>& env, const std::string& dir, Millis limit,
            const std::string& argv0 = "tarnnetdtool");

// Runs the simulated tool on the scenario text (none when empty) and reads its journal.
Run RunSim(const std::vector<std::string>& args, const std::string& scenario = "", const std::string& argv0 = "tarnnetdtool");

// Runs `body` in a forked child whose exit status is body's result, killed at `limit`.
Run InChild(const std::function<int()>& body, Millis limit);

// A fresh directory under the temporary directory, removed with its contents.
class TempDir {
public:
    TempDir();
    ~TempDir();
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;
    std::string operator/(const std::string& name) const { return path_ + "/" + name; }
    const std::string& Path() const { return path_; }

private:
    std::string path_;
};

std::string ReadFile(const std::string& path);
bool IsUtf8(const std::string& text);

// Effects: the journal without bookkeeping calls (constructors and destructors of the library
// objects, list and text helpers) equals the expected lines, in order. Contains: each expected
// line matches a later actual event with the same "op" and equal values for the members it names.
enum class Journal { Effects, Contains, Ignore };

// One black-box row; `journal` is JSON lines.
struct Case {
    std::string name;
    std::vector<std::string> args;
    std::string scenario;
    std::string out;
    std::string err;
    int status = 0;
    std::string journal;
    Journal check = Journal::Effects;
};

// Runs the case and reports every difference.
void Check(const Case& c);

std::vector<Json::Value> ParseLines(const std::string& lines);
// One event as one journal line (no line end).
std::string Compact(const Json::Value& event);

// gtest parameter names from Case::name.
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
