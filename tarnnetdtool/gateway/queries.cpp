#include "conventions.h"
#include "gateway/daemon.h"
#include "gateway/gateway.h"

#include <iostream>
#include <string>

using tarnnetwork::dbus::NetClient;

namespace {

// The members of a gateway record, printed as key=value lines in this order.
const std::vector<const char*> kRecordMembers = {"class", "dns", "gateway", "priority"};

// Asks for the gateway list after the readiness wait; a null list stands for none.
bool ReadGatewayList(NetClient& client, Json::Value& request, Json::Value& list, const std::vector<const char*>& texts) {
    WaitUntilReady(client);
    if (client.GetGatewayListData(request, list) < 0 || !IsGatewayList(list, texts)) {
        std::cerr << "Failed to GetGatewayListData" << std::endl;
        return false;
    }
    if (list.isNull()) list = Json::Value(Json::arrayValue);
    return true;
}

}  // namespace

int GetGatewayListData(int argc, char** argv) {
    NetClient client;
    Json::Value request, list;
    if (!HasArgs(argc, 3) || !SetType(request, argv[2])) return kFail;
    if (!ReadGatewayList(client, request, list, {})) return kFail;
    std::cout << list.toStyledString() << std::endl;
    return kOk;
}

int GetGatewayDataByInterface(int argc, char** argv) {
    NetClient client;
    Json::Value request, record;
    if (!HasArgs(argc, 4) || !SetType(request, argv[2])) return kFail;
    request["ifname"] = argv[3];
    WaitUntilReady(client);
    int result = client.GetGatewayDataByInterface(request, record);
    // A null record reads as one without members.
    if (result < 0 || !(record.isNull() || IsGatewayEntry(record, kRecordMembers))) {
        std::cerr << "Failed to GetGatewayDataByInterface" << std::endl;
        return kFail;
    }
    const Json::Value& members = record;
    for (const char* member : kRecordMembers) std::cout << member << "=" << members[member].asString() << std::endl;
    return kOk;
}

int GetInterfaceByClass(int argc, char** argv) {
    NetClient client;
    Json::Value request, list;
    if (!HasArgs(argc, 4) || !SetType(request, argv[2])) return kFail;
    // The filter reads each entry's "class" as text too.
    if (!ReadGatewayList(client, request, list, {"ifname", "class"})) return kFail;
    tarnnetwork::network::FilterList(argv[3], list);
    std::string names;
    for (Json::ArrayIndex i = 0; i < list.size(); ++i) {
        names += list[i]["ifname"].asString();
        if (i != list.size() - 1) names += ",";
    }
    std::cout << names << std::endl;
    return kOk;
}

int IsServerReady(int, char**) {
    NetClient client;
    std::cout << (client.IsServerReady() ? "1" : "0") << std::endl;
    return kOk;
}
