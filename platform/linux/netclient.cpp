// NetClient on Linux: the network daemon tarnnetd over the D-Bus system bus (sd-bus, loaded on
// first use), one connection per client object, every call bounded in time. Failures are logged
// in one line.
#include "sdbus.h"
#include "hostkit/bus.h"
#include "hostkit/log.h"
#include "tarnnetwork.h"

#include <json/reader.h>
#include <json/writer.h>
#include <syslog.h>

#include <map>
#include <memory>

namespace tarnnetwork {
namespace dbus {
namespace {

using tarnlinux::sdbus::Api;

// The component of the client's log lines: the daemon it failed to reach.
constexpr char kLog[] = "tarnnetd";

struct BusClose {
    void operator()(sd_bus* bus) const { tarnlinux::sdbus::Get()->flush_close_unref(bus); }
};
using Bus = std::unique_ptr<sd_bus, BusClose>;

struct MessageUnref {
    void operator()(sd_bus_message* message) const { tarnlinux::sdbus::Get()->message_unref(message); }
};
using Message = std::unique_ptr<sd_bus_message, MessageUnref>;

// The class's declaration is shared with the simulated platform and holds no members, so each
// object's connection is kept here, under the object's address.
std::map<const NetClient*, Bus>& Connections() {
    static std::map<const NetClient*, Bus> connections;
    return connections;
}

// A null connection when there is no bus or no sd-bus; the calls then fail.
Bus Open() {
    const Api* sd = tarnlinux::sdbus::Get();
    sd_bus* bus = nullptr;
    if (sd == nullptr || sd->open_system(&bus) < 0) return nullptr;
    Bus owned(bus);
    if (sd->set_method_call_timeout(bus, tarnbus::kCallTimeoutUsec) < 0) return nullptr;
    return owned;
}

// The object's connection, made again when the bus was not there before or has gone since.
sd_bus* BusOf(const NetClient* client) {
    Bus& bus = Connections()[client];
    if (!bus || tarnlinux::sdbus::Get()->is_open(bus.get()) <= 0) bus = Open();
    return bus.get();
}

int Failed(const char* method, const std::string& reason) {
    tarnlinux::Log(LOG_ERR, kLog, std::string(method) + ": " + reason);
    return -1;
}

std::string Compact(const Json::Value& value) {
    Json::StreamWriterBuilder builder;
    builder["indentation"] = "";
    return Json::writeString(builder, value);
}

// Calls `method` with the request as JSON text; `reply` receives the answer of a query.
int Call(const NetClient* client, const char* method, const Json::Value& request, std::string* reply) {
    sd_bus* bus = BusOf(client);
    if (bus == nullptr) return Failed(method, "no system bus");
    const Api* sd = tarnlinux::sdbus::Get();
    sd_bus_error error = SD_BUS_ERROR_NULL;
    sd_bus_message* raw = nullptr;
    int result = sd->call_method(bus, tarnbus::kName, tarnbus::kPath, tarnbus::kInterface, method, &error, &raw,
                                 tarnbus::kRequestSignature, Compact(request).c_str());
    Message answer(raw);
    std::string reason = error.message != nullptr ? error.message : "no answer";
    sd->error_free(&error);
    if (result < 0) return Failed(method, reason);
    if (reply == nullptr) return 0;
    const char* text = nullptr;
    if (sd->message_read(answer.get(), tarnbus::kQueryReplySignature, &text) < 0) return Failed(method, "unreadable reply");
    *reply = text;
    return 0;
}

// A query whose JSON answer must be of `type`.
int Query(const NetClient* client, const char* method, const Json::Value& request, Json::Value& response, Json::ValueType type) {
    std::string text;
    if (Call(client, method, request, &text) < 0) return -1;
    Json::CharReaderBuilder builder;
    std::unique_ptr<Json::CharReader> reader(builder.newCharReader());
    Json::Value parsed;
    std::string errors;
    if (!reader->parse(text.data(), text.data() + text.size(), &parsed, &errors) || parsed.type() != type)
        return Failed(method, "reply is not the expected JSON");
    response = parsed;
    return 0;
}

}  // namespace

NetClient::NetClient() { Connections()[this] = Open(); }

NetClient::~NetClient() { Connections().erase(this); }

bool NetClient::IsServerReady() const {
    sd_bus* bus = BusOf(this);
    const Api* sd = tarnlinux::sdbus::Get();
    sd_bus_message* raw = nullptr;
    if (bus == nullptr ||
        sd->message_new_method_call(bus, &raw, tarnbus::kName, tarnbus::kPath, tarnbus::kPeerInterface, tarnbus::kPing) < 0)
        return false;
    Message ping(raw);
    // Ready means running now: never have the bus start a daemon for the question.
    if (sd->message_set_auto_start(ping.get(), 0) < 0) return false;
    sd_bus_message* reply = nullptr;
    int result = sd->call(bus, ping.get(), tarnbus::kReadyTimeoutUsec, nullptr, &reply);
    sd->message_unref(reply);
    return result >= 0;
}

int NetClient::GetGatewayListData(Json::Value& request, Json::Value& response) {
    return Query(this, tarnbus::kGetGatewayList, request, response, Json::arrayValue);
}

int NetClient::GetGatewayDataByInterface(Json::Value& request, Json::Value& response) {
    return Query(this, tarnbus::kGetGatewayByInterface, request, response, Json::objectValue);
}

int NetClient::AddGatewayData(Json::Value& request) { return Call(this, tarnbus::kAddGateway, request, nullptr); }

int NetClient::DelGatewayData(Json::Value& request) { return Call(this, tarnbus::kDeleteGateway, request, nullptr); }

int NetClient::CopyGatewayData(Json::Value& request) { return Call(this, tarnbus::kCopyGateway, request, nullptr); }

int NetClient::RefreshGateway(Json::Value& request) { return Call(this, tarnbus::kRefresh, request, nullptr); }

int NetClient::SetSlaveData(Json::Value& request) { return Call(this, tarnbus::kSetSlave, request, nullptr); }

int NetClient::ResetIPv6Module(const std::string& ifname) {
    Json::Value request(Json::objectValue);
    request["ifname"] = ifname;
    return Call(this, tarnbus::kResetIPv6Module, request, nullptr);
}

}  // namespace dbus
}  // namespace tarnnetwork
