// Core library on Linux: programs started without a shell, with exactly the arguments given,
// each bounded in time. What a program writes to standard error (and, for TLIBCExec, standard
// output) goes to the system log: the tool's own standard output and error carry only its
// results and complaints.
#include "hostkit/fd.h"
#include "hostkit/log.h"
#include "tarncore.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <syslog.h>

#include <cerrno>
#include <chrono>
#include <cstdarg>
#include <cstdlib>
#include <cstring>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

extern char** environ;

namespace {

using Clock = std::chrono::steady_clock;

// A program past this is killed, with the programs it started in its process group: a hung
// restart script must not hold the router lock, nor ifconfig the multi-gateway actions.
constexpr std::chrono::seconds kRunLimit{5};
// What a program may hand back through TLIBCPopen; ifconfig of one interface is far less.
constexpr size_t kMaxCapture = 1 << 20;
constexpr char kDevNullPath[] = "/dev/null";
constexpr char kLogComponent[] = "program";

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
    // inherited (an ignored SIGPIPE would otherwise reach the program), in a process group of
    // its own so that a kill reaches what it started.
    bool Prepare() {
        sigset_t all, none;
        sigfillset(&all);
        sigemptyset(&none);
        short flags = POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETPGROUP;
        return attrReady_ && posix_spawnattr_setsigdefault(&attr_, &all) == 0 && posix_spawnattr_setsigmask(&attr_, &none) == 0 &&
               posix_spawnattr_setpgroup(&attr_, 0) == 0 && posix_spawnattr_setflags(&attr_, flags) == 0;
    }

    // `from` < 0: /dev/null.
    bool Route(int from, int target, int openFlags) {
        if (!actionsReady_) return false;
        if (from < 0) return posix_spawn_file_actions_addopen(&actions_, target, kDevNullPath, openFlags, 0) == 0;
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

// Each complete line of a program's output to the log under the program's path.
class LineLog {
public:
    explicit LineLog(const char* path) : path_(path) {}
    ~LineLog() { Flush(); }
    LineLog(const LineLog&) = delete;
    LineLog& operator=(const LineLog&) = delete;

    void Add(const char* data, size_t size) {
        pending_.append(data, size);
        for (size_t end; (end = pending_.find('\n')) != std::string::npos; pending_.erase(0, end + 1))
            tarnlinux::Log(LOG_INFO, kLogComponent, path_ + ": " + pending_.substr(0, end));
    }
    void Flush() {
        if (!pending_.empty()) tarnlinux::Log(LOG_INFO, kLogComponent, path_ + ": " + pending_);
        pending_.clear();
    }

private:
    std::string path_;
    std::string pending_;
};

// Reads what is there now; false at the end of the output.
bool Drain(int fd, std::string* capture, LineLog& log) {
    char chunk[4096];
    for (;;) {
        ssize_t got = read(fd, chunk, sizeof chunk);
        if (got < 0 && errno == EINTR) continue;
        if (got < 0) return errno == EAGAIN;
        if (got == 0) return false;
        if (capture != nullptr && capture->size() < kMaxCapture)
            capture->append(chunk, std::min(static_cast<size_t>(got), kMaxCapture - capture->size()));
        if (capture == nullptr) log.Add(chunk, static_cast<size_t>(got));
    }
}

// Starts argv[0] (a path, no search, no shell) with standard input from `in` (-1: /dev/null),
// standard output to `out` and standard error to `err`; the child's pid or -1.
pid_t Spawn(const std::vector<char*>& argv, int in, int out, int err) {
    SpawnPlan plan;
    if (!plan.Prepare() || !plan.Route(in, STDIN_FILENO, O_RDONLY) || !plan.Route(out, STDOUT_FILENO, O_WRONLY) ||
        !plan.Route(err, STDERR_FILENO, O_WRONLY))
        return -1;
    return plan.Start(argv);
}

// Waits for the child until `deadline` while its output pipes (-1: none) are read: standard
// output into `capture` or the log, standard error into the log. Past the deadline the child's
// process group is killed. The wait status, or -1.
int Supervise(pid_t pid, const char* path, int out, std::string* capture, int err, Clock::time_point deadline) {
    tarnlinux::Fd child(static_cast<int>(syscall(SYS_pidfd_open, pid, 0)));
    LineLog outLog(path);
    LineLog errLog(path);
    bool exited = false;
    while (!exited && child.Get() >= 0) {
        auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()).count();
        if (left <= 0) {
            kill(-pid, SIGKILL);
            tarnlinux::Logf(LOG_ERR, kLogComponent, "%s killed: still running after %lld s", path,
                            static_cast<long long>(kRunLimit.count()));
            break;
        }
        pollfd fds[] = {{child.Get(), POLLIN, 0}, {out, POLLIN, 0}, {err, POLLIN, 0}};
        if (poll(fds, 3, static_cast<int>(left)) < 0 && errno != EINTR) break;
        exited = (fds[0].revents & POLLIN) != 0;
        // Output still buffered when it ended is read before the pipes close; a grandchild that
        // keeps them open does not hold us.
        if (out >= 0 && (exited || fds[1].revents != 0) && !Drain(out, capture, outLog)) out = -1;
        if (err >= 0 && (exited || fds[2].revents != 0) && !Drain(err, nullptr, errLog)) err = -1;
    }
    if (child.Get() < 0) kill(-pid, SIGKILL);  // no pidfd: no way to bound the wait
    int status = 0;
    while (waitpid(pid, &status, 0) < 0) {
        if (errno != EINTR) return -1;
    }
    return status;
}

// A non-blocking pipe: [0] ours to read, [1] the child's.
bool OutputPipe(tarnlinux::Fd ends[2]) {
    int fds[2];
    if (pipe2(fds, O_CLOEXEC) != 0) return false;
    ends[0].Reset(fds[0]);
    ends[1].Reset(fds[1]);
    return fcntl(fds[0], F_SETFL, O_NONBLOCK) == 0;
}

// Runs the program to its end or its time limit; its wait status, or -1 when it did not start.
int Run(const std::vector<char*>& argv, std::string* capture) {
    tarnlinux::Fd out[2];
    tarnlinux::Fd err[2];
    if (!OutputPipe(out) || !OutputPipe(err)) return -1;
    pid_t pid = Spawn(argv, -1, out[1].Get(), err[1].Get());
    out[1].Reset();
    err[1].Reset();
    if (pid < 0) return -1;
    return Supervise(pid, argv[0], out[0].Get(), capture, err[0].Get(), Clock::now() + kRunLimit);
}

// The streams of TLIBCPopen: a reading one holds the output of a program that has ended; a
// writing one feeds a running program.
struct Stream {
    std::string path;
    pid_t pid = -1;                       // a writing stream's program
    int status = 0;                       // a reading stream's program's wait status
    std::unique_ptr<std::string> output;  // a reading stream's buffer, which must not move
};
std::mutex streamsMutex;
std::map<FILE*, Stream> streams;

FILE* Register(FILE* stream, Stream entry) {
    if (stream == nullptr) return nullptr;
    std::lock_guard<std::mutex> lock(streamsMutex);
    try {
        streams.emplace(stream, std::move(entry));
        return stream;
    } catch (...) {
        std::fclose(stream);
        return nullptr;
    }
}

int ExitStatus(int status) { return status >= 0 && WIFEXITED(status) ? WEXITSTATUS(status) : -1; }

}  // namespace

