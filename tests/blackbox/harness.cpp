#include "blackbox/harness.h"

#include <json/reader.h>
#include <json/writer.h>

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <set>
#include <sstream>

extern char** environ;

namespace blackbox {
namespace {

namespace fs = std::filesystem;

// A temporary directory removed with its contents.
struct TempDir {
    fs::path path;
    ~TempDir() {
        std::error_code ignored;
        fs::remove_all(path, ignored);
    }
};

std::string ReadFile(const fs::path& path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
}

// Takes the line number out of a syslog text, so that rows do not depend on source lines.
void Normalize(Json::Value& event, std::vector<int>& lines) {
    static const std::string source = "tarnnetdtool:";
    if (event["op"] != "syslog" || !event["args"][1].isString()) return;
    std::string text = event["args"][1].asString();
    size_t digits = text.find_first_not_of("0123456789", source.size());
    if (text.compare(0, source.size(), source) != 0 || digits == source.size() || digits == std::string::npos ||
        text[digits] != ' ')
        return;
    lines.push_back(std::stoi(text.substr(source.size(), digits - source.size())));
    event["args"][1] = source + "N" + text.substr(digits);
}

// Calls that only manage the tool's own objects and buffers. The router instance's destructor
// and the lock's constructor (its path) stay: they are part of what the tool does.
bool IsBookkeeping(const Json::Value& event) {
    static const std::set<std::string> kHelpers = {"TLIBCSzListAlloc", "TLIBCSzListFree", "TLIBCSzListRemoveAll",
                                                   "TLIBCStrSep",      "TLIBCStrReplace", "TARNNetSeperateSubnet",
                                                   "FilterList"};
    std::string op = event["op"].asString();
    size_t dot = op.find('.');
    if (dot == std::string::npos) return kHelpers.count(op) > 0;
    std::string cls = op.substr(0, dot), method = op.substr(dot + 1);
    return !event.isMember("args") && cls != "Router6" && (method == cls || method == "~" + cls);
}

std::string Listing(const std::vector<Json::Value>& events) {
    std::string text;
    for (const Json::Value& e : events) text += "  " + Compact(e) + "\n";
    return text;
}

// Whether `actual` has every member of `expected` with an equal value.
bool Matches(const Json::Value& actual, const Json::Value& expected) {
    for (const std::string& key : expected.getMemberNames())
        if (!actual.isMember(key) || actual[key] != expected[key]) return false;
    return true;
}

::testing::AssertionResult JournalMatches(const std::vector<Json::Value>& journal, const std::string& expected, Journal check) {
    std::vector<Json::Value> want = ParseLines(expected), actual;
    for (const Json::Value& event : journal)
        if (check == Journal::Contains || !IsBookkeeping(event)) actual.push_back(event);
    size_t next = 0;
    if (check == Journal::Contains) {
        for (const Json::Value& event : actual)
            if (next < want.size() && Matches(event, want[next])) ++next;
        if (next == want.size()) return ::testing::AssertionSuccess();
    } else if (actual == want) {
        return ::testing::AssertionSuccess();
    }
    return ::testing::AssertionFailure() << "journal differs\nexpected:\n" << Listing(want) << "actual:\n" << Listing(actual);
}

}  // namespace

Run RunSim(const std::vector<std::string>& args, const std::string& scenario, const std::string& argv0) {
    std::string pattern = (fs::temp_directory_path() / "tarnsim-XXXXXX").string();
    if (mkdtemp(pattern.data()) == nullptr) throw std::runtime_error("mkdtemp failed");
    TempDir dir{pattern};
    fs::path scenarioPath = dir.path / "scenario.json", journalPath = dir.path / "journal", outPath = dir.path / "out",
             errPath = dir.path / "err";
    // Only this process's own scenario and journal reach the tool.
    setenv("TARNSIM_JOURNAL", journalPath.c_str(), 1);
    unsetenv("TARNSIM_SCENARIO");
    if (!scenario.empty()) {
        std::ofstream(scenarioPath) << scenario;
        setenv("TARNSIM_SCENARIO", scenarioPath.c_str(), 1);
    }
    std::vector<char*> argv{const_cast<char*>(argv0.c_str())};
    for (const std::string& arg : args) argv.push_back(const_cast<char*>(arg.c_str()));
    argv.push_back(nullptr);

    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, outPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, errPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    pid_t pid = -1;
    int spawned = posix_spawn(&pid, TARNSIM_BINARY, &actions, nullptr, argv.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    if (spawned != 0) throw std::runtime_error(std::string("cannot start the tool: ") + std::strerror(spawned));
    int wstatus = 0;
    while (waitpid(pid, &wstatus, 0) < 0 && errno == EINTR) {}

    Run run;
    run.status = WIFEXITED(wstatus) ? WEXITSTATUS(wstatus) : 128 + WTERMSIG(wstatus);
    run.out = ReadFile(outPath);
    run.err = ReadFile(errPath);
    run.journal = ParseLines(ReadFile(journalPath));
    for (Json::Value& event : run.journal) Normalize(event, run.logLines);
    return run;
}

std::string Compact(const Json::Value& v) {
    Json::StreamWriterBuilder builder;
    builder["indentation"] = "";
    builder["emitUTF8"] = true;
    return Json::writeString(builder, v);
}

std::vector<Json::Value> ParseLines(const std::string& lines) {
    std::vector<Json::Value> events;
    std::istringstream in(lines);
    for (std::string line; std::getline(in, line);) {
        size_t start = line.find_first_not_of(" \t");
        if (start == std::string::npos) continue;
        Json::CharReaderBuilder builder;
        builder["failIfExtra"] = true;  // two events on one line would otherwise check only the first
        std::istringstream in(line.substr(start));
        if (!Json::parseFromStream(builder, in, &events.emplace_back(), nullptr))
            throw std::runtime_error("bad JSON line: " + line);
    }
    return events;
}

void Check(const Case& c) {
    Run run = RunSim(c.args, c.scenario);
    EXPECT_EQ(run.out, c.out) << "standard output";
    EXPECT_EQ(run.err, c.err) << "standard error";
    EXPECT_EQ(run.status, c.status) << "exit status";
    if (c.check != Journal::Ignore) {
        EXPECT_TRUE(JournalMatches(run.journal, c.journal, c.check));
    }
    for (int line : run.logLines) EXPECT_GT(line, 0) << "log line number";
}

}  // namespace blackbox
