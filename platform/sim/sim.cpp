// Loads TARNSIM_SCENARIO and opens TARNSIM_JOURNAL before the tool runs, so that a bad
// scenario stops the process before any call is answered.
#include "sim.h"

#include <json/reader.h>
#include <json/writer.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <memory>
#include <sstream>

namespace sim {
namespace {

enum class Kind { Int, Bool, Text, Ptr, TextList, PairList };

// Every op whose result a scenario may script, with the kind of value it takes.
const std::map<std::string, Kind> kScriptable = {
    {"NetClient.IsServerReady", Kind::Bool},
    {"NetClient.GetGatewayListData", Kind::Int},
    {"NetClient.GetGatewayDataByInterface", Kind::Int},
    {"NetClient.AddGatewayData", Kind::Int},
    {"NetClient.DelGatewayData", Kind::Int},
    {"NetClient.CopyGatewayData", Kind::Int},
    {"NetClient.RefreshGateway", Kind::Int},
    {"NetClient.SetSlaveData", Kind::Int},
    {"NetClient.ResetIPv6Module", Kind::Int},
    {"FilterList", Kind::Int},
    {"GenDUID", Kind::Text},
    {"PolicyRoute.AddRule", Kind::Int},
    {"PolicyRoute.DeleteRule", Kind::Int},
    {"PolicyRoute.EnableTable", Kind::Int},
    {"PolicyRoute.DisableTable", Kind::Int},
    {"StaticRoute.GetRouteTables", Kind::Int},
    {"StaticRoute.RefreshRules", Kind::Int},
    {"StaticRoute.RefreshIpv4Rules", Kind::Int},
    {"StaticRoute.RefreshIpv6Rules", Kind::Int},
    {"IPAddress.GetIPv6Address", Kind::TextList},
    {"IPAddress.GetIPv4Network", Kind::PairList},
    {"IPAddress.GetIPv6Network", Kind::PairList},
    {"Router6Attr.LoadConfig", Kind::Int},
    {"Router6Prefix.EnumPrefix64", Kind::TextList},
    {"Router6Prefix.Allocate", Kind::Bool},
    {"Router6Prefix.Deallocate", Kind::Bool},
    {"Router6Factory.newRouterV6Instance", Kind::Ptr},
    {"Router6.Prepare", Kind::Int},
    {"Router6.Create", Kind::Bool},
    {"Router6.Destroy", Kind::Bool},
    {"Router6.Reload", Kind::Bool},
    {"FileLock.Lock", Kind::Bool},
    {"FileLock.Unlock", Kind::Int},
    {"TLIBCSzListAlloc", Kind::Ptr},
    {"TLIBCSzListRemoveAll", Kind::Int},
    {"TLIBCStrSep", Kind::Int},
    {"TLIBCStrReplace", Kind::Int},
    {"TLIBCPopen", Kind::Ptr},
    {"TLIBCPclose", Kind::Int},
    {"TLIBCFileGetKeyValue", Kind::Int},
    {"TLIBCFileSetLine", Kind::Int},
    {"TLIBCExec", Kind::Int},
    {"TARNNetIpAliasList", Kind::Int},
    {"TARNNetSeperateSubnet", Kind::Int},
};

// The shape of each top-level member: what its values (per interface, per key) must be.
enum class Shape {
    Results,
    AnyPerKey,
    GatewayData,
    Text,
    TextListPerKey,
    Networks,
    Router6,
    RoutersPerKey,
    TextPerKey,
    KeyValues
};

const std::map<std::string, Shape> kMembers = {
    {"results", Shape::Results},          {"gateways", Shape::AnyPerKey},
    {"gateway_data", Shape::GatewayData}, {"duid", Shape::Text},
    {"route_tables", Shape::AnyPerKey},   {"ipv6_addresses", Shape::TextListPerKey},
    {"networks", Shape::Networks},        {"router6", Shape::Router6},
    {"prefix64", Shape::TextListPerKey},  {"routers", Shape::RoutersPerKey},
    {"ifconfig", Shape::TextPerKey},      {"aliases", Shape::TextListPerKey},
    {"keyvalues", Shape::KeyValues},
};

struct State {
    Json::Value scenario{Json::objectValue};
    std::map<std::string, Json::ArrayIndex> used;
    FILE* journal = nullptr;
    std::string journalPath;
};

State& Sim() {
    static State state;
    return state;
}

[[noreturn]] void Fail(const std::string& what) {
    std::string line = "tarnnetdtool-sim: " + what + "\n";
    ssize_t ignored = write(STDERR_FILENO, line.data(), line.size());
    (void)ignored;
    _exit(255);
}

struct BadScenario {
    std::string reason;
};

void Require(bool ok, const std::string& where, const char* what) {
    if (!ok) throw BadScenario{where + ": " + what};
}

bool IsInt(const Json::Value& v) { return v.isInt() && !v.isBool(); }
bool IsPair(const Json::Value& v) { return v.isArray() && v.size() == 2 && v[0].isString() && IsInt(v[1]); }
bool IsTextPair(const Json::Value& v) { return v.isArray() && v.size() == 2 && v[0].isString() && v[1].isString(); }

void CheckEach(const Json::Value& v, const std::string& where, bool (*ok)(const Json::Value&), const char* what) {
    Require(v.isArray(), where, "expected an array");
    for (Json::ArrayIndex i = 0; i < v.size(); ++i) Require(ok(v[i]), where + "[" + std::to_string(i) + "]", what);
}

void CheckObject(const Json::Value& v, const std::string& where) { Require(v.isObject(), where, "expected an object"); }

void CheckResult(Kind kind, const Json::Value& v, const std::string& where) {
    switch (kind) {
        case Kind::Int:
            return Require(IsInt(v), where, "expected an integer");
        case Kind::Bool:
            return Require(v.isBool(), where, "expected true or false");
        case Kind::Text:
            return Require(v.isString(), where, "expected a text");
        case Kind::Ptr:
            return Require(v.isNull() || (v.isString() && v.asString() == "ptr"), where, "expected null or \"ptr\"");
        case Kind::TextList:
            return CheckEach(
                v, where, [](const Json::Value& e) { return e.isString(); }, "expected a text");
        case Kind::PairList:
            return CheckEach(v, where, IsPair, "expected [text, integer]");
    }
}

void CheckResults(const Json::Value& results) {
    CheckObject(results, "results");
    for (const std::string& op : results.getMemberNames()) {
        std::string where = "results." + op;
        auto known = kScriptable.find(op);
        Require(known != kScriptable.end(), where, "no such op");
        Require(results[op].isArray(), where, "expected an array");
        for (Json::ArrayIndex i = 0; i < results[op].size(); ++i)
            CheckResult(known->second, results[op][i], where + "[" + std::to_string(i) + "]");
    }
}

// Applies `check` to every member of the object `v`.
template <typename F>
void ForEachKey(const Json::Value& v, const std::string& where, F check) {
    CheckObject(v, where);
    for (const std::string& key : v.getMemberNames()) check(v[key], where + "." + key);
}

void CheckMember(Shape shape, const Json::Value& v, const std::string& where) {
    auto textList = [](const Json::Value& e, const std::string& w) {
        CheckEach(
            e, w, [](const Json::Value& x) { return x.isString(); }, "expected a text");
    };
    switch (shape) {
        case Shape::Results:
            return CheckResults(v);
        case Shape::AnyPerKey:
            return CheckObject(v, where);
        case Shape::GatewayData:
            return ForEachKey(v, where, [](const Json::Value& e, const std::string& w) { CheckObject(e, w); });
        case Shape::Text:
            return Require(v.isString(), where, "expected a text");
        case Shape::TextListPerKey:
            return ForEachKey(v, where, textList);
        case Shape::TextPerKey:
            return ForEachKey(v, where,
                              [](const Json::Value& e, const std::string& w) { Require(e.isString(), w, "expected a text"); });
        case Shape::KeyValues:
            return ForEachKey(v, where, [](const Json::Value& file, const std::string& w) {
                ForEachKey(file, w,
                           [](const Json::Value& e, const std::string& k) { Require(e.isString(), k, "expected a text"); });
            });
        case Shape::Networks:
            return ForEachKey(v, where, [](const Json::Value& family, const std::string& w) {
                Require(w == "networks.ipv4" || w == "networks.ipv6", w, "expected ipv4 or ipv6");
                ForEachKey(family, w, [](const Json::Value& e, const std::string& k) {
                    CheckEach(e, k, IsPair, "expected [text, integer]");
                });
            });
        case Shape::RoutersPerKey:
            return ForEachKey(v, where, [](const Json::Value& e, const std::string& w) {
                CheckObject(e, w);
                Require(Member(e, "type").isString() || !e.isMember("type"), w + ".type", "expected a text");
            });
        case Shape::Router6:
            return ForEachKey(v, where, [](const Json::Value& e, const std::string& w) {
                CheckObject(e, w);
                for (const char* text : {"type", "prefix"})
                    Require(!e.isMember(text) || e[text].isString(), w + "." + text, "expected a text");
                if (e.isMember("allocations"))
                    CheckEach(e["allocations"], w + ".allocations", IsTextPair, "expected [text, text]");
            });
    }
}

// A scenario is a small document; anything larger, or endless, is a mistake to refuse rather
// than read.
constexpr size_t kScenarioLimit = 4 << 20;

// A descriptor closed when it goes out of scope.
class Fd {
public:
    explicit Fd(int fd) : fd_(fd) {}
    ~Fd() {
        if (fd_ >= 0) close(fd_);
    }
    Fd(const Fd&) = delete;
    Fd& operator=(const Fd&) = delete;
    int Get() const { return fd_; }

private:
    int fd_;
};

// The whole scenario file; opening does not wait for a FIFO's writer, and what is not a
// regular file is never read.
std::string ReadScenario(const char* path) {
    std::string where = std::string("cannot read ") + path + ": ";
    Fd fd(open(path, O_RDONLY | O_NONBLOCK | O_CLOEXEC));
    struct stat info;
    if (fd.Get() < 0 || fstat(fd.Get(), &info) != 0) throw BadScenario{where + std::strerror(errno)};
    if (!S_ISREG(info.st_mode)) throw BadScenario{where + "not a regular file"};
    std::string text;
    char chunk[65536];
    for (;;) {
        ssize_t got = read(fd.Get(), chunk, sizeof chunk);
        if (got < 0 && errno == EINTR) continue;
        if (got < 0) throw BadScenario{where + std::strerror(errno)};
        if (got == 0) return text;
        text.append(chunk, static_cast<size_t>(got));
        if (text.size() > kScenarioLimit) throw BadScenario{where + "larger than 4 MiB"};
    }
}

Json::Value ParseScenario(const char* path, const std::string& text) {
    Json::CharReaderBuilder builder;
    Json::CharReaderBuilder::strictMode(&builder.settings_);
    std::unique_ptr<Json::CharReader> reader(builder.newCharReader());
    Json::Value root;
    std::string errors;
    try {
        if (reader->parse(text.data(), text.data() + text.size(), &root, &errors)) return root;
    } catch (const Json::Exception& e) {
        // The reader throws rather than reports when a document nests too deeply.
        errors = e.what();
    }
    throw BadScenario{std::string("cannot parse ") + path + ": " + errors.substr(0, errors.find('\n'))};
}

void LoadScenario(const char* path) {
    Json::Value root = ParseScenario(path, ReadScenario(path));
    Require(root.isObject(), "scenario", "expected an object");
    for (const std::string& name : root.getMemberNames()) {
        auto shape = kMembers.find(name);
        Require(shape != kMembers.end(), name, "no such member");
        CheckMember(shape->second, root[name], name);
    }
    Sim().scenario = root;
}

void Start() {
    std::string error = Load(std::getenv("TARNSIM_SCENARIO"), std::getenv("TARNSIM_JOURNAL"));
    if (!error.empty()) Fail(error);
}

const bool started = (Start(), true);

std::string Compact(const Json::Value& v) {
    static const std::unique_ptr<Json::StreamWriter> writer = [] {
        Json::StreamWriterBuilder builder;
        builder["indentation"] = "";
        // Everything beyond ASCII escaped, bytes that are not UTF-8 as U+FFFD, as on standard
        // output: every journal line stays valid JSON whatever the arguments hold.
        builder["emitUTF8"] = false;
        return std::unique_ptr<Json::StreamWriter>(builder.newStreamWriter());
    }();
    std::ostringstream out;
    writer->write(v, &out);
    return out.str();
}

}  // namespace

std::string Load(const char* scenarioPath, const char* journalPath) {
    State& state = Sim();
    if (state.journal != nullptr) std::fclose(state.journal);
    state = State();
    if (journalPath != nullptr) {
        state.journal = std::fopen(journalPath, "w");
        if (state.journal == nullptr) return std::string("cannot open journal ") + journalPath + ": " + std::strerror(errno);
        state.journalPath = journalPath;
    }
    if (scenarioPath == nullptr) return "";
    try {
        LoadScenario(scenarioPath);
    } catch (const BadScenario& bad) {
        return "bad scenario: " + bad.reason;
    }
    return "";
}

const Json::Value& Scenario(const char* name) { return Member(Sim().scenario, name); }

const Json::Value& Member(const Json::Value& value, const std::string& key) {
    static const Json::Value none;
    if (!value.isObject()) return none;
    const Json::Value* found = value.find(key.data(), key.data() + key.size());
    return found != nullptr ? *found : none;
}

namespace {

// Takes the next scripted value of `op` into `value`; false when none is left.
bool NextScripted(const char* op, Json::Value& value) {
    const Json::Value& list = Member(Scenario("results"), op);
    Json::ArrayIndex& next = Sim().used[op];
    if (!list.isArray() || next >= list.size()) return false;
    value = list[next++];
    return true;
}

}  // namespace

Json::Value Scripted(const char* op) {
    Json::Value value;
    NextScripted(op, value);
    return value;
}

int IntResult(const char* op, int fallback) {
    Json::Value v = Scripted(op);
    return v.isNull() ? fallback : v.asInt();
}

bool BoolResult(const char* op, bool fallback) {
    Json::Value v = Scripted(op);
    return v.isNull() ? fallback : v.asBool();
}

std::string TextResult(const char* op, const std::string& fallback) {
    Json::Value v = Scripted(op);
    return v.isNull() ? fallback : v.asString();
}

int IntAnswer(const char* op, const Json::Value& args, int fallback) {
    int result = IntResult(op, fallback);
    Record(op, args, result);
    return result;
}

bool BoolAnswer(const char* op, const Json::Value& args, bool fallback) {
    bool result = BoolResult(op, fallback);
    Record(op, args, result);
    return result;
}

int PtrResult(const char* op) {
    Json::Value value;
    if (!NextScripted(op, value)) return -1;
    return value.isNull() ? 0 : 1;
}

namespace {

void Write(const char* op, const Json::Value& args, const Json::Value* result) {
    FILE* journal = Sim().journal;
    if (journal == nullptr) return;
    std::string line = "{\"op\":" + Compact(op);
    if (!args.isNull()) line += ",\"args\":" + Compact(args);
    if (result != nullptr) line += ",\"result\":" + Compact(*result);
    line += "}\n";
    // A run whose record is incomplete must not look recorded.
    if (std::fputs(line.c_str(), journal) < 0 || std::fflush(journal) != 0)
        Fail("cannot write journal " + Sim().journalPath + ": " + std::strerror(errno));
}

}  // namespace

void Record(const char* op, const Json::Value& args) { Write(op, args, nullptr); }

void Record(const char* op, const Json::Value& args, const Json::Value& result) { Write(op, args, &result); }

}  // namespace sim
