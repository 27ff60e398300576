#include "blackbox/harness.h"

#include <json/reader.h>
#include <json/writer.h>

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cctype>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>

extern char** environ;

namespace blackbox {
namespace {

namespace fs = std::filesystem;

// A temporary directory removed with its contents.
class TempDir {
public:
    TempDir() {
        std::string pattern = (fs::temp_directory_path() / "tarnsim-XXXXXX").string();
        if (mkdtemp(pattern.data()) == nullptr) throw std::runtime_error("mkdtemp failed");
        path_ = pattern;
    }
    ~TempDir() {
        std::error_code ignored;
        fs::remove_all(path_, ignored);
    }
    fs::path operator/(const char* name) const { return path_ / name; }

private:
    fs::path path_;
};

std::string ReadFile(const fs::path& path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
}

Json::Value ParseLine(const std::string& line) {
    Json::CharReaderBuilder builder;
    builder["failIfExtra"] = true;  // two events on one line would otherwise check only the first
    Json::Value v;
    std::string errors;
    std::istringstream in(line);
    if (!Json::parseFromStream(builder, in, &v, &errors)) throw std::runtime_error("bad JSON line: " + line);
    return v;
}

// Takes the line number out of a syslog text, so that rows do not depend on source lines.
void Normalize(Json::Value& event, std::vector<int>& lines) {
    static const std::string source = "tarnnetdtool:";
    if (event["op"] != "syslog" || !event["args"][1].isString()) return;
    std::string text = event["args"][1].asString();
    size_t digits = source.size();
    while (digits < text.size() && std::isdigit(static_cast<unsigned char>(text[digits]))) ++digits;
    if (text.compare(0, source.size(), source) != 0 || digits == source.size() || digits >= text.size() || text[digits] != ' ')
        return;
    lines.push_back(std::stoi(text.substr(source.size(), digits - source.size())));
    event["args"][1] = source + "N" + text.substr(digits);
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

}  // namespace

Run RunSim(const std::vector<std::string>& args, const std::string& scenario, const std::string& argv0) {
    TempDir dir;
    fs::path scenarioPath = dir / "scenario.json", journalPath = dir / "journal", outPath = dir / "out", errPath = dir / "err";
    std::vector<std::string> env;
    for (char** e = environ; *e != nullptr; ++e)
        if (std::strncmp(*e, "TARNSIM_", 8) != 0) env.emplace_back(*e);
    env.push_back("TARNSIM_JOURNAL=" + journalPath.string());
    if (!scenario.empty()) {
        std::ofstream(scenarioPath) << scenario;
        env.push_back("TARNSIM_SCENARIO=" + scenarioPath.string());
    }
    std::vector<std::string> argvText{argv0};
    argvText.insert(argvText.end(), args.begin(), args.end());
    std::vector<char*> argvPtr, envPtr;
    for (std::string& a : argvText) argvPtr.push_back(a.data());
    for (std::string& e : env) envPtr.push_back(e.data());
    argvPtr.push_back(nullptr);
    envPtr.push_back(nullptr);

    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, outPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, errPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    pid_t pid = -1;
    int spawned = posix_spawn(&pid, TARNSIM_BINARY, &actions, nullptr, argvPtr.data(), envPtr.data());
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
        if (start != std::string::npos) events.push_back(ParseLine(line.substr(start)));
    }
    return events;
}

::testing::AssertionResult JournalEquals(const std::vector<Json::Value>& actual, const std::string& expected) {
    std::vector<Json::Value> want = ParseLines(expected);
    if (actual == want) return ::testing::AssertionSuccess();
    return ::testing::AssertionFailure() << "journal differs\nexpected:\n" << Listing(want) << "actual:\n" << Listing(actual);
}

::testing::AssertionResult JournalContains(const std::vector<Json::Value>& actual, const std::string& expected) {
    std::vector<Json::Value> want = ParseLines(expected);
    size_t next = 0;
    for (const Json::Value& event : actual)
        if (next < want.size() && Matches(event, want[next])) ++next;
    if (next == want.size()) return ::testing::AssertionSuccess();
    return ::testing::AssertionFailure() << "journal lacks, in order, from:\n  " << Compact(want[next])
                                         << "\nexpected in order:\n"
                                         << Listing(want) << "actual:\n"
                                         << Listing(actual);
}

void Check(const Case& c) {
    Run run = RunSim(c.args, c.scenario);
    EXPECT_EQ(run.out, c.out) << "standard output";
    EXPECT_EQ(run.err, c.err) << "standard error";
    EXPECT_EQ(run.status, c.status) << "exit status";
    if (c.check == Journal::Exact) {
        EXPECT_TRUE(JournalEquals(run.journal, c.journal));
    } else if (c.check == Journal::Contains) {
        EXPECT_TRUE(JournalContains(run.journal, c.journal));
    }
    for (int line : run.logLines) EXPECT_GT(line, 0) << "log line number";
}

}  // namespace blackbox
