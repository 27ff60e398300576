#include "conventions.h"
#include "gateway/daemon.h"
#include "gateway/gateway.h"

#include <cstring>
#include <iostream>

using tarnnetwork::dbus::NetClient;

namespace {

using Request = int (NetClient::*)(Json::Value&);

// Sends `request` through `call`; a negative result is reported as `complaint`.
int Send(NetClient& client, Request call, Json::Value& request, const char* complaint) {
    if ((client.*call)(request) >= 0) return kOk;
    std::cerr << complaint << std::endl;
    return kFail;
}

// Word arguments are matched by their beginning only: "yesplease" is yes, "allx" is all.
bool StartsWith(const char* arg, const char* word) { return std::strncmp(arg, word, std::strlen(word)) == 0; }

}  // namespace

int AddGatewayInfo(int argc, char** argv) {
    NetClient client;
    Json::Value request;
    if (!HasArgs(argc, 7) || !SetType(request, argv[2])) return kFail;
    request["priority"] = argv[3];
    request["ifname"] = argv[4];
    request["gateway"] = argv[5];
    request["dns"] = argv[6];
    if (argc >= 8) request["class"] = argv[7];
    WaitUntilReady(client);
    return Send(client, &NetClient::AddGatewayData, request, "Failed to AddGatewayData");
}

int DelGatewayInfo(int argc, char** argv) {
    NetClient client;
    Json::Value request;
    if (!HasArgs(argc, 4) || !SetType(request, argv[2])) return kFail;
    request["ifname"] = argv[3];
    WaitUntilReady(client);
    return Send(client, &NetClient::DelGatewayData, request, "Failed to DelGatewayData");
}

int CopyGatewayInfo(int argc, char** argv) {
    NetClient client;
    Json::Value request;
    if (!HasArgs(argc, 5) || !SetType(request, argv[2])) return kFail;
    request["interface_destination"] = argv[4];
    request["interface_source"] = argv[3];
    request["interface_source_delete"] = false;
    if (client.CopyGatewayData(request) >= 0) return kOk;
    // Reported to the system log only; standard error stays empty.
    TOOL_LOG(LOG_ERR, "Failed to copy %s gateway info from [%s] to [%s]", argv[2], argv[3], argv[4]);
    return kFail;
}

int RefreshGateway(int argc, char** argv) {
    NetClient client;
    Json::Value request;
    if (!HasArgs(argc, 3)) return kFail;
    // No argument starts with both "all" and "-4" or "-6", so testing "all" first changes nothing.
    if (StartsWith(argv[2], "all")) {
        request["type"] = "ALL";
    } else if (!SetType(request, argv[2])) {
        return kFail;
    }
    WaitUntilReady(client);
    return Send(client, &NetClient::RefreshGateway, request, "Failed to RefreshGateway");
}

int SetSlaveData(int argc, char** argv) {
    NetClient client;
    Json::Value request;
    if (!HasArgs(argc, 5) || !SetType(request, argv[2])) return kFail;
    request["ifname"] = argv[3];
    if (StartsWith(argv[4], "yes")) {
        request["slave"] = true;
    } else if (StartsWith(argv[4], "no")) {
        request["slave"] = false;
    } else {
        std::cerr << "arg1 error: please enter true or false" << std::endl;
        return kFail;
    }
    return Send(client, &NetClient::SetSlaveData, request, "Failed to SetSlaveData");
}

int ResetIPv6Module(int argc, char** argv) {
    NetClient client;
    if (!HasArgs(argc, 3)) return kFail;
    if (client.ResetIPv6Module(argv[2]) >= 0) return kOk;
    std::cerr << "Failed to ResetIPv6Module" << std::endl;
    return kFail;
}
