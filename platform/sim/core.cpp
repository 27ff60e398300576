// Simulated core library, network SDK, and the C library's syslog and sleep: every call is
// journaled; nothing touches the host.
#include "corestr.h"
#include "sim.h"
#include "tarncore.h"
#include "tarnnetsdk.h"

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

namespace {

// The NULL-terminated program arguments of a variadic call.
std::vector<std::string> ProgramArgs(va_list ap) {
    std::vector<std::string> args;
    while (const char* arg = va_arg(ap, const char*)) args.emplace_back(arg);
    return args;
}

// A read stream over `text`, kept in memory so that fgets behaves as on a pipe.
FILE* MemoryStream(const std::string& text) {
    int fd = memfd_create("tarnsim-popen", MFD_CLOEXEC);
    if (fd < 0) return nullptr;
    FILE* stream = nullptr;
    if (write(fd, text.data(), text.size()) == static_cast<ssize_t>(text.size()) && lseek(fd, 0, SEEK_SET) == 0)
        stream = fdopen(fd, "r");
    if (stream == nullptr) close(fd);
    return stream;
}

void Log(int priority, const char* format, va_list ap) {
    va_list copy;
    va_copy(copy, ap);
    int length = std::vsnprintf(nullptr, 0, format, copy);
    va_end(copy);
    std::string text(length > 0 ? static_cast<size_t>(length) : 0, '\0');
    if (length > 0) std::vsnprintf(&text[0], text.size() + 1, format, ap);
    sim::Record("syslog", sim::Args(priority, text));
}

bool Failed(int scripted) { return scripted < 0; }

std::string Text(const char* s) { return s != nullptr ? s : ""; }

}  // namespace

