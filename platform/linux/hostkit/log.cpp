#include "hostkit/log.h"

#include <syslog.h>

#include <cstdarg>
#include <cstdio>

namespace tarnlinux {

void Log(int priority, const char* component, const std::string& text) { syslog(priority, "%s: %s", component, text.c_str()); }

void Logf(int priority, const char* component, const char* format, ...) {
    char text[512];
    va_list args;
    va_start(args, format);
    std::vsnprintf(text, sizeof text, format, args);
    va_end(args);
    Log(priority, component, text);
}

}  // namespace tarnlinux
