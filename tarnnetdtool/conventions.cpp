#include "conventions.h"

#include <cstring>
#include <iostream>

using tarnnetwork::network::IP_TYPE;

bool HasArgs(int argc, int minimum) {
    if (argc >= minimum) return true;
    std::cerr << "argc too small: " << argc << std::endl;
    return false;
}

std::optional<IP_TYPE> FamilyOf(const char* arg) {
    if (std::strncmp(arg, "-4", 2) == 0) return tarnnetwork::network::IPV4;
    if (std::strncmp(arg, "-6", 2) == 0) return tarnnetwork::network::IPV6;
    return std::nullopt;
}

std::optional<IP_TYPE> ReadFamily(const char* arg) {
    std::optional<IP_TYPE> family = FamilyOf(arg);
    if (!family) std::cerr << "arg1 error: need a type" << std::endl;
    return family;
}

const char* GatewayType(IP_TYPE family) { return family == tarnnetwork::network::IPV6 ? "GTYPE_V6" : "GTYPE_V4"; }
