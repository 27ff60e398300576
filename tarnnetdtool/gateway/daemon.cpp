#include "gateway/daemon.h"

#include "conventions.h"

#include <unistd.h>

namespace {

constexpr int kReadyAsks = 6;

}  // namespace

bool SetType(Json::Value& request, const char* arg) {
    std::optional<tarnnetwork::network::IP_TYPE> family = ReadFamily(arg);
    if (!family) return false;
    request["type"] = GatewayType(*family);
    return true;
}

void WaitUntilReady(const tarnnetwork::dbus::NetClient& client) {
    for (int asks = kReadyAsks; !client.IsServerReady() && --asks > 0;) sleep(1);
}

// JsonCpp throws when an array or object is read as text, so replies are checked before use.
bool IsGatewayEntry(const Json::Value& entry, const std::vector<const char*>& texts) {
    if (!entry.isObject()) return false;
    for (const char* member : texts)
        if (!entry[member].isConvertibleTo(Json::stringValue)) return false;
    return true;
}

bool IsGatewayList(const Json::Value& list, const std::vector<const char*>& texts) {
    if (list.isNull()) return true;
    if (!list.isArray()) return false;
    for (const Json::Value& entry : list)
        if (!IsGatewayEntry(entry, texts)) return false;
    return true;
}
