#include "scripts.h"

#include "hostkit/log.h"

#include <dirent.h>
#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <syslog.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <memory>

namespace tarnnetd {
namespace {

constexpr const char* kComponent = "script";
// A flapping uplink cannot queue work without end; what is past this is dropped and logged.
constexpr size_t kMaxQueued = 64;
constexpr size_t kMaxLineBytes = 1024;
constexpr uint64_t kTimeoutAccuracyUsec = 10'000;

std::vector<std::string> Executables(const std::string& dir) {
    std::vector<std::string> names;
    std::unique_ptr<DIR, int (*)(DIR*)> listing(opendir(dir.c_str()), closedir);
    while (dirent* entry = listing ? readdir(listing.get()) : nullptr) {
        struct stat info;
        std::string name = entry->d_name;
        if (name.empty() || name[0] == '.' || fstatat(dirfd(listing.get()), name.c_str(), &info, AT_SYMLINK_NOFOLLOW) != 0)
            continue;
        if (S_ISREG(info.st_mode) && (info.st_mode & S_IXUSR) != 0) names.push_back(name);
    }
    std::sort(names.begin(), names.end());
    return names;
}

std::vector<char*> Pointers(std::vector<std::string>& texts) {
    std::vector<char*> pointers;
    for (std::string& text : texts) pointers.push_back(text.data());
    pointers.push_back(nullptr);
    return pointers;
}

// The child: a process group of its own (so that a kill reaches what it starts), default
// signals and an empty mask (the daemon blocks those its loop takes), stdin from /dev/null,
// stdout and stderr to `out`. 0 with errno's value when it did not start.
int Spawn(std::string path, std::vector<std::string> env, int out, pid_t& pid) {
    posix_spawn_file_actions_t actions;
    posix_spawnattr_t attributes;
    posix_spawn_file_actions_init(&actions);
    posix_spawnattr_init(&attributes);
    posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_adddup2(&actions, out, STDOUT_FILENO);
    posix_spawn_file_actions_adddup2(&actions, out, STDERR_FILENO);
    sigset_t none;
    sigset_t all;
    sigemptyset(&none);
    sigfillset(&all);
    posix_spawnattr_setsigmask(&attributes, &none);
    posix_spawnattr_setsigdefault(&attributes, &all);
    posix_spawnattr_setpgroup(&attributes, 0);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETPGROUP);
    std::vector<std::string> argv{path};
    std::vector<char*> args = Pointers(argv);
    std::vector<char*> envp = Pointers(env);
    int failed = posix_spawn(&pid, path.c_str(), &actions, &attributes, args.data(), envp.data());
    posix_spawn_file_actions_destroy(&actions);
    posix_spawnattr_destroy(&attributes);
    return failed;
}

}  // namespace

void ScriptRunner::RunAll(const std::string& dir, const std::vector<std::string>& env, uint64_t limitUsec) {
    for (const std::string& name : Executables(dir)) {
        if (queue_.size() >= kMaxQueued) {
            tarnlinux::Log(LOG_WARNING, kComponent, "too many queued, " + name + " not run");
            continue;
        }
        queue_.push_back(Job{dir + "/" + name, env, limitUsec});
    }
    if (pid_ == 0) StartNext();
}

void ScriptRunner::StartNext() {
    while (pid_ == 0 && !queue_.empty()) {
        Job job = std::move(queue_.front());
        queue_.pop_front();
        name_ = job.path;
        int ends[2];
        if (pipe2(ends, O_CLOEXEC) != 0) {
            tarnlinux::Log(LOG_ERR, kComponent, "cannot make a pipe: " + std::string(std::strerror(errno)));
            continue;
        }
        tarnlinux::Fd readEnd(ends[0]);
        tarnlinux::Fd writeEnd(ends[1]);
        pid_t pid = 0;
        if (int failed = Spawn(job.path, job.env, writeEnd.Get(), pid)) {
            tarnlinux::Log(LOG_WARNING, kComponent, name_ + ": not started: " + std::strerror(failed));
            continue;
        }
        pid_ = pid;
        fcntl(readEnd.Get(), F_SETFL, O_NONBLOCK);
        output_.Reset(readEnd.Release());
        Supervise(job.limitUsec);
    }
}

// Output, end and time limit of the one running; one that cannot be waited for is killed now.
void ScriptRunner::Supervise(uint64_t limitUsec) {
    sd_event_source* source = nullptr;
    if (sd_event_add_io(event_, &source, output_.Get(), EPOLLIN, OnOutput, this) >= 0) outputSource_.reset(source);
    if (sd_event_add_time_relative(event_, &source, CLOCK_MONOTONIC, limitUsec, kTimeoutAccuracyUsec, OnTimeout, this) >= 0)
        timeoutSource_.reset(source);
    if (sd_event_add_child(event_, &source, pid_, WEXITED, OnExit, this) >= 0) {
        exitSource_.reset(source);
        return;
    }
    kill(-pid_, SIGKILL);
    waitpid(pid_, nullptr, 0);
    Finish();
}

void ScriptRunner::LogLine(const std::string& line) { tarnlinux::Log(LOG_INFO, kComponent, name_ + ": " + line); }

// Reads what is there; `all` at the end, when a last line without its newline counts too.
void ScriptRunner::Drain(bool all) {
    char buffer[4096];
    ssize_t got = 0;
    while (output_.Get() >= 0 && (got = read(output_.Get(), buffer, sizeof buffer)) > 0) {
        partial_.append(buffer, static_cast<size_t>(got));
        size_t end = 0;
        while ((end = partial_.find('\n')) != std::string::npos) {
            LogLine(partial_.substr(0, end));
            partial_.erase(0, end + 1);
        }
        if (partial_.size() > kMaxLineBytes) {
            LogLine(partial_);
            partial_.clear();
        }
    }
    if (got == 0) outputSource_.reset();  // the writers are gone
    if (all && !partial_.empty()) LogLine(partial_);
    if (all) partial_.clear();
}

int ScriptRunner::OnOutput(sd_event_source*, int, uint32_t, void* self) {
    static_cast<ScriptRunner*>(self)->Drain(false);
    return 0;
}

int ScriptRunner::OnTimeout(sd_event_source*, uint64_t, void* self) {
    auto* runner = static_cast<ScriptRunner*>(self);
    tarnlinux::Log(LOG_WARNING, kComponent, runner->name_ + ": killed, past its time limit");
    kill(-runner->pid_, SIGKILL);
    return 0;
}

int ScriptRunner::OnExit(sd_event_source*, const siginfo_t* info, void* self) {
    auto* runner = static_cast<ScriptRunner*>(self);
    runner->Drain(true);
    if (info->si_code != CLD_EXITED || info->si_status != 0)
        tarnlinux::Log(LOG_WARNING, kComponent,
                       runner->name_ + (info->si_code == CLD_EXITED ? ": exit status " : ": ended by signal ") +
                           std::to_string(info->si_status));
    // What the script left behind in its group goes with it, and holds neither pipe nor slot.
    // The child is reaped only after this returns, so its id still names its group.
    kill(-runner->pid_, SIGKILL);
    runner->Finish();
    return 0;
}

void ScriptRunner::Finish() {
    pid_ = 0;
    outputSource_.reset();
    output_.Reset();
    exitSource_.reset();
    timeoutSource_.reset();
    StartNext();
}

}  // namespace tarnnetd
