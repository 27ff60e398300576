// Journal lines shared by the rows of the prefix and router actions.
#ifndef TESTS_IPV6ROUTER_EVENTS_H
#define TESTS_IPV6ROUTER_EVENTS_H

#include <string>

namespace events {

inline std::string Line(const std::string& op, const std::string& rest = "") { return "{\"op\":\"" + op + "\"" + rest + "}\n"; }

inline std::string Result(const std::string& op, const std::string& result) { return Line(op, ",\"result\":" + result); }

inline std::string Log(int priority, const std::string& text) {
    return Line("syslog", ",\"args\":[" + std::to_string(priority) + ",\"tarnnetdtool:N " + text + "\"]");
}

inline std::string Lock(bool taken) { return Result("FileLock.Lock", taken ? "true" : "false"); }

inline std::string Enum(const std::string& address, int length, const std::string& result) {
    return Line("Router6Prefix.EnumPrefix64",
                ",\"args\":[\"" + address + "\"," + std::to_string(length) + "],\"result\":" + result);
}

// Deallocate or Allocate of the pool.
inline std::string Pool(const char* method, const std::string& prefix, const std::string& owner, bool ok = true) {
    return Line(std::string("Router6Prefix.") + method,
                ",\"args\":[\"" + prefix + "\",\"" + owner + "\"],\"result\":" + (ok ? "true" : "false"));
}

// The routine up to its configuration, which LoadConfig answers with `loaded`.
inline std::string Load(int loaded) {
    return Line("Router6Attr.Router6Attr") + Line("Router6Prefix.Router6Prefix") +
           Result("Router6Attr.LoadConfig", std::to_string(loaded));
}

inline std::string Unload() { return Line("Router6Prefix.~Router6Prefix") + Line("Router6Attr.~Router6Attr"); }

// The routine failing after its own `logs`, then its caller logging that against `ifname`.
inline std::string Refused(int loaded, const std::string& logs, const char* ifname = "eth1") {
    return Load(loaded) + logs + Unload() + Log(6, std::string("Failed to apply new prefix on ") + ifname);
}

}  // namespace events

#endif
