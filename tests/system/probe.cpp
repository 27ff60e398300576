// Runs one call of the Linux platform from the command line, for the system tests:
//   probe lock PATH HOLD_MS | setline PATH KEY LINE | popen PROGRAM [ARG...] |
//   exec PROGRAM [ARG...] | aliases IFNAME
// Exit status 0 when the call succeeded, 255 (with one line on standard error) otherwise.
#include "tarncore.h"
#include "tarnnetsdk.h"
#include "tarnnetwork.h"

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

namespace {

constexpr int kFail = 255;
constexpr size_t kMaxProgramArgs = 6;

int Fail(const char* message) {
    std::fprintf(stderr, "probe: %s\n", message);
    return kFail;
}

// The program arguments padded with null pointers; the first null ends them for the callee.
std::vector<const char*> ProgramArgs(int argc, char** argv) {
    std::vector<const char*> args(argv + 3, argv + argc);
    args.resize(kMaxProgramArgs + 1, nullptr);
    return args;
}

int Lock(const char* path, const char* holdText) {
    char* end = nullptr;
    long holdMs = std::strtol(holdText, &end, 10);
    if (*holdText == '\0' || *end != '\0' || holdMs < 0) return Fail("HOLD_MS must be a number of milliseconds");
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

int Popen(int argc, char** argv) {
    std::vector<const char*> a = ProgramArgs(argc, argv);
    FILE* stream = TLIBCPopen(argv[2], "r", a[0], a[1], a[2], a[3], a[4], a[5], a[6]);
    if (stream == nullptr) return Fail("program not started");
    char line[1024];
    while (std::fgets(line, sizeof line, stream) != nullptr) std::fputs(line, stdout);
    return TLIBCPclose(stream) == 0 ? 0 : Fail("program failed");
}

int Exec(int argc, char** argv) {
    std::vector<const char*> a = ProgramArgs(argc, argv);
    return TLIBCExec(argv[2], a[0], a[1], a[2], a[3], a[4], a[5], a[6]) == 0 ? 0 : Fail("program failed");
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
    if (call == "lock" && argc == 4) return Lock(argv[2], argv[3]);
    if (call == "setline" && argc == 5) return TLIBCFileSetLine(argv[2], argv[3], argv[4], 0) > 0 ? 0 : Fail("not set");
    if ((call == "popen" || call == "exec") && argc >= 3 && static_cast<size_t>(argc - 3) <= kMaxProgramArgs)
        return call == "popen" ? Popen(argc, argv) : Exec(argc, argv);
    if (call == "aliases" && argc == 3) return Aliases(argv[2]);
    return Fail("usage: probe lock PATH HOLD_MS | setline PATH KEY LINE | popen|exec PROGRAM [ARG...] | aliases IFNAME");
}
