// tarnnetdtool: one action per process; exit status 0 on success, 255 on failure.
#include "actions.h"

#include <exception>
#include <iostream>
#include <map>
#include <string>

int main(int argc, char** argv) {
    if (argc < 2) {
        std::cerr << "No argument" << std::endl;
        PrintUsage();
        return -1;
    }
    std::map<std::string, ActionHandler> actions;
    for (const Action& action : kActions) actions.emplace(action.name, action.handler);
    auto found = actions.find(argv[1]);
    if (found == actions.end()) {
        std::cerr << "Command [" << argv[1] << "] not found" << std::endl;
        PrintUsage();
        return -1;
    }
    // Handlers report failures themselves; this only keeps a library's exception from
    // aborting the process.
    try {
        return found->second(argc, argv) < 0 ? -1 : 0;
    } catch (const std::exception& e) {
        std::cerr << "Failed: " << e.what() << std::endl;
        return -1;
    }
}
