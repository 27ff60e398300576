// A bounded, seeded fuzz run of the simulated tool (built with the sanitizers): random
// argument vectors and mutated scenarios for every action. A run fails on an exit status
// other than 0 or 255, a sanitizer report, a journal that is not JSON Lines, or a run over
// the time limit; each failure is printed with its reproducer.
#include "actions.h"
#include "blackbox/harness.h"

#include <json/reader.h>

#include <algorithm>
#include <atomic>
#include <climits>
#include <cstdio>
#include <fstream>
#include <iostream>
#include <mutex>
#include <random>
#include <sstream>
#include <thread>

namespace {

using namespace std::chrono_literals;

// Changed only by hand, so that every run of the suite tries the same inputs.
constexpr uint32_t kSeed = 14;
constexpr int kRuns = 2000;
constexpr blackbox::Millis kLimit = 5s;
constexpr int kMaxExtraArgs = 7;
constexpr size_t kPrintedFailures = 10;

// Rich enough that every action gets past its first calls.
const char* const kBaseScenario = R"({
  "gateways": {
    "GTYPE_V4": [{"ifname": "eth0", "gateway": "192.0.2.1", "dns": "192.0.2.53", "priority": 1, "class": "wan"},
                 {"ifname": "eth1", "gateway": "198.51.100.1", "class": "wan"},
                 {"ifname": "lbr0", "gateway": "", "class": "lan"}],
    "GTYPE_V6": [{"ifname": "eth0", "gateway": "2001:db8::1", "class": "wan"},
                 {"ifname": "eth1", "gateway": "2001:db8:1::1", "class": "wan"}]},
  "gateway_data": {"GTYPE_V4": {"eth0": {"class": "wan", "dns": "192.0.2.53"}}},
  "duid": "00:03:00:01:02:42:c0:a8:00:02",
  "route_tables": {"0": {"main": [{"dst": "192.0.2.0/24"}]}, "1": {"main": []}},
  "ipv6_addresses": {"eth0": ["2001:db8::10"], "eth1": ["2001:db8:1::10", "2001:db8:1::11"]},
  "networks": {"ipv4": {"lbr0": [["192.0.2.0", 24]], "gbr0": [["198.51.100.0", 24]]},
               "ipv6": {"lbr0": [["2001:db8:1200:1::", 64]]}},
  "router6": {"eth1": {"type": "6in4", "prefix": "2001:db8:1200::/56",
                       "allocations": [["2001:db8:1200::", "lbr0"], ["2001:db8:1200:1::", "ovpn"], ["x", "gbr0"]]},
              "eth0": {"type": "native", "prefix": "2001:db8:1300::/+56", "allocations": [["2001:db8:1300::", "ovpn"]]}},
  "prefix64": {"2001:db8:1200::/56": ["2001:db8:1200::", "2001:db8:1200:1::"], "2001:db8:1300::/56": ["2001:db8:1300:5::"]},
  "routers": {"eth1": {"type": "native"}, "eth0": {"type": "6to4"}},
  "ifconfig": {"eth0": "eth0      Link encap:Ethernet\n          inet addr:192.0.2.10  Bcast:192.0.2.255  Mask:255.255.255.0\n",
               "eth1": "eth1: flags=4163<UP>  mtu 1500\n        inet 198.51.100.10  netmask 255.255.255.0\n"},
  "aliases": {"eth0": ["192.0.2.11/24", "192.0.2.12"]},
  "keyvalues": {"/usr/tarn/etc/packages/Tunnelbay/tarnvpn.conf": {"ovpn_enable_ipv6": "yes"}},
  "results": {"NetClient.IsServerReady": [false, true], "PolicyRoute.EnableTable": [0, 0, -1],
              "Router6Prefix.Allocate": [true, false], "TLIBCFileSetLine": [1, 0], "TLIBCExec": [0, -1],
              "FileLock.Lock": [true], "TLIBCPopen": ["ptr"], "Router6Factory.newRouterV6Instance": ["ptr"]}
})";

