#include "hostile/process.h"

#include <fcntl.h>
#include <iconv.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>

extern char** environ;

namespace hostile {
namespace {

using Clock = std::chrono::steady_clock;

// Waits for `pid` at most `limit`, kills it there, and reaps it on every path.
Ended Await(pid_t pid, Millis limit) {
    auto start = Clock::now();
    int pidfd = static_cast<int>(syscall(SYS_pidfd_open, pid, 0));
    if (pidfd < 0) {
        kill(pid, SIGKILL);
        waitpid(pid, nullptr, 0);
        throw std::runtime_error(std::string("pidfd_open: ") + std::strerror(errno));
    }
    struct pollfd ended = {pidfd, POLLIN, 0};
    for (;;) {
        auto left = std::chrono::duration_cast<Millis>(start + limit - Clock::now());
        if (left.count() <= 0 || poll(&ended, 1, static_cast<int>(left.count())) >= 0) break;
        if (errno != EINTR) break;
    }
    close(pidfd);
    Ended result;
    int wstatus = 0;
    if (waitpid(pid, &wstatus, WNOHANG) == pid) {
        result.status = WIFEXITED(wstatus) ? WEXITSTATUS(wstatus) : 128 + WTERMSIG(wstatus);
    } else {
        kill(pid, SIGKILL);
        waitpid(pid, nullptr, 0);
    }
    result.took = std::chrono::duration_cast<Millis>(Clock::now() - start);
    return result;
}

}  // namespace

Ended InChild(const std::function<int()>& body, Millis limit) {
    pid_t pid = fork();
    if (pid < 0) throw std::runtime_error(std::string("fork: ") + std::strerror(errno));
    if (pid == 0) _exit(body());
    return Await(pid, limit);
}

ToolRun RunTool(const std::vector<std::string>& args, const std::vector<std::string>& env, const std::string& dir, Millis limit) {
    std::vector<std::string> argvText{"tarnnetdtool"}, envText;
    argvText.insert(argvText.end(), args.begin(), args.end());
    for (char** e = environ; *e != nullptr; ++e)
        if (std::strncmp(*e, "TARNSIM_", 8) != 0) envText.emplace_back(*e);
    envText.insert(envText.end(), env.begin(), env.end());
    std::vector<char*> argvPtr, envPtr;
    for (std::string& a : argvText) argvPtr.push_back(a.data());
    for (std::string& e : envText) envPtr.push_back(e.data());
    argvPtr.push_back(nullptr);
    envPtr.push_back(nullptr);

    std::string outPath = dir + "/out", errPath = dir + "/err";
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, outPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, errPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    pid_t pid = -1;
    int spawned = posix_spawn(&pid, TARNSIM_BINARY, &actions, nullptr, argvPtr.data(), envPtr.data());
    posix_spawn_file_actions_destroy(&actions);
    if (spawned != 0) throw std::runtime_error(std::string("cannot start the tool: ") + std::strerror(spawned));
    ToolRun run;
    run.ended = Await(pid, limit);
    run.out = ReadFile(outPath);
    run.err = ReadFile(errPath);
    return run;
}

TempDir::TempDir() {
    std::string pattern = (std::filesystem::temp_directory_path() / "tarnhostile-XXXXXX").string();
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

}  // namespace hostile
