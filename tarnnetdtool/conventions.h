// Rules every action handler follows: argument counts, the address-family argument, and the
// form of system log lines.
#ifndef TARNNETDTOOL_CONVENTIONS_H
#define TARNNETDTOOL_CONVENTIONS_H

#include "tarnnetwork.h"

#include <syslog.h>

#include <optional>

// Every log line starts with the tool's name and the line of the call, then the message.
inline constexpr char kLogSource[] = "tarnnetdtool";
#define TOOL_LOG(priority, format, ...) ToolLog((priority), "%s:%d " format, kLogSource, __LINE__, ##__VA_ARGS__)

// syslog of the formatted line with control characters shown as \xNN, so that an argument
// cannot forge a line of its own.
void ToolLog(int priority, const char* format, ...) __attribute__((format(printf, 2, 3)));

// A handler's result: 0 for success, -1 for failure.
inline constexpr int kOk = 0;
inline constexpr int kFail = -1;

// True when argc reaches `minimum`; otherwise complains "argc too small: <argc>".
bool HasArgs(int argc, int minimum);

// The family of an address-family argument: "-4" or "-6" over its first two characters.
std::optional<tarnnetwork::network::IP_TYPE> FamilyOf(const char* arg);

// FamilyOf, complaining "arg1 error: need a type" when the argument is neither.
std::optional<tarnnetwork::network::IP_TYPE> ReadFamily(const char* arg);

// The daemon's name of a family: "GTYPE_V4" or "GTYPE_V6".
const char* GatewayType(tarnnetwork::network::IP_TYPE family);

#endif
