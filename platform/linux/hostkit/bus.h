// The bus contract between tarnnetd and its client (platform/linux/netclient.cpp): the one
// place where the name, path, interface, methods and error names are written. Every method
// takes one JSON text; queries answer one JSON text, changes answer nothing.
#ifndef TARNNETD_BUS_H
#define TARNNETD_BUS_H

#include <cstdint>

namespace tarnbus {

inline constexpr char kName[] = "net.tarn.Netd1";
inline constexpr char kPath[] = "/net/tarn/Netd1";
inline constexpr char kInterface[] = "net.tarn.Netd1";

inline constexpr char kRequestSignature[] = "s";
inline constexpr char kQueryReplySignature[] = "s";
inline constexpr char kChangeReplySignature[] = "";

// Queries, open to every local user.
inline constexpr char kGetGatewayList[] = "GetGatewayList";                // {"type"} -> [entry, ...]
inline constexpr char kGetGatewayByInterface[] = "GetGatewayByInterface";  // {"type", "ifname"} -> entry
inline constexpr char kGetUplinkState[] = "GetUplinkState";                // {} -> [uplink, ...]
// Changes, root only.
inline constexpr char kAddGateway[] = "AddGateway";        // {"type", "ifname", "gateway", "dns", "priority", ["class"]}
inline constexpr char kDeleteGateway[] = "DeleteGateway";  // {"type", "ifname"}
inline constexpr char kCopyGateway[] =
    "CopyGateway";  // {"type", "interface_source", "interface_destination", "interface_source_delete"}
inline constexpr char kSetSlave[] = "SetSlave";                // {"type", "ifname", "slave"}
inline constexpr char kRefresh[] = "Refresh";                  // {"type"}: "GTYPE_V4", "GTYPE_V6" or "ALL"
inline constexpr char kResetIPv6Module[] = "ResetIPv6Module";  // {"ifname"}

// Signal on every change of a tracked uplink's state: one JSON text.
inline constexpr char kUplinkChanged[] = "UplinkChanged";  // {"ifname", "type", "state", "previous", "reason"}

// Readiness: the standard Peer.Ping of the object, answered once the name is owned.
inline constexpr char kPeerInterface[] = "org.freedesktop.DBus.Peer";
inline constexpr char kPing[] = "Ping";

inline constexpr char kErrorInvalid[] = "net.tarn.Netd1.Error.InvalidRequest";
inline constexpr char kErrorNotFound[] = "net.tarn.Netd1.Error.NotFound";
inline constexpr char kErrorFailed[] = "net.tarn.Netd1.Error.Failed";
inline constexpr char kErrorAccessDenied[] = "org.freedesktop.DBus.Error.AccessDenied";

// How long the client waits: readiness is a quick question; a change is answered after its
// durable write, which slow storage or callers queued ahead may take seconds over.
inline constexpr uint64_t kReadyTimeoutUsec = 2'000'000;
inline constexpr uint64_t kCallTimeoutUsec = 25'000'000;

}  // namespace tarnbus

#endif
