// restore-tables: run by the boot path, puts the policy tables, their rules and the source
// rules stored in the routing state back into the kernel, for every interface that is there.
#include "routing/routing.h"

#include <cstdio>

int main(int argc, char**) {
    constexpr int kFailure = 255;
    if (argc != 1) {
        std::fputs("usage: restore-tables\n", stderr);
        return kFailure;
    }
    return tarnroute::RestoreTables() ? 0 : kFailure;
}
