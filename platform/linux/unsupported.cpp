// The platform operations that have no Linux implementation yet. Each one fails as the
// libraries report failure (negative, false, null, empty), so that every action that needs
// one ends with its own failure message instead of pretending to have done its work.
#include "tarnnetwork.h"

namespace {

constexpr int kNotAvailable = -1;

}  // namespace

namespace tarnnetwork {
namespace dbus {

NetClient::NetClient() = default;
NetClient::~NetClient() = default;

bool NetClient::IsServerReady() const { return false; }
int NetClient::GetGatewayListData(Json::Value&, Json::Value&) { return kNotAvailable; }
int NetClient::GetGatewayDataByInterface(Json::Value&, Json::Value&) { return kNotAvailable; }
int NetClient::AddGatewayData(Json::Value&) { return kNotAvailable; }
int NetClient::DelGatewayData(Json::Value&) { return kNotAvailable; }
int NetClient::CopyGatewayData(Json::Value&) { return kNotAvailable; }
int NetClient::RefreshGateway(Json::Value&) { return kNotAvailable; }
int NetClient::SetSlaveData(Json::Value&) { return kNotAvailable; }
int NetClient::ResetIPv6Module(const std::string&) { return kNotAvailable; }

}  // namespace dbus

}  // namespace tarnnetwork

namespace tarn::network::ipv6::router {

Router6Attr::Router6Attr() = default;
Router6Attr::~Router6Attr() = default;

int Router6Attr::LoadConfig() { return kNotAvailable; }

Router6Prefix::Router6Prefix() = default;
Router6Prefix::~Router6Prefix() = default;

std::vector<std::string> Router6Prefix::EnumPrefix64(const std::string&, int) { return {}; }
bool Router6Prefix::Allocate(const std::string&, const std::string&) { return false; }
bool Router6Prefix::Deallocate(const std::string&, const std::string&) { return false; }

Router6Factory::Router6Factory() = default;
Router6Factory::~Router6Factory() = default;

Router6* Router6Factory::newRouterV6Instance(const std::string&, const std::string&) { return nullptr; }

}  // namespace tarn::network::ipv6::router
