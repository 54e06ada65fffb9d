// SPDX-License-Identifier: MIT
// "Did you mean": the distance counts swaps as one step, and only close
// names are offered.

#include "Suggestions.h"

#include <gtest/gtest.h>

TEST(Suggestions, distanceCountsEachKindOfSlipOnce)
{
    struct Case {
        const char* a;
        const char* b;
        int distance;
    };
    const Case cases[] = {
        {"login", "login", 0}, {"lgoin", "login", 1},  // swap
        {"logn", "login", 1},  {"loggin", "login", 1}, // deletion, insertion
        {"lagin", "login", 1}, {"LOGIN", "login", 0},  // substitution, case
        {"", "abc", 3},        {"abc", "", 3},
        {"ca", "abc", 3}, // a swap and an insertion are not one step (optimal string alignment)
        {"kitten", "sitting", 3},
    };
    for (const Case& c : cases)
        EXPECT_EQ(Suggestions::distance(QString::fromLatin1(c.a), QString::fromLatin1(c.b)), c.distance)
            << c.a << " / " << c.b;
}

TEST(Suggestions, onlyCloseNamesAreOfferedBestFirst)
{
    const QStringList commands{"login", "logout", "post", "postv1", "postv2", "get", "interfaces", "upgrade"};
    struct Case {
        const char* word;
        QStringList expected;
    };
    const QList<Case> cases{
        {"lgoin", {"login"}},
        {"logot", {"logout"}},
        {"pots", {"post"}},            // a third of 4 letters allows one step
        {"postv", {"post", "postv1", "postv2"}},
        {"interf", {"interfaces"}},    // a prefix counts
        {"xyz", {}},
        {"g", {}},                     // nothing from one letter but the prefix rule, which needs three
        {"", {}},
    };
    for (const Case& c : cases)
        EXPECT_EQ(Suggestions::closest(QString::fromLatin1(c.word), commands), c.expected) << c.word;
    EXPECT_EQ(Suggestions::didYouMean("lgoin", commands), " (did you mean 'login'?)");
    EXPECT_EQ(Suggestions::didYouMean("postv", commands), " (did you mean 'post', 'postv1' or 'postv2'?)");
    EXPECT_EQ(Suggestions::didYouMean("xyz", commands), "");
}
