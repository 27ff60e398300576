// --init-ipv6-router: sets up an interface's IPv6 router and, unless it is native, hands out
// its prefix.
#include "conventions.h"
#include "ipv6router/ipv6router.h"

#include <memory>

using tarn::network::ipv6::router::Router6;
using tarn::network::ipv6::router::Router6Factory;
using tarnnetwork::utils::FileLock;

namespace {

// A native router gets its prefix without the tool's redistribution.
constexpr char kNativeType[] = "native";

// The router instance is a local here, so it is deleted before the caller releases the lock.
int InitLocked(Router6Factory& factory, FileLock& lock, int argc, char** argv) {
    if (argc != 4) return kFail;
    if (!lock.Lock()) {
        TOOL_LOG(LOG_ERR, "Failed to lock in InitIPv6Router");
        return kFail;
    }
    std::unique_ptr<Router6> router(factory.newRouterV6Instance(argv[2], argv[3]));
    if (!router) {
        TOOL_LOG(LOG_INFO, "No IPv6 router available");
        return kFail;
    }
    router->Prepare();  // informational only
    if (!router->Create()) {
        TOOL_LOG(LOG_INFO, "Create IPv6 router for %s failed", argv[2]);
        return kFail;
    }
    if (router->type == kNativeType) return kOk;
    return ApplyPrefixOrLog(argv[2]);
}

}  // namespace

int InitIPv6Router(int argc, char** argv) {
    Router6Factory factory;
    FileLock lock(kRouterLockPath, true);  // constructed and released whatever the arguments
    int result = InitLocked(factory, lock, argc, argv);
    lock.Unlock();
    return result;
}
