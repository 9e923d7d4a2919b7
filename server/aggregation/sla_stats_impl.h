// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "core/interface_info.h"
#include "core/link_stats.h"
#include "core/thread_annotations.h"

namespace lnkd {

class Parameters;

// Buffers that getSlaVoipState() fills, in bytes, NUL included.
constexpr size_t kVoipAddressSize = 16;
constexpr size_t kVoipPortSize = 8;

// How new connections are shared out in a pass.
enum SLA_ratio_calc_process {
    SLA_CALC_UNMETERED_ONLY = 0,  // the unmetered links are fast enough together
    SLA_CALC_WITH_METERED = 1,    // they are at or below wifi_threshold: metered links help
};

// The aggregation engine: registers the interfaces with the kernel's statistics module, reads
// what it measures, and turns rates into each link's share of new connections.
//
// The policy. While the unmetered links together are slow (at or below wifi_threshold), each of
// them gets the share that its rate is of the threshold, and the metered links share the rest in
// proportion to their rates. Once they are fast enough, metered links get nothing and the
// unmetered ones share everything in proportion to their rates; but when one of several carries
// more than 95 percent of their sum, it gets 90 percent and the others share the last 10 equally,
// so that they are still measured.
class SlaStatsImpl {
  public:
    // Returns the object, built at the first call; safe when two threads make it.
    static SlaStatsImpl* instance();
    // Releases the object, if there is one. No other thread may use it any more.
    static void finalize();

    SlaStatsImpl(const SlaStatsImpl&) = delete;
    SlaStatsImpl& operator=(const SlaStatsImpl&) = delete;

    // Registers and maps every interface of the table and starts the module's collection, or
    // unmaps all and stops it. True when the last command, the one that starts or stops, was
    // written. A statistics file that does not appear delays this by 1.5 s.
    bool enableSLA(bool enable) EXCLUDES(configMutex, statsMutex);

    // Tells the module and the mappings of an interface that was added to or removed from the
    // table. The module has no command to remove one interface: it is stopped, told all of them
    // again, and started. Always true.
    bool updateSlaInterfacemap(const char* name, bool add) EXCLUDES(configMutex, statsMutex);

    // One pass: measures every link, computes the shares, and rebuilds the ratio rules when more
    // than min_ratio_change percent of new connections would move.
    void evalAndSetSLAInterfaceRatio() EXCLUDES(configMutex, statsMutex);

    // Makes the next pass build the ratio rules, however small its move: the shares that the packet
    // filter has are not known. The chain was emptied when an interface went, and a pass that comes
    // between a new one's statistics and its chains has its rules refused.
    void forgetShares() EXCLUDES(statsMutex);

    // Has the module follow the calls of the application `uid`, or stop doing so. `uid` must be a
    // UID: a start with another text is refused, -1, and a stop is for UID 0 then. Returns the
    // result of the second of its two commands, 0 or -1.
    int32_t enableSlaVoipState(bool enable, const char* uid);

    // Reads the remote end of the call: two decimal numbers, the IPv4 address and the port, each
    // the raw network-order value read as a little-endian integer. `address` and `port` are
    // zero-filled buffers of kVoipAddressSize and kVoipPortSize bytes; a state that is not (yet) a
    // pair leaves them so. Returns the bytes read, or -1 when the file cannot be opened.
    static int32_t getSlaVoipState(char* address, char* port);

    // Remembers `rate` among the last best_est_cache_size estimates (kbit/s) and returns the
    // largest of them: what an idle link is still good for. Without such a memory it returns
    // `rate`.
    static uint32_t getMaxLinkRateFromHistory(linkHistory_t& history, uint32_t rate,
                                              const Parameters* parameters);

    // Writes the shares of a pass into `links` and tells whether they moved enough to be worth
    // new rules. Sums and maximum are rates in kbit/s; a link that is not in `table` is skipped.
    // `logRatios` writes a line for each link.
    static bool calcSlaRatios(LinkStatsMap& links, const InterfaceTable& table,
                              SLA_ratio_calc_process process, float meteredSum, float unmeteredSum,
                              float unmeteredMax, bool logRatios);

    // The lock of the module's command sequences, taken before statsMutex.
    Mutex configMutex ACQUIRED_BEFORE(statsMutex);
    // The lock of the links, their statistics and mappings, held for a whole pass: nobody
    // replaces a link under a calculation.
    Mutex statsMutex;

  private:
    SlaStatsImpl() = default;
    ~SlaStatsImpl() = default;

    // Writes one command, its NUL included, to the module's control file. 0, or -1 after an
    // error line.
    static int32_t writeStatsConfFile(const char* command);
    static int32_t writeEnable(bool enable);

    // Builds m_slaInterfaceMap from the interface table; true when every link got its mapping.
    bool initMmap() REQUIRES(configMutex) EXCLUDES(statsMutex);
    void freeMmap() REQUIRES(configMutex) EXCLUDES(statsMutex);
    // Maps the statistics file of an interface, read-only; null when that fails. The caller owns
    // the mapping.
    static void* getStatsMmap(const std::string& name);
    // The same, tried three times: the module makes the file when it hears of the interface. Once
    // the daemon is to end, one attempt is all.
    static void* waitForStatsMmap(const std::string& name);

    // Sets link.linkRate to what the link does, or was last good for, in kbit/s.
    static void measureLink(linkStatsWrapper_t& link, bool metered, const Parameters& parameters);
    // Whether this pass logs the ratios: one in six seconds does.
    bool ratioLogIsDue() REQUIRES(statsMutex);

    LinkStatsMap m_slaInterfaceMap GUARDED_BY(statsMutex);
    bool m_sharesKnown GUARDED_BY(statsMutex) = true;     // those that the packet filter has
    int64_t lastRatioLogTime GUARDED_BY(statsMutex) = 0;  // s since the Unix epoch
};

}  // namespace lnkd
