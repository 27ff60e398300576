#include "conventions.h"

#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <iostream>
#include <string>

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

void ToolLog(int priority, const char* format, ...) {
    char text[1024];
    va_list args;
    va_start(args, format);
    std::vsnprintf(text, sizeof text, format, args);
    va_end(args);
    std::string shown;
    for (const char* c = text; *c != '\0'; ++c) {
        char hex[5];
        bool control = static_cast<unsigned char>(*c) < 0x20 || *c == 0x7f;
        if (control) std::snprintf(hex, sizeof hex, "\\x%02x", static_cast<unsigned char>(*c));
        shown += control ? hex : std::string(1, *c);
    }
    syslog(priority, "%s", shown.c_str());
}
