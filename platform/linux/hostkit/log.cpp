#include "hostkit/log.h"

#include <syslog.h>

#include <cstdarg>
#include <cstdio>

namespace tarnlinux {

// Control characters are shown as \xNN: a name or an argument in the text cannot forge a line.
void Log(int priority, const char* component, const std::string& text) {
    std::string shown;
    for (char c : text) {
        char hex[5];
        bool control = static_cast<unsigned char>(c) < 0x20 || c == 0x7f;
        if (control) std::snprintf(hex, sizeof hex, "\\x%02x", static_cast<unsigned char>(c));
        shown += control ? hex : std::string(1, c);
    }
    syslog(priority, "%s: %s", component, shown.c_str());
}

void Logf(int priority, const char* component, const char* format, ...) {
    char text[512];
    va_list args;
    va_start(args, format);
    std::vsnprintf(text, sizeof text, format, args);
    va_end(args);
    Log(priority, component, text);
}

}  // namespace tarnlinux
