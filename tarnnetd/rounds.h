// How rounds of probes make an uplink's state: the rules alone, with no socket or clock.
#ifndef TARNNETD_ROUNDS_H
#define TARNNETD_ROUNDS_H

namespace tarnnetd {

enum class Reach { kUnknown, kOnline, kOffline };

const char* ReachName(Reach reach);  // "unknown", "online", "offline"

struct Rules {
    int down;  // bad rounds in a row that make an uplink offline
    int up;    // good rounds in a row that make an offline uplink online again
};

struct Progress {
    Reach reach = Reach::kUnknown;
    int good = 0;  // rounds in a row of each kind, the current run only
    int bad = 0;
};

// Counts one round. An uplink whose state is not known yet is online at its first good round;
// an offline one needs `up` good rounds in a row, so it comes back more slowly than it leaves.
// True when the state changed.
bool CountRound(Progress& progress, bool good, const Rules& rules);

}  // namespace tarnnetd

#endif
