// Simulated IPv6 router classes and file lock.
#include "sim.h"
#include "tarnnetwork.h"

namespace tarn::network::ipv6::router {
namespace {

class SimRouter6 : public Router6 {
public:
    explicit SimRouter6(std::string routerType) { type = std::move(routerType); }
    ~SimRouter6() override { sim::Record("Router6.~Router6"); }
    bool Destroy() override { return sim::BoolAnswer("Router6.Destroy", Json::Value(), true); }
    bool Reload() override { return sim::BoolAnswer("Router6.Reload", Json::Value(), true); }
    bool Create() override { return sim::BoolAnswer("Router6.Create", Json::Value(), true); }
    int Prepare() override { return sim::IntAnswer("Router6.Prepare", Json::Value(), 1); }
};

}  // namespace

Router6Attr::Router6Attr() { sim::Record("Router6Attr.Router6Attr"); }
Router6Attr::~Router6Attr() { sim::Record("Router6Attr.~Router6Attr"); }

int Router6Attr::LoadConfig() {
    const Json::Value& routers = sim::Scenario("router6");
    const Json::Value& stored = sim::Member(routers, ifname);
    int result = sim::IntResult("Router6Attr.LoadConfig", routers.isMember(ifname) ? 0 : -1);
    if (result >= 0 && stored.isObject()) {
        type = stored.get("type", "").asString();
        prefix = stored.get("prefix", "").asString();
        allocations.clear();
        for (const Json::Value& pair : stored.get("allocations", Json::Value(Json::arrayValue)))
            allocations.emplace_back(pair[0].asString(), pair[1].asString());
    }
    sim::Record("Router6Attr.LoadConfig", Json::Value(), result);
    return result;
}

Router6Prefix::Router6Prefix() { sim::Record("Router6Prefix.Router6Prefix"); }
Router6Prefix::~Router6Prefix() { sim::Record("Router6Prefix.~Router6Prefix"); }

std::vector<std::string> Router6Prefix::EnumPrefix64(const std::string& address, int length) {
    Json::Value scripted = sim::Scripted("Router6Prefix.EnumPrefix64");
    const Json::Value& stored = sim::Member(sim::Scenario("prefix64"), address + "/" + std::to_string(length));
    const Json::Value& source = scripted.isNull() ? stored : scripted;
    std::vector<std::string> prefixes;
    Json::Value journal(Json::arrayValue);
    for (const Json::Value& item : source.isArray() ? source : Json::Value(Json::arrayValue)) {
        prefixes.push_back(item.asString());
        journal.append(item);
    }
    sim::Record("Router6Prefix.EnumPrefix64", sim::Args(address, length), journal);
    return prefixes;
}

bool Router6Prefix::Allocate(const std::string& prefix, const std::string& owner) {
    return sim::BoolAnswer("Router6Prefix.Allocate", sim::Args(prefix, owner), true);
}

bool Router6Prefix::Deallocate(const std::string& prefix, const std::string& owner) {
    return sim::BoolAnswer("Router6Prefix.Deallocate", sim::Args(prefix, owner), true);
}

Router6Factory::Router6Factory() { sim::Record("Router6Factory.Router6Factory"); }
Router6Factory::~Router6Factory() { sim::Record("Router6Factory.~Router6Factory"); }

Router6* Router6Factory::newRouterV6Instance(const std::string& ifname, const std::string& arg) {
    const Json::Value& routers = sim::Scenario("routers");
    int scripted = sim::PtrResult("Router6Factory.newRouterV6Instance");
    bool make = scripted < 0 ? routers.isMember(ifname) : scripted == 1;
    Router6* router = nullptr;
    if (make) router = new SimRouter6(sim::Member(routers, ifname).get("type", "").asString());
    sim::Record("Router6Factory.newRouterV6Instance", sim::Args(ifname, arg), sim::Ptr(router));
    return router;
}

}  // namespace tarn::network::ipv6::router

namespace tarnnetwork::utils {

FileLock::FileLock(const std::string& path, bool create) : path_(path), create_(create) {
    sim::Record("FileLock.FileLock", sim::Args(path, create));
}

FileLock::~FileLock() { sim::Record("FileLock.~FileLock"); }

bool FileLock::Lock() { return sim::BoolAnswer("FileLock.Lock", Json::Value(), true); }

int FileLock::Unlock() { return sim::IntAnswer("FileLock.Unlock", Json::Value(), 0); }

}  // namespace tarnnetwork::utils
