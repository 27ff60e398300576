// tarnprefix: what a DHCPv6 prefix delegation client's hook runs to hand a delegated prefix, with
// its lifetimes, to the IPv6 router's store, and to withdraw it when the delegation ends.
#include "hostkit/lock.h"
#include "hostkit/log.h"
#include "hostkit/owned.h"
#include "router6/router6.h"

#include <syslog.h>

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <string>

namespace {

using namespace tarnlinux::router6;

constexpr char kUsage[] = "usage: tarnprefix set IFNAME PREFIX/LEN PLTIME VLTIME | tarnprefix withdraw IFNAME";
constexpr int kFailure = 255;
// Lifetimes are DHCPv6's 32-bit seconds.
constexpr size_t kMaxDigits = 10;

// The one line of a refusal, on standard error and in the log.
int Refuse(const std::string& why) {
    std::fprintf(stderr, "tarnprefix: %s\n", why.c_str());
    tarnlinux::Log(LOG_ERR, kLog, why);
    return kFailure;
}

bool ParseSeconds(const std::string& text, uint32_t& seconds) {
    if (text.empty() || text.size() > kMaxDigits ||
        !std::all_of(text.begin(), text.end(), [](unsigned char c) { return std::isdigit(c); }))
        return false;
    unsigned long long value = std::stoull(text);
    seconds = static_cast<uint32_t>(value);
    return value <= kForever;
}

// An address/length with no host bits set.
bool ParseDelegated(const std::string& text, Prefix& prefix) {
    std::optional<Prefix> parsed = ParsePrefix(text);
    std::optional<unsigned __int128> address = ParseAddress(text.substr(0, text.find('/')));
    if (!parsed || !address || *address != parsed->bits) return false;
    prefix = *parsed;
    return true;
}

// Both commands change addresses that a prefix application may be moving: they wait for it.
bool TakeRouterLock(tarnlinux::HeldLock& lock, std::string& why) {
    if (lock.Take()) return true;
    why = std::string("the router lock ") + tarnlinux::kRouterLockPath + " cannot be taken";
    return false;
}

int Set(char** argv) {
    std::string ifname = argv[2], why;
    Prefix prefix;
    Lifetimes lifetimes;
    if (!tarnlinux::ValidIfname(ifname)) return Refuse("not an interface name: " + ifname);
    if (!ParseDelegated(argv[3], prefix)) return Refuse(std::string("not a prefix: ") + argv[3]);
    if (!ParseSeconds(argv[4], lifetimes.preferred)) return Refuse(std::string("not a preferred lifetime: ") + argv[4]);
    if (!ParseSeconds(argv[5], lifetimes.valid)) return Refuse(std::string("not a valid lifetime: ") + argv[5]);
    tarnlinux::HeldLock lock(tarnlinux::kRouterLockPath);
    bool changed = false;
    if (!TakeRouterLock(lock, why) || !SystemStore().Delegate(ifname, prefix, lifetimes, changed, why)) return Refuse(why);
    std::puts(changed ? "changed" : "unchanged");
    return std::fflush(stdout) == 0 ? 0 : kFailure;
}

int Withdraw(char** argv) {
    std::string why;
    tarnlinux::HeldLock lock(tarnlinux::kRouterLockPath);
    if (!TakeRouterLock(lock, why) || !SystemStore().Withdraw(argv[2], why)) return Refuse(why);
    return 0;
}

struct Command {
    const char* name;
    int argc;  // the whole command line's
    int (*run)(char** argv);
};

constexpr Command kCommands[] = {
    {"set", 6, Set},
    {"withdraw", 3, Withdraw},
};

}  // namespace

int main(int argc, char** argv) {
    for (const Command& command : kCommands)
        if (argc >= 2 && argv[1] == std::string(command.name)) return argc == command.argc ? command.run(argv) : Refuse(kUsage);
    return Refuse(kUsage);
}
