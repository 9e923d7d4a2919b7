// SPDX-License-Identifier: Apache-2.0
#include "check/key_notes.h"

#include <algorithm>

namespace lnkd {

namespace {

constexpr int64_t kLargest = std::numeric_limits<int32_t>::max();
constexpr int64_t kGigabit = 1000000;  // kbit/s
constexpr int64_t kHourInSeconds = 60 * 60;

constexpr char kAggregation[] = "Link aggregation";
constexpr char kSelection[] = "Link selection";
constexpr char kEnabledProperty[] = "vendor.sla.enabled";
constexpr char kIfacesProperty[] = "vendor.sla.ifaces";

KeyNote replaced(std::string_view key, std::string_view property) {
    KeyNote note{key, KeyUse::kReplacedAtStart};
    note.replacedBy = property;
    return note;
}

}  // namespace

const std::vector<KeyNote>& keyNotes() {
    using Use = KeyUse;
    static const std::vector<KeyNote> notes = {
            {"mini_est_interval",
             Use::kUsed,
             kAggregation,
             "ms",
             "period of the main loop",
             "Period of the main loop: new shares, and the choice of the best link.",
             {100, 60000},
             {1, kLargest}},
            {"wifi_threshold",
             Use::kUsed,
             kAggregation,
             "kbit/s",
             "metered links help below it",
             "At or below this rate of all unmetered links together, metered links carry a share.",
             {0, kGigabit}},
            {"wan_threshold",
             Use::kUsed,
             kAggregation,
             "kbit/s",
             "a metered link idles below it",
             "A metered link measured below this rate counts as idle.",
             {0, kGigabit}},
            {"min_ratio_change",
             Use::kUsed,
             kAggregation,
             "percent",
             "change worth new rules",
             "Rules are rebuilt when more than this part of the new connections would move within "
             "a "
             "period.",
             {0, 99},
             {},
             "the shares are never followed"},
            {"mini_stale_interval",
             Use::kUsed,
             kAggregation,
             "ms",
             "greatest age of statistics",
             "Statistics that are older are not used.",
             {100, 60000}},
            {"ideal_est_window",
             Use::kUsed,
             kAggregation,
             "ms",
             "length of an estimate",
             "Length of the statistics that an estimate is made from.",
             {1, 10000}},
            {"mini_rate_window",
             Use::kUsed,
             kAggregation,
             "ms",
             "least length of an estimate",
             "An estimate from less than this is 0, unless it covers more than 100 KiB.",
             {0, 10000}},
            {"estimate_pack_num",
             Use::kUsed,
             kAggregation,
             "",
             "least samples in an estimate",
             "Least number of samples in an estimate; with fewer the rate is 0.",
             {0, 1000},
             {},
             "no estimate has so many"},
            {"best_est_cache_size",
             Use::kUsed,
             kAggregation,
             "",
             "estimates kept for an idle link",
             "Past estimates whose best stands in for an idle link; 0: an idle link has rate 0.",
             {0, 10000}},
            {"protocols", Use::kUsed, kAggregation, "", "traffic that is measured",
             "Traffic that the kernel's statistics module measures."},
            {"ports", Use::kUsed, kAggregation, "", "ports that are measured",
             "Its ports, comma-separated."},
            {"uid_whitelist", Use::kUsed, kAggregation, "", "applications to steer",
             "UIDs of the applications to steer until a client sends others, comma-separated, at "
             "most 5 digits each."},

            {"ping_interval_ms",
             Use::kUsed,
             kSelection,
             "ms",
             "period of probes and messages",
             "Period of the probes, and of the control socket, which takes one message a period.",
             {100, 60000},
             {1, kLargest}},
            {"rtt_server", Use::kUntilFirstGame, kSelection, "", "IPv4 address that is probed",
             "IPv4 address that is probed, at port 443, until the first game or call starts."},
            {"rtt_exit_threshold",
             Use::kUsed,
             kSelection,
             "ms",
             "reported RTT that starts probes",
             "A client's report of a round-trip time above this starts the probes.",
             {1, 10000}},
            {"min_ping_times",
             Use::kUsed,
             kSelection,
             "",
             "misses that fail a link",
             "So many unanswered probes in a row fail a link.",
             {2, 100},
             {},
             "1 grades no link, 0 fails every link"},
            {"alpha_percent",
             Use::kUsed,
             kSelection,
             "percent",
             "weight of the long average",
             "Weight of the long average of the round-trip times; the short one has the rest.",
             {0, 100},
             {0, 100}},
            {"t_hyst_s",
             Use::kUsed,
             kSelection,
             "s",
             "window that limits switches",
             "Length of the window in which switches are limited; 0 does not limit them.",
             {0, kHourInSeconds},
             {},
             "below 0 nothing is limited, above 2147483 the milliseconds wrap"},
            {"n_hyst",
             Use::kUsed,
             kSelection,
             "",
             "switches in that window",
             "Number of switches that are allowed in that window.",
             {1, 1000},
             {},
             "below 1 no link is left within the window"},

            replaced("SLAEnabled", kEnabledProperty),
            replaced("num_interfaces", kIfacesProperty),
            replaced("interface_0", kIfacesProperty),
            replaced("interface_1", kIfacesProperty),
            replaced("interface_2", kIfacesProperty),
            replaced("interface_3", kIfacesProperty),

            {"CellularSockAssignRate"},
            {"SockActiveTime"},
            {"SockStaleTime"},
            {"update_pm_freq"},
            {"init_wwan_percentage"},
            {"gaming_whitelist"},
            {"gaming_uid_list"},
            {"gaming_poll_freq_cnt"},
            {"ping_period_ms"},
            {"rtt_noresponse_timeout_ms"},
            {"rtt_hist"},
            {"rtt_min_cap_ms"},
            {"rtt_entry_threshold"},
            {"rtt_delta_ms"},
            {"rtt_w2c_th_wifi_ms"},
            {"rtt_w2c_th_c_ms"},
            {"rtt_c2w_th_wifi_ms"},
            {"rtt_c2w_th_wifi_min_ms"},
            {"rtt_c2w_th_c_ms"},
    };
    return notes;
}

const KeyNote* findKeyNote(std::string_view key) {
    const std::vector<KeyNote>& notes = keyNotes();
    const auto found = std::find_if(notes.begin(), notes.end(),
                                    [key](const KeyNote& note) { return note.key == key; });
    return found == notes.end() ? nullptr : &*found;
}

}  // namespace lnkd
