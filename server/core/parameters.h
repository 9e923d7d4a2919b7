// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "core/interface_info.h"
#include "core/thread_annotations.h"

namespace lnkd {

// The numeric tunables of aggregation that are read by number.
enum OperId : int32_t {
    kSlaEnabled = 0,              // vendor.sla.enabled, as last read
    kWifiThreshold = 1,           // kbit/s of all unmetered links above which metered ones rest
    kWanThreshold = 2,            // kbit/s below which a metered link counts as idle
    kMiniEstInterval = 3,         // ms, period of the main loop
    kMiniStaleInterval = 4,       // ms, age at which a statistics record is worth nothing
    kIdealEstWindow = 5,          // ms of samples that an estimate wants
    kMiniRateWindow = 6,          // ms of samples that an estimate needs
    kCellularSockAssignRate = 7,  // kept, not used
    kSockActiveTime = 8,          // kept, not used
    kSockStaleTime = 9,           // kept, not used
    kUpdatePmFreq = 10,           // kept, not used
    kOperCount = 29,
};

// The host that probes measure against when nothing better is known.
constexpr char kDefaultRttServer[] = "8.8.8.8";
constexpr uint32_t kDefaultRttServerPort = 443;

// What probes measure against, host and port together: a reader must never pair a new server with
// an old port.
struct ProbeTarget {
    std::string server;  // IPv4 address, dotted quad
    uint32_t port;       // TCP, host byte order
};

// The daemon's settings and what its threads share: tunables from the configuration file, the
// interface table, the UID lists and the flags of games and calls. The daemon has one object, alive
// until the process ends; every operation may be called from any thread.
class Parameters {
  public:
    // The built-in defaults, no interfaces.
    Parameters();

    // Returns the daemon's object, built at the first call from the built-in defaults, the
    // configuration file and the system properties, in this order of precedence from low to high.
    static Parameters* instance();

    Parameters(const Parameters&) = delete;
    Parameters& operator=(const Parameters&) = delete;

    // ---- Tunables: set while the object is built, constant from then on. Unless said otherwise
    // a number is what the configuration file gave; nothing checks its range.

    std::string protocols = "http,https";  // handed to the kernel module
    std::string ports = "80,443";          // handed to the kernel module
    uint32_t estimate_pack_num = 5;        // records that an estimate must have used to count
    uint32_t min_ratio_change = 2;         // percent of new connections worth a rule rebuild
    uint32_t best_est_cache_size = 0;      // passes that a link's best rate is kept, 0 for none
    uint32_t init_wwan_percentage = 0;     // kept, not used
    std::string gaming_whitelist;          // kept, not used
    std::string gaming_uid_list;           // kept, not used

    int32_t ping_period_ms = 0;             // kept, not used
    int32_t rtt_noresponse_timeout_ms = 0;  // kept, not used
    int32_t rtt_hist = 0;                   // kept, not used
    int32_t rtt_w2c_th_wifi_ms = 0;         // kept, not used
    int32_t rtt_w2c_th_c_ms = 0;            // kept, not used
    int32_t rtt_delta_ms = 0;               // kept, not used
    int32_t rtt_c2w_th_wifi_ms = 0;         // kept, not used
    int32_t rtt_c2w_th_wifi_min_ms = 0;     // kept, not used
    int32_t rtt_c2w_th_c_ms = 0;            // kept, not used
    int32_t t_hyst_s = 0;                   // s, the window that bounds switches
    int32_t min_ping_times = 5;             // misses in a row that fail a link
    int32_t ping_interval_ms = 1000;        // ms between probes, and between control messages
    int32_t alpha_percent = 50;             // weight of the long average
    int32_t n_hyst = 1;                     // switches allowed in a window
    int32_t rtt_min_cap_ms = 10;            // kept, not used
    int32_t gaming_poll_freq_cnt = 5;       // kept, not used

    uint32_t rtt_entry_threshold = 70;  // kept, not used
    uint32_t rtt_exit_threshold = 120;  // ms, a reported RTT above it starts link selection

    static constexpr uint32_t ratioHighPercent = 90;   // share of a link that dominates
    static constexpr uint32_t ratioTopPercent = 95;    // part of the sum at which it does
    static constexpr uint32_t linkRateLimit = 102400;  // bytes that one estimate looks at

