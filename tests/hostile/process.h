// Processes with a time limit, for inputs that may make the code under test hang or crash.
#ifndef TESTS_HOSTILE_PROCESS_H
#define TESTS_HOSTILE_PROCESS_H

#include <chrono>
#include <functional>
#include <string>
#include <vector>

namespace hostile {

using Millis = std::chrono::milliseconds;

// Status of a process killed at its time limit.
constexpr int kTimedOut = -1;

struct Ended {
    int status = kTimedOut;  // exit status, or 128 + signal, or kTimedOut
    Millis took{0};
};

// Runs `body` in a forked child whose exit status is body's result, killed at `limit`.
Ended InChild(const std::function<int()>& body, Millis limit);

struct ToolRun {
    Ended ended;
    std::string out;
    std::string err;
};

// Runs the simulated tool with argv[0] "tarnnetdtool", `args`, and `env` in place of our own
// TARNSIM_ variables, in the directory `dir` (standard output and error go to files there);
// killed at `limit`.
ToolRun RunTool(const std::vector<std::string>& args, const std::vector<std::string>& env, const std::string& dir, Millis limit);

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
// Whether `text` is well-formed UTF-8.
bool IsUtf8(const std::string& text);

}  // namespace hostile

#endif
