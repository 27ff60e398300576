// Network library (libtarnnetwork): the network daemon client, policy and static routes,
// interface addresses, the IPv6 router classes and the file lock. Every int result below is
// negative on failure and anything else on success, unless its comment says otherwise.
#ifndef TARN_PLATFORM_TARNNETWORK_H
#define TARN_PLATFORM_TARNNETWORK_H

#include <json/value.h>

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace tarnnetwork {

namespace dbus {

// Client of the network daemon tarnnetd; requests and responses are JSON documents.
class NetClient {
public:
    NetClient();
    ~NetClient();
    NetClient(const NetClient&) = delete;
    NetClient& operator=(const NetClient&) = delete;

    // True when the daemon answers and is ready for requests.
    bool IsServerReady() const;
    // Fills `response` with the gateway list (an array) of request "type".
    int GetGatewayListData(Json::Value& request, Json::Value& response);
    // Fills `response` with the gateway entry of request "type" and "ifname".
    int GetGatewayDataByInterface(Json::Value& request, Json::Value& response);
    // Adds or replaces the gateway record that the request describes.
    int AddGatewayData(Json::Value& request);
    // Deletes the gateway record of request "type" and "ifname".
    int DelGatewayData(Json::Value& request);
    // Copies the record of "interface_source" to "interface_destination".
    int CopyGatewayData(Json::Value& request);
    // Re-applies the default gateway of request "type" ("GTYPE_V4", "GTYPE_V6" or "ALL").
    int RefreshGateway(Json::Value& request);
    // Marks request "ifname" as slave or not (boolean "slave").
    int SetSlaveData(Json::Value& request);
    // Resets the IPv6 module of the interface.
    int ResetIPv6Module(const std::string& ifname);
};

}  // namespace dbus

namespace network {

// Address family of every routing call.
enum IP_TYPE : int32_t { IPV4 = 0, IPV6 = 1 };

}  // namespace network

namespace utils {

using AddressList = std::vector<std::pair<std::string, int>>;

// One IPv4 or IPv6 address, set from text; the text is kept as given (also "NULL").
class IPAddress {
public:
    IPAddress();
    ~IPAddress();
    IPAddress(const IPAddress&) = default;
    // Sets the address from `text`, unchanged.
    IPAddress& operator=(const std::string& text);
    IPAddress& operator=(const IPAddress&) = default;

    // Platform side only: whether an address was assigned, and its text.
    bool IsAssigned() const { return assigned_; }
    const std::string& Text() const { return text_; }

    // The interface's global IPv6 addresses as (text, prefix length); empty when none.
    static AddressList GetIPv6Address(const std::string& ifname);
    // The interface's IPv4 networks as (network address text, prefix length); empty when none.
    static AddressList GetIPv4Network(const std::string& ifname);
    // The interface's IPv6 networks, link-local excluded, as GetIPv4Network.
    static AddressList GetIPv6Network(const std::string& ifname);

private:
    std::string text_;
    bool assigned_ = false;
};

// The device's DUID as text; empty on failure.
std::string GenDUID();

// Inter-process lock on a lock file.
class FileLock {
public:
    // Binds the lock to `path`; takes nothing yet.
    FileLock(const std::string& path, bool create);
    // Releases the lock when held.
    ~FileLock();
    FileLock(const FileLock&) = delete;
    FileLock& operator=(const FileLock&) = delete;

    // Takes the exclusive lock: true when held, false when it could not be taken.
    bool Lock();
    // Releases the lock; harmless when not held. Always 0.
    int Unlock();

private:
    std::string path_;
    bool create_;
    int fd_ = -1;
};

}  // namespace utils

namespace network {

// One rule of an interface's policy route table, filled field by field.
struct PolicyRouteRule {
    IP_TYPE type;               // address family; no default, callers set it
    utils::IPAddress ip;        // the rule's address
    utils::IPAddress mask;      // IPv4 netmask (IPv4 rules only)
    utils::IPAddress gateway;   // gateway the rule routes through
    std::string prefix_length;  // IPv6 prefix length as text (IPv6 rules only)
    std::string interface;      // interface whose table holds the rule
    std::string service;        // with type and interface, the rule's key for DeleteRule
};

// Keeps in `list` (an array of gateway entries) the entries whose "class" is `cls`; 0.
int FilterList(std::string cls, Json::Value& list);

// Manager of the per-interface policy route tables.
class PolicyRoute {
public:
    PolicyRoute();
    ~PolicyRoute();
    PolicyRoute(const PolicyRoute&) = delete;
    PolicyRoute& operator=(const PolicyRoute&) = delete;

    // Adds `rule` to the policy table of rule.interface.
    int AddRule(const PolicyRouteRule& rule);
    // Removes the rule of `service` from the table of `interface`.
    int DeleteRule(const IP_TYPE& type, const std::string& service, const std::string& interface);
    // Turns the interface's table on; `source` is one address or several joined by ",".
    int EnableTable(const IP_TYPE& type, const std::string& interface, const std::string& source);
    // Turns the interface's table off.
    int DisableTable(const IP_TYPE& type, const std::string& interface);
};

// Manager of the static route rules.
class StaticRoute {
public:
    StaticRoute();
    ~StaticRoute();
    StaticRoute(const StaticRoute&) = delete;
    StaticRoute& operator=(const StaticRoute&) = delete;

    // Fills `tables` (null on entry) with the route tables of `type`.
    int GetRouteTables(const IP_TYPE& type, Json::Value& tables);
    // Applies the static route rules of both families afresh.
    int RefreshRules();
    // Applies the IPv4 static route rules afresh.
    int RefreshIpv4Rules();
    // Applies the IPv6 static route rules afresh.
    int RefreshIpv6Rules();
};

}  // namespace network
}  // namespace tarnnetwork