    // Value of a numeric tunable; all ones for a number outside the table.
    uint32_t get(OperId id) const;

    // Reads vendor.sla.enabled again, keeps it as kSlaEnabled and returns it; 2 stops the daemon.
    int32_t getSLAVendorProp();

    // "protocols=" and "ports=" with their lists, the commands of the kernel module.
    std::string getStatsProtocols() const { return "protocols=" + protocols; }
    std::string getStatsPorts() const { return "ports=" + ports; }

    // ---- Configuration file.

    // Applies the lines of the file; one that cannot be read leaves all as it is.
    void readLnkdConfFile(const char* path);
    // Cuts an inline comment and the blanks (space, tab) at both ends, in place.
    static std::string& trim(std::string& text);
    // Splits each line at its first "=" and applies the pair; lines without one are skipped.
    void fromVector(const std::vector<std::string>& lines);
    // Applies one pair; false for an unknown key, which changes nothing.
    bool setValue(const char* key, const char* value) EXCLUDES(m_tableMutex, m_textMutex);

    // A key of the file and what it sets: a number, a text, or what threads share, by its setter.
    using ConfigSetter = void (Parameters::*)(const char* value);
    struct ConfigKey {
        std::string_view name;
        std::variant<OperId, uint32_t Parameters::*, int32_t Parameters::*,
                     std::string Parameters::*, ConfigSetter>
                target;
    };
    static const std::vector<ConfigKey>& configKeys();

    // ---- Interface table.

    // The table as it is now.
    InterfaceSnapshot interfaces() const EXCLUDES(m_tableMutex);
    // The record of one interface, null when it is not in the table.
    std::shared_ptr<const InterfaceInfo_t> findInterface(const std::string& name) const;

    // Reads a description, nine comma-separated fields; null when it is not valid.
    static std::unique_ptr<InterfaceInfo_t> parseInterfaceParams(const std::string& description);
    // True when the record can be used. This is where names, tables and marks are checked once
    // for all the commands that they will be part of.
    static bool validateInterfaceParams(const InterfaceInfo_t* record);

    // Adds the interfaces of a comma-separated list (up), as long as the table has less than 16, or
    // removes the one named (not up).
    void UpdateInterface(const char* names, bool up) EXCLUDES(m_tableMutex);
    // Sets whether cellular interfaces are metered, "0" or "1", those to come included. A text
    // that is not all digits is refused: it becomes part of a description.
    void UpdateInterfaceMode(const char* mode) EXCLUDES(m_tableMutex);
    // Sets the BSSIDs of wlan0 and wlan1, comma-separated, with or without colons.
    void UpdateInterfaceBssid(const char* bssids) EXCLUDES(m_tableMutex);

    // Number of interfaces described last.
    uint32_t numInterfaces() const EXCLUDES(m_tableMutex);
    // Their descriptions; slots beyond numInterfaces() hold what was there before.
    std::array<std::string, 4> ifaceParams() const EXCLUDES(m_tableMutex);

    // ---- UID lists: the text as received and the list made from it. Entries are kept as they
    // came; whoever uses one checks it with parseUid().

    // Longest entry of the two whitelists, a longer one is left out: five digits hold every
    // application UID of a phone's first user. Gaming UIDs have no such limit.
    static constexpr size_t longestWhitelistUid = 5;

    void setuidwhitelist(const char* uids) EXCLUDES(m_textMutex);
    void setDblWlanUidWhitelist(const char* uids) EXCLUDES(m_textMutex);
    void setGamingUids(const char* uids) EXCLUDES(m_textMutex);
    void populateuidwhitelist() EXCLUDES(m_textMutex);
    void populateDblWlanUidWhitelist() EXCLUDES(m_textMutex);
    void populateGamingUids() EXCLUDES(m_textMutex);
    std::vector<std::string> uidWhitelist() const EXCLUDES(m_textMutex);
    std::vector<std::string> dblWlanUidWhitelist() const EXCLUDES(m_textMutex);
    std::vector<std::string> gamingUidList() const EXCLUDES(m_textMutex);

