// tarnnetd: owns the gateway records and the default route of each family, serving them on
// the D-Bus system bus (DBUS_SYSTEM_BUS_ADDRESS chooses another bus) in the foreground.
//   tarnnetd [--records PATH] [--log-stderr]
#include "hostkit/bus.h"
#include "kernel.h"
#include "service.h"
#include "store.h"
#include "watch.h"

#include "hostkit/owned.h"

#include <json/value.h>
#include <signal.h>
#include <systemd/sd-bus.h>
#include <systemd/sd-event.h>
#include <sys/stat.h>
#include <syslog.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>

namespace {

using tarnnetd::Outcome;
using tarnnetd::Service;

constexpr int kExitFailure = 1;
constexpr int kExitUsage = 2;

struct Method {
    const char* name;
    bool change;  // root only
    Outcome (*run)(Service&, const Json::Value&);
};

// One row per bus method: its name, whether it changes state, and the operation it runs.
const Method kMethods[] = {
    {tarnbus::kGetGatewayList, false, [](Service& s, const Json::Value& r) { return s.List(r); }},
    {tarnbus::kGetGatewayByInterface, false, [](Service& s, const Json::Value& r) { return s.ByInterface(r); }},
    {tarnbus::kAddGateway, true, [](Service& s, const Json::Value& r) { return s.Add(r); }},
    {tarnbus::kDeleteGateway, true, [](Service& s, const Json::Value& r) { return s.Delete(r); }},
    {tarnbus::kCopyGateway, true, [](Service& s, const Json::Value& r) { return s.Copy(r); }},
    {tarnbus::kSetSlave, true, [](Service& s, const Json::Value& r) { return s.SetSlave(r); }},
    {tarnbus::kRefresh, true, [](Service& s, const Json::Value& r) { return s.Refresh(r); }},
    {tarnbus::kResetIPv6Module, true, [](Service& s, const Json::Value& r) { return s.ResetIPv6Module(r); }},
    {tarnbus::kGetUplinkState, false, [](Service& s, const Json::Value& r) { return s.UplinkState(r); }},
};

const Method* FindMethod(const char* name) {
    for (const Method& method : kMethods)
        if (name != nullptr && std::strcmp(method.name, name) == 0) return &method;
    return nullptr;
}

bool CallerIsRoot(sd_bus_message* message) {
    sd_bus_creds* creds = nullptr;
    uid_t uid = 1;
    bool root =
        sd_bus_query_sender_creds(message, SD_BUS_CREDS_EUID, &creds) >= 0 && sd_bus_creds_get_euid(creds, &uid) >= 0 && uid == 0;
    sd_bus_creds_unref(creds);
    return root;
}

int Refuse(sd_bus_error* error, const char* name, const char* member, const std::string& reason) {
    syslog(LOG_WARNING, "%s refused: %s", member, reason.c_str());
    return sd_bus_error_set(error, name, reason.c_str());
}

const char* ErrorName(Outcome::Kind kind) {
    if (kind == Outcome::kInvalid) return tarnbus::kErrorInvalid;
    if (kind == Outcome::kNotFound) return tarnbus::kErrorNotFound;
    return tarnbus::kErrorFailed;
}

// Every method: read the one JSON text, check the caller of a change, run, reply.
int Handle(sd_bus_message* message, Service& service, sd_bus_error* error) {
    const char* member = sd_bus_message_get_member(message);
    const Method* method = FindMethod(member);
    const char* text = nullptr;
    int result = sd_bus_message_read(message, tarnbus::kRequestSignature, &text);
    if (method == nullptr || result < 0) return Refuse(error, tarnbus::kErrorInvalid, member ? member : "?", "unreadable call");
    if (method->change && !CallerIsRoot(message)) return Refuse(error, tarnbus::kErrorAccessDenied, member, "changes need root");
    Json::Value request;
    std::string reason;
    if (!tarnnetd::ParseDocument(text, request, reason)) return Refuse(error, tarnbus::kErrorInvalid, member, reason);
    Outcome outcome = method->run(service, request);
    if (outcome.kind != Outcome::kDone) return Refuse(error, ErrorName(outcome.kind), member, outcome.text);
    if (method->change) return sd_bus_reply_method_return(message, tarnbus::kChangeReplySignature);
    return sd_bus_reply_method_return(message, tarnbus::kQueryReplySignature, outcome.text.c_str());
}

// No exception may cross sd-bus's C frames.
int OnMethod(sd_bus_message* message, void* userdata, sd_bus_error* error) {
    try {
        return Handle(message, *static_cast<Service*>(userdata), error);
    } catch (const std::exception& exception) {
        return Refuse(error, tarnbus::kErrorFailed, "call", exception.what());
    }
}

#define TARN_METHOD(name, reply) SD_BUS_METHOD(name, tarnbus::kRequestSignature, reply, OnMethod, SD_BUS_VTABLE_UNPRIVILEGED)

const sd_bus_vtable kVtable[] = {
    SD_BUS_VTABLE_START(0),
    TARN_METHOD(tarnbus::kGetGatewayList, tarnbus::kQueryReplySignature),
    TARN_METHOD(tarnbus::kGetGatewayByInterface, tarnbus::kQueryReplySignature),
    TARN_METHOD(tarnbus::kAddGateway, tarnbus::kChangeReplySignature),
    TARN_METHOD(tarnbus::kDeleteGateway, tarnbus::kChangeReplySignature),
    TARN_METHOD(tarnbus::kCopyGateway, tarnbus::kChangeReplySignature),
    TARN_METHOD(tarnbus::kSetSlave, tarnbus::kChangeReplySignature),
    TARN_METHOD(tarnbus::kRefresh, tarnbus::kChangeReplySignature),
    TARN_METHOD(tarnbus::kResetIPv6Module, tarnbus::kChangeReplySignature),
    TARN_METHOD(tarnbus::kGetUplinkState, tarnbus::kQueryReplySignature),
    SD_BUS_SIGNAL(tarnbus::kUplinkChanged, "s", 0),
    SD_BUS_VTABLE_END,
};

struct BusClose {
    void operator()(sd_bus* bus) const { sd_bus_flush_close_unref(bus); }
};
struct EventUnref {
    void operator()(sd_event* event) const { sd_event_unref(event); }
};

// Set when the log already goes to standard error too.
bool logsToStderr = false;

// Under systemd standard error is a journal stream, which holds the log lines already.
bool StderrIsJournal() {
    const char* stream = std::getenv("JOURNAL_STREAM");
    struct stat status {};
    if (stream == nullptr || fstat(STDERR_FILENO, &status) != 0) return false;
    return stream == std::to_string(status.st_dev) + ":" + std::to_string(status.st_ino);
}

// A reason not to run is also told to whoever started the daemon.
int Die(const std::string& message) {
    syslog(LOG_ERR, "%s", message.c_str());
    if (!logsToStderr) std::fprintf(stderr, "tarnnetd: %s\n", message.c_str());
    return kExitFailure;
}

std::string Reason(int negativeErrno) { return std::strerror(-negativeErrno); }

int OnReload(sd_event_source*, const signalfd_siginfo*, void* watch) {
    static_cast<tarnnetd::Watch*>(watch)->Reload();
    return 0;
}

int Serve(Service& service, const std::string& path) {
    sd_event* rawEvent = nullptr;
    int result = sd_event_default(&rawEvent);
    std::unique_ptr<sd_event, EventUnref> event(rawEvent);
    if (result < 0) return Die("cannot make the event loop: " + Reason(result));
    sigset_t taken;
    sigemptyset(&taken);
    for (int signal : {SIGTERM, SIGINT, SIGHUP, SIGCHLD}) sigaddset(&taken, signal);
    // A null handler ends the loop; the signals are blocked so that only the loop sees them
    // (SIGCHLD for the scripts' child sources).
    if (sigprocmask(SIG_BLOCK, &taken, nullptr) != 0 ||
        sd_event_add_signal(event.get(), nullptr, SIGTERM, nullptr, nullptr) < 0 ||
        sd_event_add_signal(event.get(), nullptr, SIGINT, nullptr, nullptr) < 0)
        return Die("cannot catch SIGTERM");
    tarnnetd::Watch watch(event.get(), service, tarnlinux::kTrackingPath, tarnlinux::kTrackingScriptsDir);
    std::string error;
    if (!watch.Load(error)) return Die(error);
    if (sd_event_add_signal(event.get(), nullptr, SIGHUP, OnReload, &watch) < 0) return Die("cannot catch SIGHUP");
    sd_bus* rawBus = nullptr;
    result = sd_bus_open_system(&rawBus);
    std::unique_ptr<sd_bus, BusClose> bus(rawBus);
    if (result < 0) return Die("cannot connect to the system bus: " + Reason(result));
    if ((result = sd_bus_add_object_vtable(bus.get(), nullptr, tarnbus::kPath, tarnbus::kInterface, kVtable, &service)) < 0 ||
        (result = sd_bus_attach_event(bus.get(), event.get(), SD_EVENT_PRIORITY_NORMAL)) < 0)
        return Die("cannot serve " + std::string(tarnbus::kPath) + ": " + Reason(result));
    // A lost bus ends the loop, and the daemon with a failure, so that its supervisor restarts
    // it; serving on deaf would leave every call unanswered.
    if ((result = sd_bus_set_exit_on_disconnect(bus.get(), 1)) < 0) return Die("cannot watch the bus: " + Reason(result));
    // The name comes last: whoever sees it owned may call at once.
    if ((result = sd_bus_request_name(bus.get(), tarnbus::kName, 0)) < 0)
        return Die("cannot own the bus name " + std::string(tarnbus::kName) + ": " + Reason(result));
    // Only the owner of the name writes the records, so only it may clear what writes left.
    tarnnetd::RemoveLeftovers(path);
    tarnnetd::FinishIPv6Resets();
    // After a reboot the device has no default route of ours until it is chosen; calls queue
    // behind this, so the first answer already sees it.
    if (!watch.Start(bus.get(), error)) return Die(error);
    syslog(LOG_INFO, "serving %s", tarnbus::kName);
    result = sd_event_loop(event.get());
    if (result < 0) return Die("event loop failed: " + Reason(result));
    // SIGTERM and SIGINT end the loop with 0, a lost bus with EXIT_FAILURE.
    if (result != 0) return Die("the system bus went away");
    syslog(LOG_INFO, "stopped");
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    std::string path = tarnlinux::kGatewayRecordsPath;
    int logOptions = LOG_PID;
    for (int i = 1; i < argc; ++i) {
        std::string arg = argv[i];
        if (arg == "--log-stderr")
            logOptions |= LOG_PERROR;
        else if (arg == "--records" && i + 1 < argc)
            path = argv[++i];
        else {
            std::fprintf(stderr, "usage: tarnnetd [--records PATH] [--log-stderr]\n");
            return kExitUsage;
        }
    }
    logsToStderr = (logOptions & LOG_PERROR) != 0 || StderrIsJournal();
    openlog("tarnnetd", logOptions, LOG_DAEMON);
    Service service(path);
    std::string error;
    if (!service.Load(error)) return Die(error);
    return Serve(service, path);
}