namespace tarn {
namespace network {
namespace ipv6 {
namespace router {

// The stored IPv6 router configuration of one interface.
class Router6Attr {
public:
    Router6Attr();
    ~Router6Attr();
    Router6Attr(const Router6Attr&) = default;
    Router6Attr& operator=(const Router6Attr&) = default;

    // Loads the configuration of `ifname`: negative when there is none (nothing loaded).
    int LoadConfig();

    std::string type;                                              // IPv6 connection type, such as "native", "6in4", "6to4"
    std::string ifname;                                            // the interface; the key of LoadConfig
    std::string prefix;                                            // the delegated prefix, "address/length"
    std::string lan_prefix;                                        // library-owned
    std::string dns;                                               // library-owned
    std::string mode;                                              // library-owned
    std::vector<std::pair<std::string, std::string>> allocations;  // (held /64 prefix, owner)
    int32_t flags = 0;                                             // library-owned
};

// The pool from which consumers get their /64 prefixes.
class Router6Prefix {
public:
    Router6Prefix();
    ~Router6Prefix();

    // The /64 prefixes available in address/length, as address texts without "/64"; empty when none.
    static std::vector<std::string> EnumPrefix64(const std::string& address, int length);
    // Records that `owner` holds `prefix`: true when done.
    bool Allocate(const std::string& prefix, const std::string& owner);
    // Releases the hold of `owner` on `prefix`: true when done.
    bool Deallocate(const std::string& prefix, const std::string& owner);

private:
    std::vector<Router6Attr> attrs_;
};

// The IPv6 router of one interface; made by Router6Factory, deleted by its caller.
class Router6 {
public:
    virtual ~Router6();
    // Takes the router down (not used by the tool): true when done.
    virtual bool Destroy() = 0;
    // Re-reads the router's settings (not used by the tool): true when done.
    virtual bool Reload() = 0;
    // Sets the router up: true when created.
    virtual bool Create() = 0;
    // Prepares Create; the result is informational.
    virtual int Prepare() = 0;

    std::string type;  // the router's type, such as "native"
};

// Maker of router instances.
class Router6Factory {
public:
    Router6Factory();
    ~Router6Factory();

    // A new router for `ifname` and `arg`, owned by the caller; nullptr when none can be made.
    Router6* newRouterV6Instance(const std::string& ifname, const std::string& arg);
};

}  // namespace router
}  // namespace ipv6
}  // namespace network
}  // namespace tarn

#endif