    // ---- State of games and calls.

    bool isServiceHighRtt() const { return serviceHighRtt.load(std::memory_order_relaxed); }
    void setServiceHighRtt(bool on) { serviceHighRtt.store(on, std::memory_order_relaxed); }
    bool isGamingRunning() const { return gamingRunning.load(std::memory_order_relaxed); }
    void setGamingRunning(bool on) { gamingRunning.store(on, std::memory_order_relaxed); }
    bool isVoipRunning() const { return voipRunning.load(std::memory_order_relaxed); }
    void setVoipRunning(bool on) { voipRunning.store(on, std::memory_order_relaxed); }
    void setGamingConnectStatus(bool on) {
        gamingConnectStatus.store(on, std::memory_order_relaxed);
    }

    // What probes measure against.
    ProbeTarget probeTarget() const EXCLUDES(m_textMutex);
    // Replaces it, host and port at once.
    void setProbeTarget(const ProbeTarget& target) EXCLUDES(m_textMutex);
    // Replaces it, unless its host is another than `server` by now; then false.
    bool replaceProbeTarget(const char* server, const ProbeTarget& target) EXCLUDES(m_textMutex);
    // Replaces its host only; null changes nothing.
    void setGamingRttServer(const char* server) EXCLUDES(m_textMutex);

  private:
    // Applies the configuration file and the system properties.
    void load() EXCLUDES(m_tableMutex, m_textMutex);
    void setNumInterfaces(const char* number) EXCLUDES(m_tableMutex);
    template <size_t slot>
    void setDescription(const char* description) EXCLUDES(m_tableMutex);

    // The interface table starts from vendor.sla.ifaces, or from two built-in interfaces when
    // that describes one that cannot be used.
    void updateIfaces() REQUIRES(m_tableMutex);
    void fillInterfaceTable() REQUIRES(m_tableMutex);
    void populatIfaceslist() REQUIRES(m_tableMutex);
    static bool addNewInterfacetoMap(InterfaceTable& table,
                                     std::unique_ptr<InterfaceInfo_t> record);
    static bool delOldInterfacetoMap(InterfaceTable& table, const char* name);

    std::array<std::atomic<uint32_t>, kOperCount> m_operValues{};

    std::atomic<bool> serviceHighRtt{false};  // selection was started by a high RTT
    std::atomic<bool> gamingRunning{false};
    std::atomic<bool> gamingConnectStatus{false};  // kept, not used
    std::atomic<bool> voipRunning{false};

    // Both locks stand below every other: nothing else is taken while one is held.
    mutable Mutex m_tableMutex;
    mutable Mutex m_textMutex;

    // Replaced as a whole by every change, so that a reader's snapshot never moves under it.
    InterfaceSnapshot m_interfaceInfoMap GUARDED_BY(m_tableMutex);
    std::string m_ifacesProp GUARDED_BY(m_tableMutex);  // at most 63 characters
    std::string m_modeProp GUARDED_BY(m_tableMutex);    // at most 7 characters
    std::string m_ifaces GUARDED_BY(m_tableMutex);
    std::vector<std::string> m_ifaceList GUARDED_BY(m_tableMutex);
    std::array<std::string, 4> m_ifaceParams GUARDED_BY(m_tableMutex);
    uint32_t num_interfaces GUARDED_BY(m_tableMutex) = 2;
    std::string m_cellularMode GUARDED_BY(m_tableMutex) = "1";

    std::string uid_whitelist GUARDED_BY(m_textMutex);
    std::string m_dblWlanUids GUARDED_BY(m_textMutex);
    std::string m_gamingUids GUARDED_BY(m_textMutex);
    std::vector<std::string> m_uidWhitelist GUARDED_BY(m_textMutex);
    std::vector<std::string> m_dblWlanUidWhitelist GUARDED_BY(m_textMutex);
    std::vector<std::string> m_gamingUidList GUARDED_BY(m_textMutex);
    std::string rtt_server GUARDED_BY(m_textMutex) = kDefaultRttServer;
    uint32_t rttServerPort GUARDED_BY(m_textMutex) = kDefaultRttServerPort;
};

}  // namespace lnkd
