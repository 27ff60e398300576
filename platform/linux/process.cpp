// Core library on Linux: programs started without a shell, with exactly the arguments given.
#include "hostkit/fd.h"
#include "tarncore.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>

#include <cerrno>
#include <cstdarg>
#include <map>
#include <mutex>
#include <vector>

extern char** environ;

namespace {

// Where a child's standard input or output comes from: the tool's own, /dev/null, or a
// descriptor of the tool.
constexpr int kInherit = -1;
constexpr int kDevNull = -2;
constexpr char kDevNullPath[] = "/dev/null";

// The argv of a program: its path, then the arguments up to the terminating null pointer.
std::vector<char*> ArgvOf(const char* path, va_list ap) {
    std::vector<char*> argv{const_cast<char*>(path)};
    while (char* arg = va_arg(ap, char*)) argv.push_back(arg);
    argv.push_back(nullptr);
    return argv;
}

// posix_spawn's attributes and file actions, released on every path.
class SpawnPlan {
public:
    SpawnPlan() {
        actionsReady_ = posix_spawn_file_actions_init(&actions_) == 0;
        attrReady_ = posix_spawnattr_init(&attr_) == 0;
    }
    ~SpawnPlan() {
        if (actionsReady_) posix_spawn_file_actions_destroy(&actions_);
        if (attrReady_) posix_spawnattr_destroy(&attr_);
    }
    SpawnPlan(const SpawnPlan&) = delete;
    SpawnPlan& operator=(const SpawnPlan&) = delete;

    // The child starts with default signal handling and nothing blocked, whatever the tool
    // inherited (an ignored SIGPIPE would otherwise reach the program).
    bool DefaultSignals() {
        sigset_t all, none;
        sigfillset(&all);
        sigemptyset(&none);
        return attrReady_ && posix_spawnattr_setsigdefault(&attr_, &all) == 0 && posix_spawnattr_setsigmask(&attr_, &none) == 0 &&
               posix_spawnattr_setflags(&attr_, POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSIGMASK) == 0;
    }

    bool Route(int from, int target, int openFlags) {
        if (!actionsReady_) return false;
        if (from == kInherit) return true;
        if (from == kDevNull) return posix_spawn_file_actions_addopen(&actions_, target, kDevNullPath, openFlags, 0) == 0;
        return posix_spawn_file_actions_adddup2(&actions_, from, target) == 0;
    }

    pid_t Start(const std::vector<char*>& argv) {
        pid_t pid = -1;
        if (posix_spawn(&pid, argv[0], &actions_, &attr_, argv.data(), environ) != 0) return -1;
        return pid;
    }

private:
    posix_spawn_file_actions_t actions_;
    posix_spawnattr_t attr_;
    bool actionsReady_ = false;
    bool attrReady_ = false;
};

// Starts argv[0] (a path, no search, no shell); the child's pid or -1.
pid_t Spawn(const std::vector<char*>& argv, int childIn, int childOut) {
    SpawnPlan plan;
    if (!plan.DefaultSignals() || !plan.Route(childIn, STDIN_FILENO, O_RDONLY) || !plan.Route(childOut, STDOUT_FILENO, O_WRONLY))
        return -1;
    // What the tool has written must come before anything the child writes to the same place.
    if (childOut == kInherit) std::fflush(stdout);
    return plan.Start(argv);
}

// Waits for the child: its wait status, or -1.
int Reap(pid_t pid) {
    int status = 0;
    while (waitpid(pid, &status, 0) < 0) {
        if (errno != EINTR) return -1;
    }
    return status;
}

// The programs behind the open streams of TLIBCPopen.
std::mutex streamsMutex;
std::map<FILE*, pid_t> streams;

bool Register(FILE* stream, pid_t pid) {
    std::lock_guard<std::mutex> lock(streamsMutex);
    try {
        streams.emplace(stream, pid);
        return true;
    } catch (...) {
        return false;
    }
}

pid_t Unregister(FILE* stream) {
    std::lock_guard<std::mutex> lock(streamsMutex);
    auto found = streams.find(stream);
    if (found == streams.end()) return -1;
    pid_t pid = found->second;
    streams.erase(found);
    return pid;
}

}  // namespace

extern "C" {

FILE* TLIBCPopen(const char* path, const char* mode, ...) {
    if (path == nullptr || mode == nullptr || (mode[0] != 'r' && mode[0] != 'w') || mode[1] != '\0') {
        errno = EINVAL;
        return nullptr;
    }
    bool reading = mode[0] == 'r';
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) return nullptr;
    tarnlinux::Fd readEnd(ends[0]);
    tarnlinux::Fd writeEnd(ends[1]);
    va_list ap;
    va_start(ap, mode);
    std::vector<char*> argv = ArgvOf(path, ap);
    va_end(ap);
    pid_t pid = reading ? Spawn(argv, kInherit, writeEnd.Get()) : Spawn(argv, readEnd.Get(), kInherit);
    if (pid < 0) return nullptr;
    tarnlinux::Fd& mine = reading ? readEnd : writeEnd;
    FILE* stream = fdopen(mine.Get(), mode);
    if (stream != nullptr) mine.Release();
    if (stream != nullptr && Register(stream, pid)) return stream;
    // The child sees its pipe end close before it is reaped, so it cannot wait on us.
    if (stream != nullptr) std::fclose(stream);
    readEnd.Reset();
    writeEnd.Reset();
    Reap(pid);
    return nullptr;
}

int TLIBCPclose(FILE* stream) {
    if (stream == nullptr) return -1;
    pid_t pid = Unregister(stream);
    if (pid < 0) return -1;
    std::fclose(stream);
    int status = Reap(pid);
    return status >= 0 && WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

// The program's standard input and output are /dev/null: the tool's standard output carries
// only the tool's results.
int TLIBCExec(const char* path, ...) {
    if (path == nullptr) return -1;
    va_list ap;
    va_start(ap, path);
    std::vector<char*> argv = ArgvOf(path, ap);
    va_end(ap);
    pid_t pid = Spawn(argv, kDevNull, kDevNull);
    if (pid < 0) return -1;
    int status = Reap(pid);
    return status >= 0 && WIFEXITED(status) && WEXITSTATUS(status) == 0 ? 0 : -1;
}

}  // extern "C"
