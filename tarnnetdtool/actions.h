// The action table and the usage text.
#ifndef TARNNETDTOOL_ACTIONS_H
#define TARNNETDTOOL_ACTIONS_H

#include <vector>

// Runs one action with the process's own argc and argv (its first argument is argv[2]);
// returns 0 or -1.
using ActionHandler = int (*)(int argc, char** argv);

struct Action {
    const char* name;
    ActionHandler handler;
};

// Every action, in the order the table is filled; lookup does not depend on it.
extern const std::vector<Action> kActions;

// Writes the banner and the usage text on standard output.
void PrintUsage();

#endif
