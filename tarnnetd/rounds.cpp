#include "rounds.h"

namespace tarnnetd {

const char* ReachName(Reach reach) {
    if (reach == Reach::kOnline) return "online";
    if (reach == Reach::kOffline) return "offline";
    return "unknown";
}

bool CountRound(Progress& progress, bool good, const Rules& rules) {
    Reach before = progress.reach;
    if (good) {
        progress.good++;
        progress.bad = 0;
        if (before == Reach::kUnknown || (before == Reach::kOffline && progress.good >= rules.up))
            progress.reach = Reach::kOnline;
    } else {
        progress.bad++;
        progress.good = 0;
        if (before != Reach::kOffline && progress.bad >= rules.down) progress.reach = Reach::kOffline;
    }
    return progress.reach != before;
}

}  // namespace tarnnetd
