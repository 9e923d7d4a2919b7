// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include "doctor/doctor_report.h"
#include "doctor/system_needs.h"

namespace lnkd {
namespace {

TEST(Doctor, TakesAClockFromBeforeTheBuildForOneThatWasNotSet) {
    constexpr time_t kNewYear2026 = 1767225600;
    EXPECT_EQ(examineClock(0).state, NeedState::kMissing);
    EXPECT_EQ(examineClock(kNewYear2026 - 1).state, NeedState::kMissing);
    EXPECT_EQ(examineClock(kNewYear2026).state, NeedState::kOk);
}

TEST(Doctor, FoldsWhatIsThereAndWhatCouldNotBeTriedButNothingThatIsMissing) {
    const Need a{"first", "a", false, "no a", "get a"}, b{"first", "b", false, "no b", "get b"},
            c{"second thing", "c", true, "no c", "get c"};
    const Needs needs = {
            a.met("A"), b.met("B"), a.unknown("dark"), b.unknown("dark"), c.missing("gone\033"),
            c.met("C")};
    EXPECT_EQ(doctorText(needs, false, Terminal()),
              "Needed: 2 not known. Optional: 1 missing.\n\n"
              "first         ok         A, B\n"
              "              not known  a, b: dark\n"
              "second thing  ok         C\n"
              "              missing    gone?\n"
              "      optional; without it no c\n"
              "      do: get c\n");
    EXPECT_EQ(exitStatusFor(needs), kNeedUnknown);
    EXPECT_EQ(exitStatusFor({c.missing(""), a.met("")}), 0) << "what is optional does not count";
    EXPECT_EQ(exitStatusFor({a.missing(""), b.unknown("")}), kNeedMissing);
}

}  // namespace
}  // namespace lnkd