// clang-format off
const char* const kWords[] = {
    "-4", "-6", "-4x", "-64", "-5", "all", "", "-", "eth0", "eth1", "lbr0", "gbr0", "wan", "lan", "yes", "no",
    "multi-gateway", "192.0.2.1", "198.51.100.1", "255.255.255.0", "24", "64", "2001:db8::1", "2001:db8:1200::/56",
    "2001:db8::/56/7", "+56", "-1", "2147483648", "native", "6in4", "%s%s%s%n", "%d %x", "\xff\xfe", "\xc3", "\xc3\xa9",
    "a b", "eth0\nx", "\t", "../../x", "192.0.2.10,192.0.2.11", "ovpn", "{}", "[", "\""
};
// clang-format on

// Deterministic choices from one seed (the standard distributions differ between libraries).
std::mt19937 engine(kSeed);
size_t Below(size_t n) { return n == 0 ? 0 : engine() % n; }

std::string Bytes(size_t length) {
    std::string text;
    for (size_t i = 0; i < length; ++i) text += static_cast<char>(1 + Below(255));
    return text;
}

std::string Word() {
    size_t kind = Below(10);
    if (kind == 0) return Bytes(1 + Below(40));
    if (kind == 1) return std::string(1000 + Below(70000), "ae:/9%"[Below(6)]);
    return kWords[Below(std::size(kWords))];
}

Json::Value RandomValue(int depth) {
    const Json::Int64 ints[] = {0, 1, -1, 24, 64, INT_MAX, INT_MIN, Json::Int64(INT_MAX) + 1, Json::Int64(INT_MIN) - 1};
    Json::Value value(Below(2) ? Json::arrayValue : Json::objectValue);
    const size_t kind = Below(depth > 3 ? 6 : 8);
    if (kind == 0) return Json::Value();
    if (kind == 1) return Below(2) == 0;
    if (kind == 2) return Json::Value(ints[Below(std::size(ints))]);
    if (kind == 3) return 1e300;
    if (kind == 4) return Word();
    if (kind == 5) return "ptr";
    for (size_t i = Below(4); i > 0; --i)
        value.isArray() ? value.append(RandomValue(depth + 1)) : value[Word()] = RandomValue(depth + 1);
    return value;
}

void Nodes(Json::Value& value, std::vector<Json::Value*>& out) {
    out.push_back(&value);
    if (value.isArray() || value.isObject())
        for (Json::Value& child : value) Nodes(child, out);
}

// Mostly a value of the same kind, so that many mutants pass the scenario's checks and reach
// the actions.
void MutateTree(Json::Value& root) {
    std::vector<Json::Value*> nodes;
    Nodes(root, nodes);
    Json::Value& node = *nodes[Below(nodes.size())];
    if (node.isObject() && node.size() > 0 && Below(3) == 0)
        node.removeMember(node.getMemberNames()[Below(node.size())]);
    else if (node.isArray() && node.size() > 0 && Below(3) == 0)
        node.append(Json::Value(node[static_cast<Json::ArrayIndex>(Below(node.size()))]));
    else if (node.isBool() && Below(2) == 0)
        node = !node.asBool();
    else
        node = node.isString() ? Json::Value(Word()) : RandomValue(0);
}

void MutateText(std::string& text) {
    const size_t at = Below(text.size() + 1), kind = Below(5);
    if (kind == 0 && at < text.size()) text[at] = static_cast<char>(Below(256));
    if (kind == 1) text.insert(at, Bytes(1 + Below(8)));
    if (kind == 2) text.erase(at, Below(64));
    if (kind == 3) text.insert(at, std::string(100 + Below(3000), "[{"[Below(2)]));
    if (kind == 4) text.resize(at);
}

struct Input {
    std::vector<std::string> args;
    bool hasScenario = false;
    std::string scenario;
};

Input MakeInput(int index, const Json::Value& base) {
    Input input;
    std::string action = kActions[static_cast<size_t>(index) % kActions.size()].name;
    if (Below(25) == 0) MutateText(action);
    if (!action.empty() || Below(2) == 0) input.args.push_back(action);
    for (size_t n = Below(kMaxExtraArgs + 1); n > 0; --n) input.args.push_back(Word());
    input.hasScenario = Below(10) != 0;
    if (!input.hasScenario) return input;
    Json::Value tree = base;
    for (size_t n = Below(4); n > 0; --n) MutateTree(tree);
    input.scenario = blackbox::Compact(tree);
    if (Below(8) == 0) MutateText(input.scenario);
    return input;
}

