// One call of the Linux platform from the command line, for the system tests:
//   probe lock PATH HOLD_MS | popen|exec PROGRAM [ARG...] | aliases IFNAME
// Exit status 0 when the call succeeded, 255 (with one line on standard error) otherwise.
#include "tarncore.h"
#include "tarnnetsdk.h"
#include "tarnnetwork.h"

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <thread>
#include <vector>

namespace {

int Fail(const char* message) {
    std::fprintf(stderr, "probe: %s\n", message);
    return 255;
}

int Lock(const char* path, long holdMs) {
    tarnnetwork::utils::FileLock lock(path, true);
    auto start = std::chrono::steady_clock::now();
    if (!lock.Lock()) return Fail("lock not taken");
    auto waited = std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - start);
    std::printf("locked after %lld ms\n", static_cast<long long>(waited.count()));
    std::fflush(stdout);
    std::this_thread::sleep_for(std::chrono::milliseconds(holdMs));
    lock.Unlock();
    return 0;
}

// PROGRAM with up to six arguments, padded with null pointers; the first null ends them.
int Run(bool stream, int argc, char** argv) {
    std::vector<const char*> a(argv + 3, argv + argc);
    a.resize(7, nullptr);
    if (!stream) return TLIBCExec(argv[2], a[0], a[1], a[2], a[3], a[4], a[5], a[6]) == 0 ? 0 : Fail("program failed");
    FILE* out = TLIBCPopen(argv[2], "r", a[0], a[1], a[2], a[3], a[4], a[5], a[6]);
    if (out == nullptr) return Fail("program not started");
    for (int c; (c = std::fgetc(out)) != EOF;) std::putchar(c);
    return TLIBCPclose(out) == 0 ? 0 : Fail("program failed");
}

int Aliases(const char* ifname) {
    TLIBCSzList* list = TLIBCSzListAlloc(1024);
    if (list == nullptr) return Fail("out of memory");
    int result = TARNNetIpAliasList(ifname, &list);
    for (int i = 0; result == 0 && i < list->nItem; ++i) std::puts(TLIBCSzListGet(list, i));
    TLIBCSzListFree(list);
    return result == 0 ? 0 : Fail("no alias list");
}

}  // namespace

int main(int argc, char** argv) {
    std::string call = argc > 1 ? argv[1] : "";
    if (call == "lock" && argc == 4) return Lock(argv[2], std::strtol(argv[3], nullptr, 10));
    if ((call == "popen" || call == "exec") && argc >= 3 && argc <= 9) return Run(call == "popen", argc, argv);
    if (call == "aliases" && argc == 3) return Aliases(argv[2]);
    return Fail("usage: lock PATH HOLD_MS | popen|exec PROGRAM [ARG...] | aliases IFNAME");
}
