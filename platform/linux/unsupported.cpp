// The platform operations that have no Linux implementation yet. Each one fails as the
// libraries report failure (negative, false, null, empty), so that every action that needs
// one ends with its own failure message instead of pretending to have done its work.
#include "tarnnetwork.h"

namespace {

constexpr int kNotAvailable = -1;

}  // namespace

namespace tarnnetwork {
namespace network {

PolicyRoute::PolicyRoute() = default;
PolicyRoute::~PolicyRoute() = default;

int PolicyRoute::AddRule(const PolicyRouteRule&) { return kNotAvailable; }
int PolicyRoute::DeleteRule(const IP_TYPE&, const std::string&, const std::string&) { return kNotAvailable; }
int PolicyRoute::EnableTable(const IP_TYPE&, const std::string&, const std::string&) { return kNotAvailable; }
int PolicyRoute::DisableTable(const IP_TYPE&, const std::string&) { return kNotAvailable; }

StaticRoute::StaticRoute() = default;
StaticRoute::~StaticRoute() = default;

int StaticRoute::GetRouteTables(const IP_TYPE&, Json::Value&) { return kNotAvailable; }
int StaticRoute::RefreshRules() { return kNotAvailable; }
int StaticRoute::RefreshIpv4Rules() { return kNotAvailable; }
int StaticRoute::RefreshIpv6Rules() { return kNotAvailable; }

}  // namespace network
}  // namespace tarnnetwork
