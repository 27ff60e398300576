// The texts the routing library accepts and writes: addresses, netmasks, prefix lengths,
// destinations, sources and interface names.
#include "routing/routing.h"

#include "hostkit/ifname.h"
#include "hostkit/inet.h"
#include "hostkit/log.h"

#include <arpa/inet.h>
#include <net/if.h>
#include <syslog.h>

#include <algorithm>
#include <cctype>

namespace tarnroute {
namespace {

constexpr char kDefault[] = "default";
constexpr char kNull[] = "NULL";
constexpr uint32_t kIpv6DefaultMetric = 1024;

bool AllDigits(const std::string& text) {
    return !text.empty() && text.size() <= 9 &&
           std::all_of(text.begin(), text.end(), [](unsigned char c) { return std::isdigit(c); });
}

}  // namespace

int AddressBits(int family) { return family == AF_INET ? 32 : 128; }

const char* FamilyName(int family) { return family == AF_INET ? "ipv4" : "ipv6"; }

std::string AddressText(const Prefix& prefix) { return tarnlinux::AddressText(prefix.family, prefix.bytes.data()); }

std::string PrefixText(const Prefix& prefix) {
    if (prefix.length == 0) return kDefault;
    if (prefix.length == AddressBits(prefix.family)) return AddressText(prefix);
    return AddressText(prefix) + "/" + std::to_string(prefix.length);
}

Prefix NetworkOf(Prefix prefix, int length) {
    prefix.length = std::clamp(length, 0, AddressBits(prefix.family));
    tarnlinux::MaskBits(prefix.bytes.data(), static_cast<int>(prefix.bytes.size()), prefix.length);
    return prefix;
}

std::optional<Prefix> ParseAddress(int family, const std::string& text, std::string& why) {
    Prefix prefix;
    prefix.family = family;
    prefix.length = AddressBits(family);
    if (inet_pton(family, text.c_str(), prefix.bytes.data()) != 1) {
        why = "\"" + text + "\" is not an " + FamilyName(family) + " address";
        return std::nullopt;
    }
    return prefix;
}

std::optional<int> NetmaskLength(const std::string& text, std::string& why) {
    std::optional<Prefix> mask = ParseAddress(AF_INET, text, why);
    if (!mask) return std::nullopt;
    uint32_t bits =
        (uint32_t{mask->bytes[0]} << 24) | (uint32_t{mask->bytes[1]} << 16) | (uint32_t{mask->bytes[2]} << 8) | mask->bytes[3];
    // Contiguous: the inverted mask plus one is a power of two.
    uint32_t hosts = ~bits;
    if ((hosts & (hosts + 1)) != 0) {
        why = "\"" + text + "\" is not a contiguous netmask";
        return std::nullopt;
    }
    return 32 - __builtin_popcount(hosts);
}

std::optional<int> PrefixLength(int family, const std::string& text, std::string& why) {
    if (!AllDigits(text) || std::stoi(text) > AddressBits(family)) {
        why = "prefix length \"" + text + "\" is not a number from 0 to " + std::to_string(AddressBits(family));
        return std::nullopt;
    }
    return std::stoi(text);
}

std::optional<Prefix> ParseDestination(int family, const std::string& text, std::string& why) {
    if (text == kDefault) return NetworkOf(Prefix{family, {}, 0}, 0);
    size_t slash = text.find('/');
    std::optional<Prefix> address = ParseAddress(family, text.substr(0, slash), why);
    if (!address || slash == std::string::npos) return address;
    std::optional<int> length = PrefixLength(family, text.substr(slash + 1), why);
    if (!length) return std::nullopt;
    Prefix network = NetworkOf(*address, *length);
    if (network.bytes != address->bytes) {
        why = "\"" + text + "\" has host bits set";
        return std::nullopt;
    }
    return network;
}

std::optional<std::vector<Prefix>> ParseSource(int family, const std::string& source, std::string& why) {
    std::vector<Prefix> addresses;
    for (size_t start = 0;;) {
        size_t comma = source.find(',', start);
        std::optional<Prefix> address = ParseAddress(family, source.substr(start, comma - start), why);
        if (!address) return std::nullopt;
        if (std::find(addresses.begin(), addresses.end(), *address) == addresses.end()) addresses.push_back(*address);
        if (comma == std::string::npos) return addresses;
        start = comma + 1;
    }
}

bool ValidInterfaceName(const std::string& name, std::string& why) {
    if (tarnlinux::ValidIfname(name)) return true;
    why = "\"" + name + "\" cannot be an interface name";
    return false;
}

// The destination of a rule: "NULL" with "NULL" is the default route; otherwise the address
// with its netmask (IPv4) or prefix length (IPv6), host bits cleared.
std::optional<Prefix> RuleDestination(int family, const tarnnetwork::network::PolicyRouteRule& rule, std::string& why) {
    const std::string& length = family == AF_INET ? rule.mask.Text() : rule.prefix_length;
    bool lengthGiven = family == AF_INET ? rule.mask.IsAssigned() : !rule.prefix_length.empty();
    if (!rule.ip.IsAssigned() || !lengthGiven) {
        why = family == AF_INET ? "address and netmask are both needed" : "address and prefix length are both needed";
        return std::nullopt;
    }
    if ((rule.ip.Text() == kNull) != (length == kNull)) {
        why = "\"NULL\" (the default route) needs \"NULL\" for both address and " +
              std::string(family == AF_INET ? "netmask" : "prefix length");
        return std::nullopt;
    }
    if (rule.ip.Text() == kNull) return NetworkOf(Prefix{family, {}, 0}, 0);
    std::optional<Prefix> address = ParseAddress(family, rule.ip.Text(), why);
    std::optional<int> bits = family == AF_INET ? NetmaskLength(length, why) : PrefixLength(family, length, why);
    if (!address || !bits) return std::nullopt;
    return NetworkOf(*address, *bits);
}

// "NULL" or no gateway: the destination is on the interface's link.
bool RuleGateway(int family, const tarnnetwork::network::PolicyRouteRule& rule, std::optional<Prefix>& gateway,
                 std::string& why) {
    const std::string& text = rule.gateway.Text();
    if (text.empty() || text == kNull) return true;
    gateway = ParseAddress(family, text, why);
    return gateway.has_value();
}

uint32_t KernelMetric(int family, uint32_t metric) { return family == AF_INET6 && metric == 0 ? kIpv6DefaultMetric : metric; }

std::string Describe(const Route& route) {
    std::string text = PrefixText(route.dst);
    for (const Hop& hop : route.hops) {
        if (hop.gateway) text += " via " + AddressText(*hop.gateway);
        if (hop.ifindex != 0) {
            char name[IF_NAMESIZE] = "";
            text += " dev " +
                    std::string(if_indextoname(static_cast<unsigned>(hop.ifindex), name) ? name : std::to_string(hop.ifindex));
        }
    }
    return text + " table " + std::to_string(route.table) + " metric " + std::to_string(route.metric) + " proto " +
           std::to_string(route.protocol);
}

std::string Describe(const Rule& rule) {
    std::string text = std::string(FamilyName(rule.family)) + " rule " + std::to_string(rule.priority);
    if (rule.src) text += " from " + PrefixText(*rule.src);
    text += " lookup " + std::to_string(rule.table);
    if (rule.suppressDefault) text += " suppress_prefixlength 0";
    return text + " proto " + std::to_string(rule.protocol);
}

void LogError(const std::string& text, const char* component) { tarnlinux::Log(LOG_ERR, component, text); }

void LogWarning(const std::string& text, const char* component) { tarnlinux::Log(LOG_WARNING, component, text); }

}  // namespace tarnroute