// Bash's $'...' form of any bytes.
std::string Quoted(const std::string& text) {
    std::string out = "$'";
    for (unsigned char c : text) {
        char hex[8];
        std::snprintf(hex, sizeof hex, "\\x%02x", c);
        out += c == '\'' || c == '\\'  ? std::string{'\\', static_cast<char>(c)}
               : c >= 0x20 && c < 0x7f ? std::string(1, static_cast<char>(c))
                                       : std::string(hex);
    }
    return out + "'";
}

std::string Reproducer(const Input& input) {
    std::string text = "  ";
    if (input.hasScenario) text += "printf %s " + Quoted(input.scenario) + " >scenario.json\n  TARNSIM_SCENARIO=scenario.json ";
    text += "TARNSIM_JOURNAL=journal tarnnetdtool-sim";
    for (const std::string& arg : input.args) text += " " + Quoted(arg);
    return text + "\n";
}

// What is wrong with a run, or "" when nothing is.
std::string Fault(const blackbox::Run& run, const std::string& journal) {
    if (run.status == blackbox::kTimedOut) return "still running after " + std::to_string(kLimit.count()) + " ms";
    if (run.status != 0 && run.status != 255) return "exit status " + std::to_string(run.status);
    if (run.err.find("Sanitizer") != std::string::npos || run.err.find("runtime error:") != std::string::npos)
        return "sanitizer report";
    if (!blackbox::IsUtf8(journal)) return "journal is not UTF-8";
    Json::CharReaderBuilder builder;
    Json::CharReaderBuilder::strictMode(&builder.settings_);
    std::unique_ptr<Json::CharReader> reader(builder.newCharReader());
    std::istringstream lines(journal);
    for (std::string line; std::getline(lines, line);) {
        Json::Value event;
        if (!reader->parse(line.data(), line.data() + line.size(), &event, nullptr) || !event.isObject())
            return "journal line is not a JSON object: " + line.substr(0, 200);
    }
    return "";
}

std::mutex mutex;
std::vector<std::pair<int, std::string>> failures;
blackbox::Millis slowest{0};

void Work(const std::vector<Input>& inputs, std::atomic<int>& next) {
    blackbox::TempDir dir;
    std::string scenarioPath = dir / "scenario.json", journalPath = dir / "journal";
    for (int i = next++; i < static_cast<int>(inputs.size()); i = next++) {
        const Input& input = inputs[static_cast<size_t>(i)];
        std::remove(journalPath.c_str());
        std::vector<std::string> env{"TARNSIM_JOURNAL=" + journalPath};
        if (input.hasScenario) {
            std::ofstream(scenarioPath, std::ios::binary | std::ios::trunc) << input.scenario;
            env.push_back("TARNSIM_SCENARIO=" + scenarioPath);
        }
        blackbox::Run run = blackbox::RunTool(input.args, env, dir.Path(), kLimit);
        std::string fault = Fault(run, blackbox::ReadFile(journalPath));
        std::lock_guard<std::mutex> lock(mutex);
        slowest = std::max(slowest, run.took);
        if (!fault.empty())
            failures.emplace_back(i, fault + "\n" + Reproducer(input) + "  standard error: " + run.err.substr(0, 2000));
    }
}

}  // namespace

int main() {
    Json::Value base;
    std::istringstream baseText(kBaseScenario);
    if (!Json::parseFromStream(Json::CharReaderBuilder(), baseText, &base, nullptr)) throw std::runtime_error("base scenario");
    std::vector<Input> inputs;
    for (int i = 0; i < kRuns; ++i) inputs.push_back(MakeInput(i, base));

    std::atomic<int> next{0};
    // Twice the cores: a run spends about as long starting and ending as computing.
    std::vector<std::thread> workers(std::max(1u, std::thread::hardware_concurrency()) * 2);
    for (std::thread& worker : workers) worker = std::thread(Work, std::cref(inputs), std::ref(next));
    for (std::thread& worker : workers) worker.join();

    std::sort(failures.begin(), failures.end());
    for (size_t i = 0; i < failures.size() && i < kPrintedFailures; ++i)
        std::cout << "FAIL run " << failures[i].first << ": " << failures[i].second << "\n";
    std::cout << kRuns << " runs, seed " << kSeed << ": " << failures.size() << " faults, slowest " << slowest.count() << " ms"
              << std::endl;
    return failures.empty() ? 0 : 1;
}
