// The sd-bus calls of the product's NetClient, loaded on first use. Only the gateway actions
// talk to the daemon, and libsystemd with the compression and crypto libraries it pulls in
// would cost every run of the tool over a millisecond of dynamic linking at start.
#ifndef TARN_PLATFORM_LINUX_SDBUS_H
#define TARN_PLATFORM_LINUX_SDBUS_H

#include <systemd/sd-bus.h>

namespace tarnlinux::sdbus {

struct Api {
    decltype(&sd_bus_open_system) open_system;
    decltype(&sd_bus_set_method_call_timeout) set_method_call_timeout;
    decltype(&sd_bus_is_open) is_open;
    decltype(&sd_bus_flush_close_unref) flush_close_unref;
    decltype(&sd_bus_call_method) call_method;
    decltype(&sd_bus_call) call;
    decltype(&sd_bus_error_free) error_free;
    decltype(&sd_bus_message_new_method_call) message_new_method_call;
    decltype(&sd_bus_message_set_auto_start) message_set_auto_start;
    decltype(&sd_bus_message_read) message_read;
    decltype(&sd_bus_message_unref) message_unref;
};

// The calls, or null when libsystemd cannot be loaded (logged once, with the loader's reason).
// The library stays loaded until the process ends.
const Api* Get();

}  // namespace tarnlinux::sdbus

#endif
