// The platform's own lines in the system log: "<component>: <text>", under the name of the
// program that runs it (the tool's or tarnnetd's).
#ifndef TARN_HOSTKIT_LOG_H
#define TARN_HOSTKIT_LOG_H

#include <string>

namespace tarnlinux {

void Log(int priority, const char* component, const std::string& text);
void Logf(int priority, const char* component, const char* format, ...) __attribute__((format(printf, 3, 4)));

}  // namespace tarnlinux

#endif
