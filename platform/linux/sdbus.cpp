#include "sdbus.h"

#include "hostkit/log.h"

#include <dlfcn.h>
#include <syslog.h>

namespace tarnlinux::sdbus {
namespace {

constexpr char kLibrary[] = "libsystemd.so.0";

template <typename Function>
bool Resolve(void* library, const char* name, Function& out) {
    out = reinterpret_cast<Function>(dlsym(library, name));
    return out != nullptr;
}

#define TARN_RESOLVE(name) Resolve(library, "sd_bus_" #name, api.name)

bool Load(Api& api) {
    void* library = dlopen(kLibrary, RTLD_LAZY | RTLD_LOCAL);
    bool ok = library != nullptr && TARN_RESOLVE(open_system) && TARN_RESOLVE(set_method_call_timeout) && TARN_RESOLVE(is_open) &&
              TARN_RESOLVE(flush_close_unref) && TARN_RESOLVE(call_method) && TARN_RESOLVE(call) && TARN_RESOLVE(error_free) &&
              TARN_RESOLVE(message_new_method_call) && TARN_RESOLVE(message_set_auto_start) && TARN_RESOLVE(message_read) &&
              TARN_RESOLVE(message_unref);
    if (!ok) {
        const char* why = dlerror();
        tarnlinux::Log(LOG_ERR, "tarnnetd",
                       std::string("cannot load ") + kLibrary + ": " + (why != nullptr ? why : "unknown reason"));
    }
    return ok;
}

#undef TARN_RESOLVE

}  // namespace

const Api* Get() {
    static Api api{};
    static const bool loaded = Load(api);
    return loaded ? &api : nullptr;
}

}  // namespace tarnlinux::sdbus
