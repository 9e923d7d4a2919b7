// SPDX-License-Identifier: Apache-2.0
// Asks for the signal of the access point 020000000100 on wlan0, against iw in the same run, on
// a machine with a radio. Prints the figures, medians of rounds in turn, as JSON.
#include <malloc.h>

#include "compare.h"
#include "wificond/net/netlink_utils.h"

namespace {

using android::wificond::NetlinkUtils;

constexpr int kRounds = 9;
constexpr int kQueriesARound = 50;
constexpr int kQueries = 10000;

void query() {
    check(NetlinkUtils::instance()->GetStationInfo("020000000100", "wlan0") < 0, "station query");
}

// Bytes of the heap in use.
long heapInUse() {
    return static_cast<long>(mallinfo2().uordblks);
}

}  // namespace

int main() {
    check(NetlinkUtils::instance()->Start(), "nl80211");
    std::vector<double> ours, iw, start;
    for (int round = 0; round < kRounds; ++round) {
        iw.push_back(
                msOf([] { run("exec iw dev wlan0 station get 02:00:00:00:01:00 >/dev/null"); }));
        start.push_back(msOf([] { run("exec iw --version >/dev/null"); }));
        ours.push_back(msOf([] {
                           for (int i = 0; i < kQueriesARound; ++i) {
                               query();
                           }
                       }) /
                       kQueriesARound);
    }
    residentKib();  // reading it the first time costs pages of its own
    const long heap = heapInUse();
    const long resident = residentKib();
    for (int i = 0; i < kQueries; ++i) {
        query();
    }
    printf("{\"ours\": %.4f, \"iw\": %.4f, \"start\": %.4f, \"heap\": %ld, \"resident\": %ld}\n",
           median(ours), median(iw), median(start), heapInUse() - heap, residentKib() - resident);
}
