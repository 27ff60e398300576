#include "conventions.h"
#include "gateway/gateway.h"

#include <iostream>

int GenDUID(int, char**) {
    std::string duid = tarnnetwork::utils::GenDUID();
    if (duid.empty()) {
        // Without a line end: callers read the message as is.
        std::cerr << "Failed to generate DUID" << std::flush;
        return kFail;
    }
    std::cout << duid << '\n' << std::flush;
    return kOk;
}
