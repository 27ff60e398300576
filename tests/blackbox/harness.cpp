#include "blackbox/harness.h"

#include <json/reader.h>
#include <json/writer.h>

#include <fcntl.h>
#include <iconv.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <set>
#include <sstream>
#include <thread>

extern char** environ;

namespace blackbox {
namespace {

using Clock = std::chrono::steady_clock;
using namespace std::chrono_literals;

constexpr Millis kSimLimit = 30s;

// Waits for `pid` at most `limit`, kills it there, and reaps it on every path.
Run Await(pid_t pid, Millis limit) {
    auto start = Clock::now();
    Run run;
    int wstatus = 0;
    pid_t done = 0;
    while ((done = waitpid(pid, &wstatus, WNOHANG)) == 0 && Clock::now() - start < limit) std::this_thread::sleep_for(1ms);
    if (done == pid) {
        run.status = WIFEXITED(wstatus) ? WEXITSTATUS(wstatus) : 128 + WTERMSIG(wstatus);
    } else {
        kill(pid, SIGKILL);
        waitpid(pid, nullptr, 0);
    }
    run.took = std::chrono::duration_cast<Millis>(Clock::now() - start);
    return run;
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

Run RunTool(const std::vector<std::string>& args, const std::vector<std::string>& env, const std::string& dir, Millis limit,
            const std::string& argv0) {
    std::vector<std::string> argvText{argv0}, envText;
    argvText.insert(argvText.end(), args.begin(), args.end());
    for (char** e = environ; *e != nullptr; ++e)
        if (std::strncmp(*e, "TARNSIM_", 8) != 0) envText.emplace_back(*e);
    envText.insert(envText.end(), env.begin(), env.end());
    std::vector<char*> argv, envp;
    for (std::string& a : argvText) argv.push_back(a.data());
    for (std::string& e : envText) envp.push_back(e.data());
    argv.push_back(nullptr);
    envp.push_back(nullptr);

    std::string outPath = dir + "/out", errPath = dir + "/err";
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, outPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, errPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    pid_t pid = -1;
    int spawned = posix_spawn(&pid, TARNSIM_BINARY, &actions, nullptr, argv.data(), envp.data());
    posix_spawn_file_actions_destroy(&actions);
    if (spawned != 0) throw std::runtime_error(std::string("cannot start the tool: ") + std::strerror(spawned));
    Run run = Await(pid, limit);
    run.out = ReadFile(outPath);
    run.err = ReadFile(errPath);
    return run;
}

Run RunSim(const std::vector<std::string>& args, const std::string& scenario, const std::string& argv0) {
    TempDir dir;
    std::vector<std::string> env{"TARNSIM_JOURNAL=" + (dir / "journal")};
    if (!scenario.empty()) {
        std::ofstream(dir / "scenario.json") << scenario;
        env.push_back("TARNSIM_SCENARIO=" + (dir / "scenario.json"));
    }
    Run run = RunTool(args, env, dir.Path(), kSimLimit, argv0);
    run.journal = ParseLines(ReadFile(dir / "journal"));
    for (Json::Value& event : run.journal) Normalize(event, run.logLines);
    return run;
}

Run InChild(const std::function<int()>& body, Millis limit) {
    pid_t pid = fork();
    if (pid < 0) throw std::runtime_error(std::string("fork: ") + std::strerror(errno));
    if (pid == 0) _exit(body());
    return Await(pid, limit);
}

TempDir::TempDir() {
    std::string pattern = (std::filesystem::temp_directory_path() / "tarntest-XXXXXX").string();
    if (mkdtemp(pattern.data()) == nullptr) throw std::runtime_error(std::string("mkdtemp: ") + std::strerror(errno));
    path_ = pattern;
}

TempDir::~TempDir() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
}

std::string ReadFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
}

bool IsUtf8(const std::string& text) {
    iconv_t cd = iconv_open("UTF-8", "UTF-8");
    if (cd == reinterpret_cast<iconv_t>(-1)) throw std::runtime_error("iconv_open: no UTF-8");
    std::string in = text, out(text.size() + 4, '\0');
    char* from = in.data();
    char* to = out.data();
    size_t fromLeft = in.size(), toLeft = out.size();
    size_t converted = iconv(cd, &from, &fromLeft, &to, &toLeft);
    iconv_close(cd);
    return converted != static_cast<size_t>(-1) && fromLeft == 0;
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
