// Scripts run on every change of an uplink's state: the executables of a directory in name
// order, one at a time, without a shell, each bounded in time, their output to the log. The
// event loop never waits for them.
#ifndef TARNNETD_SCRIPTS_H
#define TARNNETD_SCRIPTS_H

#include "tracker.h"

#include <systemd/sd-event.h>
#include <sys/types.h>

#include <deque>
#include <string>
#include <vector>

namespace tarnnetd {

class ScriptRunner {
public:
    explicit ScriptRunner(sd_event* event) : event_(event) {}
    // Queues every executable regular file of `dir` (none hidden), in name order, each with
    // `env` as its whole environment and killed with its process group past `limitUsec`.
    void RunAll(const std::string& dir, const std::vector<std::string>& env, uint64_t limitUsec);

private:
    struct Job {
        std::string path;
        std::vector<std::string> env;
        uint64_t limitUsec;
    };
    static int OnOutput(sd_event_source* source, int fd, uint32_t revents, void* self);
    static int OnExit(sd_event_source* source, const siginfo_t* info, void* self);
    static int OnTimeout(sd_event_source* source, uint64_t usec, void* self);
    void StartNext();
    void Supervise(uint64_t limitUsec);
    void Finish();
    void Drain(bool all);
    void LogLine(const std::string& line);

    sd_event* event_;
    std::deque<Job> queue_;
    pid_t pid_ = 0;  // the one running, 0 when none
    std::string name_;
    tarnlinux::Fd output_;
    std::string partial_;
    EventSource outputSource_;
    EventSource exitSource_;
    EventSource timeoutSource_;
};

}  // namespace tarnnetd

#endif