extern "C" {

// A reading program runs to its end (or its limit) first and hands back what it wrote, so that
// the caller's reads cannot hang on it. A writing program's own output goes nowhere.
FILE* TLIBCPopen(const char* path, const char* mode, ...) {
    if (path == nullptr || mode == nullptr || (mode[0] != 'r' && mode[0] != 'w') || mode[1] != '\0') {
        errno = EINVAL;
        return nullptr;
    }
    va_list ap;
    va_start(ap, mode);
    std::vector<char*> argv = ArgvOf(path, ap);
    va_end(ap);
    if (mode[0] == 'r') {
        auto output = std::make_unique<std::string>();
        int status = Run(argv, output.get());
        if (status < 0) return nullptr;
        // fmemopen refuses an empty buffer.
        FILE* stream = output->empty() ? std::fopen(kDevNullPath, "r") : fmemopen(output->data(), output->size(), "r");
        return Register(stream, Stream{path, -1, status, std::move(output)});
    }
    tarnlinux::Fd ends[2];
    if (!OutputPipe(ends)) return nullptr;
    fcntl(ends[0].Get(), F_SETFL, 0);  // the program's standard input blocks as usual
    pid_t pid = Spawn(argv, ends[0].Get(), -1, -1);
    ends[0].Reset();
    if (pid < 0) return nullptr;
    FILE* stream = fdopen(ends[1].Get(), mode);
    if (stream == nullptr) {
        ends[1].Reset();
        Supervise(pid, path, -1, nullptr, -1, Clock::now() + kRunLimit);
        return nullptr;
    }
    ends[1].Release();
    return Register(stream, Stream{path, pid, 0, nullptr});
}

int TLIBCPclose(FILE* stream) {
    if (stream == nullptr) return -1;
    Stream entry;
    {
        std::lock_guard<std::mutex> lock(streamsMutex);
        auto found = streams.find(stream);
        if (found == streams.end()) return -1;
        entry = std::move(found->second);
        streams.erase(found);
    }
    std::fclose(stream);
    if (entry.pid < 0) return ExitStatus(entry.status);
    return ExitStatus(Supervise(entry.pid, entry.path.c_str(), -1, nullptr, -1, Clock::now() + kRunLimit));
}

int TLIBCExec(const char* path, ...) {
    if (path == nullptr) return -1;
    va_list ap;
    va_start(ap, path);
    std::vector<char*> argv = ArgvOf(path, ap);
    va_end(ap);
    return ExitStatus(Run(argv, nullptr)) == 0 ? 0 : -1;
}

}  // extern "C"
