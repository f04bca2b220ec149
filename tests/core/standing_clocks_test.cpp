#include "core/standing_clocks.h"

#include <gtest/gtest.h>

TEST(StandingClocksTest, TellsOnceOfATimeThatStandsAndNotOfAMomentThatIsSet) {
    StandingClocks clocks;
    int told = 0;
    for (int look = 0; look < 10; ++look) {
        told += clocks.note(1, 7.0, look * 0.5) ? 1 : 0;
        EXPECT_FALSE(clocks.note(0, look * 0.5, look * 0.5 + (look < 5 ? 0.0 : 3600.0))) << look;
        EXPECT_EQ(clocks.isStanding(1), look >= 4) << look;
        const bool isStepped = look >= 5;  // right behind a look
        EXPECT_FALSE(clocks.note(3, look * 0.5 - (isStepped ? 0.45 : 0.0),
                                 look * 0.5 + (isStepped ? 2.55 : 0.0)))
            << look;
    }
    EXPECT_EQ(told, 1);
    EXPECT_FALSE(clocks.note(1, 8.0, 5.0) || clocks.isStanding(1) || clocks.isStanding(2));
}
