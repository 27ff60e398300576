// IPv6 prefix arithmetic of the router library: an address is one 128-bit number, so that a
// /0 or the last /64 of the address space needs no special case.
#include "hostkit/inet.h"
#include "router6/router6.h"
#include "tarnnetwork.h"

#include <arpa/inet.h>

#include <algorithm>
#include <cctype>

namespace tarnlinux::router6 {
namespace {

using u128 = unsigned __int128;

constexpr int kAddressBits = 128;
constexpr int kSubnetBits = 64;

u128 Mask(int length) { return length == 0 ? 0 : ~u128{0} << (kAddressBits - length); }

}  // namespace

std::optional<u128> ParseAddress(const std::string& text) {
    in6_addr address;
    if (inet_pton(AF_INET6, text.c_str(), &address) != 1) return std::nullopt;
    u128 bits = 0;
    for (uint8_t byte : address.s6_addr) bits = bits << 8 | byte;
    return bits;
}

namespace {

// A whole decimal number in 0-128, nothing else.
std::optional<int> ParseLength(const std::string& text) {
    if (text.empty() || text.size() > 3 ||
        !std::all_of(text.begin(), text.end(), [](unsigned char c) { return std::isdigit(c); }))
        return std::nullopt;
    int length = std::stoi(text);
    if (length > kAddressBits) return std::nullopt;
    return length;
}

}  // namespace

in6_addr ToIn6(u128 bits) {
    in6_addr address;
    for (int i = 15; i >= 0; --i, bits >>= 8) address.s6_addr[i] = static_cast<uint8_t>(bits);
    return address;
}

std::string AddressText(u128 bits) {
    in6_addr address = ToIn6(bits);
    return tarnlinux::AddressText(AF_INET6, address.s6_addr);
}

std::optional<Prefix> ParsePrefix(const std::string& text) {
    size_t slash = text.find('/');
    if (slash == std::string::npos) return std::nullopt;
    std::optional<u128> address = ParseAddress(text.substr(0, slash));
    std::optional<int> length = ParseLength(text.substr(slash + 1));
    if (!address || !length) return std::nullopt;
    return Prefix{*address & Mask(*length), *length};
}

std::optional<u128> Parse64(const std::string& text) {
    std::optional<u128> address = ParseAddress(text);
    if (!address || (*address & ~Mask(kSubnetBits)) != 0) return std::nullopt;
    return address;
}

namespace {

// A /64 prefix's text as inet_ntop writes it (RFC 5952) at a tenth of its cost, which counts
// when a /48 is listed whole: the zero host half is the longest run of zero groups, so it
// becomes "::" together with the network half's trailing zero groups.
std::string Text64(u128 bits) {
    static constexpr char kHex[] = "0123456789abcdef";
    uint16_t groups[4];
    for (int i = 0; i < 4; ++i) groups[i] = static_cast<uint16_t>(bits >> (kAddressBits - 16 * (i + 1)));
    int used = 4;
    while (used > 0 && groups[used - 1] == 0) --used;
    char text[4 * 5 + 2] = {':'};
    char* end = used == 0 ? text + 1 : text;
    for (int i = 0; i < used; ++i) {
        int shift = 12;
        while (shift > 0 && (groups[i] >> shift) == 0) shift -= 4;
        for (; shift >= 0; shift -= 4) *end++ = kHex[groups[i] >> shift & 0xf];
        *end++ = ':';
    }
    *end++ = ':';
    return std::string(text, end);
}

}  // namespace

bool Contains(const Prefix& outer, u128 address) { return (address & Mask(outer.length)) == outer.bits; }

std::vector<std::string> Enum64(const std::string& address, int length) {
    if (length < 0 || length > kSubnetBits) return {};
    std::optional<u128> bits = ParseAddress(address);
    if (!bits) return {};
    // 2^(64 - length) subnets; a /0 has 2^64 of them, which only 128 bits can count.
    u128 available = u128{1} << (kSubnetBits - length);
    size_t count = static_cast<size_t>(std::min<u128>(available, kMaxPrefixes));
    u128 first = *bits & Mask(length);
    std::vector<std::string> prefixes;
    prefixes.reserve(count);
    for (size_t i = 0; i < count; ++i) prefixes.push_back(Text64(first + (u128{i} << kSubnetBits)));
    return prefixes;
}

}  // namespace tarnlinux::router6

namespace tarn::network::ipv6::router {

std::vector<std::string> Router6Prefix::EnumPrefix64(const std::string& address, int length) {
    return tarnlinux::router6::Enum64(address, length);
}

}  // namespace tarn::network::ipv6::router