extern "C" {

TLIBCSzList* TLIBCSzListAlloc(int size) {
    int scripted = sim::PtrResult("TLIBCSzListAlloc");
    TLIBCSzList* list = scripted == 0 ? nullptr : tarncore::SzListAlloc(size);
    sim::Record("TLIBCSzListAlloc", sim::Args(size), sim::Ptr(list));
    return list;
}

const char* TLIBCSzListGet(const TLIBCSzList* list, int index) { return tarncore::SzListGet(list, index); }

int TLIBCSzListRemoveAll(TLIBCSzList* list) {
    int result = sim::IntResult("TLIBCSzListRemoveAll", 0);
    if (!Failed(result)) result = tarncore::SzListRemoveAll(list) < 0 ? -1 : result;
    sim::Record("TLIBCSzListRemoveAll", sim::Args(Json::Value()), result);
    return result;
}

void TLIBCSzListFree(TLIBCSzList* list) {
    tarncore::SzListFree(list);
    sim::Record("TLIBCSzListFree", sim::Args(Json::Value()));
}

int TLIBCStrSep(const char* text, const char* separators, TLIBCSzList** list) {
    Json::Value args = sim::Args(Text(text), Text(separators), Json::Value());
    Json::Value scripted = sim::Scripted("TLIBCStrSep");
    int result = scripted.isNull() ? 0 : scripted.asInt();
    if (!Failed(result)) {
        int added = tarncore::StrSep(text, separators, list);
        result = scripted.isNull() ? added : result;
    }
    sim::Record("TLIBCStrSep", args, result);
    return result;
}

int TLIBCStrReplace(char* buf, const char* from, const char* to, int max, int size) {
    Json::Value args =
        sim::Args(buf != nullptr ? std::string(buf, strnlen(buf, size > 0 ? size : 0)) : "", Text(from), Text(to), max, size);
    Json::Value scripted = sim::Scripted("TLIBCStrReplace");
    int result = scripted.isNull() ? 0 : scripted.asInt();
    if (!Failed(result)) {
        int replaced = tarncore::StrReplace(buf, from, to, max, size);
        result = scripted.isNull() ? replaced : result;
    }
    sim::Record("TLIBCStrReplace", args, result);
    return result;
}

FILE* TLIBCPopen(const char* path, const char* mode, ...) {
    va_list ap;
    va_start(ap, mode);
    std::vector<std::string> program = ProgramArgs(ap);
    va_end(ap);
    Json::Value args = sim::Args(Text(path), Text(mode));
    for (const std::string& arg : program) args.append(arg);
    FILE* stream = nullptr;
    if (sim::PtrResult("TLIBCPopen") != 0) {
        const Json::Value& output = sim::Member(sim::Scenario("ifconfig"), program.empty() ? "" : program[0]);
        stream = MemoryStream(output.isString() ? output.asString() : "");
    }
    sim::Record("TLIBCPopen", args, sim::Ptr(stream));
    return stream;
}

int TLIBCPclose(FILE* stream) {
    int result = sim::IntResult("TLIBCPclose", 0);
    if (stream != nullptr) std::fclose(stream);
    sim::Record("TLIBCPclose", sim::Args(Json::Value()), result);
    return result;
}

int TLIBCFileGetKeyValue(const char* path, const char* key, char* buf, int size, int flags) {
    Json::Value args = sim::Args(Text(path), Text(key), Json::Value(), size, flags);
    const Json::Value& value = sim::Member(sim::Member(sim::Scenario("keyvalues"), Text(path)), Text(key));
    std::string text = value.isString() ? value.asString() : "";
    int result = sim::IntResult("TLIBCFileGetKeyValue", value.isString() ? static_cast<int>(text.size()) + 1 : 0);
    if (result > 0 && value.isString() && buf != nullptr && size > 0) {
        size_t n = std::min(text.size(), static_cast<size_t>(size) - 1);
        std::memcpy(buf, text.data(), n);
        buf[n] = '\0';
    }
    sim::Record("TLIBCFileGetKeyValue", args, result);
    return result;
}

int TLIBCFileSetLine(const char* path, const char* key, const char* line, int flags) {
    return sim::IntAnswer("TLIBCFileSetLine", sim::Args(Text(path), Text(key), Text(line), flags), 1);
}

int TLIBCExec(const char* path, ...) {
    va_list ap;
    va_start(ap, path);
    std::vector<std::string> program = ProgramArgs(ap);
    va_end(ap);
    Json::Value args = sim::Args(Text(path));
    for (const std::string& arg : program) args.append(arg);
    return sim::IntAnswer("TLIBCExec", args, 0);
}

void TLIBCBannerPrint(void) { sim::Record("TLIBCBannerPrint"); }

int TARNNetIpAliasList(const char* ifname, TLIBCSzList** list) {
    int result = sim::IntResult("TARNNetIpAliasList", 0);
    if (result == 0) {
        for (const Json::Value& alias : sim::Member(sim::Scenario("aliases"), Text(ifname)))
            if (tarncore::SzListAdd(list, alias.asCString()) != 0) result = -1;
    }
    sim::Record("TARNNetIpAliasList", sim::Args(Text(ifname), Json::Value()), result);
    return result;
}

int TARNNetSeperateSubnet(const char* item, char* buf, int size, int* prefixLen) {
    Json::Value args = sim::Args(Text(item), Json::Value(), size, Json::Value());
    int result = sim::IntResult("TARNNetSeperateSubnet", 0);
    if (!Failed(result)) result = tarncore::SeperateSubnet(item, buf, size, prefixLen) < 0 ? -1 : result;
    sim::Record("TARNNetSeperateSubnet", args, result);
    return result;
}

// The tool logs and pauses through the C library's names; the simulated build answers them.
void syslog(int priority, const char* format, ...) {
    va_list ap;
    va_start(ap, format);
    Log(priority, format, ap);
    va_end(ap);
}

// The fortified name of syslog, in case a build enables _FORTIFY_SOURCE.
void __syslog_chk(int priority, int, const char* format, ...) {
    va_list ap;
    va_start(ap, format);
    Log(priority, format, ap);
    va_end(ap);
}

unsigned int sleep(unsigned int seconds) {
    sim::Record("sleep", sim::Args(seconds));
    return 0;
}

}  // extern "C"
