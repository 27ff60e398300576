// The rounds-to-state rules: each row a start, a run of rounds (G good, B bad) and the state it
// must end in, with how many times the state changed on the way.
#include "rounds.h"

#include <gtest/gtest.h>

namespace {

using tarnnetd::Reach;

struct Row {
    const char* what;
    Reach start;
    const char* rounds;
    Reach end;
    int changes;
};

const tarnnetd::Rules kRules{3, 5};

const Row kRows[] = {
    {"first good round of an unknown uplink", Reach::kUnknown, "G", Reach::kOnline, 1},
    {"unknown stays unknown short of down", Reach::kUnknown, "BB", Reach::kUnknown, 0},
    {"down bad rounds in a row", Reach::kOnline, "BBB", Reach::kOffline, 1},
    {"a good round breaks the bad run", Reach::kOnline, "BBGBB", Reach::kOnline, 0},
    {"offline needs up good rounds", Reach::kOffline, "GGGG", Reach::kOffline, 0},
    {"up good rounds in a row", Reach::kOffline, "GGGGG", Reach::kOnline, 1},
    {"a bad round restarts the good run", Reach::kOffline, "GGGGBGGGG", Reach::kOffline, 0},
    {"bad rounds past down change nothing more", Reach::kOnline, "BBBBBB", Reach::kOffline, 1},
    {"leave, then come back", Reach::kOnline, "BBBGGGGG", Reach::kOnline, 2},
};

TEST(Rounds, RulesTable) {
    for (const Row& row : kRows) {
        tarnnetd::Progress progress;
        progress.reach = row.start;
        int changes = 0;
        for (const char* round = row.rounds; *round != '\0'; ++round) changes += CountRound(progress, *round == 'G', kRules);
        EXPECT_EQ(progress.reach, row.end) << row.what;
        EXPECT_EQ(changes, row.changes) << row.what;
    }
}

}  // namespace
