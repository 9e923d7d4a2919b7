// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "core/interface_info.h"
#include "core/link_stats.h"
#include "core/thread_annotations.h"

namespace lnkd {

// Owner of all packet-filter chains and routing-policy rules that the daemon makes. It keeps no
// data: the kernel's tables are its state, and a chain is never edited rule by rule but flushed
// and filled again. Every command goes through execnetd().
//
//     OUTPUT --> zelk_DVX_wapper --(UID on a list)--> zelk_DVX
//                    zelk_DVX, rule 1 --> zelk_SLS --> zelk_sls_uid_<if> --(gaming UID)-->
//                                                      zelk_sls_<if> --> zelk_fw_<if>
//                    zelk_DVX, rule 2: established connections get their mark back
//                    zelk_DVX, rule 3 --> zelk_SLA --(random share of new web connections)-->
//                                         [zelk_fw_<if>_wrapper --(UID on a list)-->] zelk_fw_<if>
//     zelk_fw_<if>: mark the packet, save the mark in the connection, accept
//     POSTROUTING (nat) --> zelk_nat_POSTROUTING_DVX --(leaves by <if>)--> MASQUERADE
//
// A policy rule at priority 30000 sends each interface's mark to its routing table.
//
// Operations return 0, or -1 when a command could not be started; a command that the kernel
// refuses shows in the log only. They may be called from any thread.
class IptablesManager {
  public:
    // Returns the object; the first call, from the main thread at start-up, builds the fixed
    // chains over whatever a killed run left behind. Null once they have been torn down: nothing
    // is built again.
    static IptablesManager* instance();
    // Removes every chain and rule and releases the object, if there is one.
    static void clean_DVX_iptables();

    IptablesManager(const IptablesManager&) = delete;
    IptablesManager& operator=(const IptablesManager&) = delete;

    // ---- One interface, all its rules.

    // Builds (add) or removes the rules of an interface of the table; none for another name.
    int32_t updateInterfaceIptables(const char* name, bool add);

    // Makes the mark chain, the policy rule and the masquerading of an interface, and its wrapper
    // chain, empty, when only some applications may use it. Adding one twice leaves its
    // masquerading twice.
    int32_t create_DVX_FWMARK_chain_for_iface(const InterfaceInfo_t* record);
    // Removes them, and with them all ratio rules, which the next pass makes again. The policy
    // rules of other interfaces with its mark stay. Without a wrapper chain, or behind a removed
    // nat chain, some of its commands are refused.
    int32_t remove_DVX_FWMARK_chain_for_iface(const InterfaceInfo_t* record) EXCLUDES(chainMutex);
    // Removes those of all interfaces of the table.
    int32_t cleanup_DVX_iptables_FWMARK_chains();

    // ---- Aggregation.

    // Fills zelk_SLA from the shares in `links`, unmetered ones first, each part in name order. A
    // match ends the walk, so a rule's probability is its share of what earlier ones left. A link
    // that is not in `table` gets no rule. The caller holds the lock of `links`.
    int32_t set_SLA_ratio_iptables(const LinkStatsMap& links, const InterfaceTable& table)
            EXCLUDES(ruleSetMutex, chainMutex);

    // Number of tracked connections with an interface's mark, 0 when that cannot be read. The
    // test is for "mark=90" anywhere in a line, so marks that begin alike count as well.
    static int32_t get_nf_conntrack_mark_number(const std::string& fwmark);

    // ---- UID lists. An entry that is not a UID is skipped with an error line.

    // Refills the entry filter: gaming UIDs, then those of the second Wi-Fi, then the whitelist.
    int32_t setup_dvx_whitelist();
    // Refills the wrapper chains of metered and cellular interfaces from the whitelist.
    int32_t setup_uid_whitelist() EXCLUDES(ruleSetMutex);
    // Refills those of second Wi-Fis from their own list. An interface that is both has one
    // wrapper chain, and the list applied last wins.
    int32_t setup_double_wlan_uid_whitelist() EXCLUDES(ruleSetMutex);

    // ---- Link selection.

    // Makes or removes the chains that send the gaming UIDs' traffic to one interface. They are
    // used only once set_SLS_interface() names it.
    int32_t create_SLS_iptables_UID_for_interface(const InterfaceInfo_t* record);
    int32_t remove_SLS_iptables_UID_for_interface(const InterfaceInfo_t* record)
            EXCLUDES(chainMutex);
    // The same for all interfaces of the table.
    int32_t setup_SLS_iptables_UID_chains();
    int32_t cleanup_SLS_iptables_UID_chains();
    // Points link selection at one interface. Takes chainMutex: the chain must not be deleted
    // between the flush and the jump to it.
    int32_t set_SLS_interface(const char* name) EXCLUDES(chainMutex);

    // Keeps the rebuilds of ratio rules and wrapper chains apart; taken before chainMutex.
    static Mutex ruleSetMutex;
    // Keeps jumps from being made to chains that are being deleted.
    static Mutex chainMutex ACQUIRED_AFTER(ruleSetMutex);

  private:
    IptablesManager();
    ~IptablesManager();

    using InterfaceOperation = std::function<int32_t(const InterfaceInfo_t*)>;

    // Runs an operation on every interface of the table, also after one has failed. Has each
    // failure reported, and returns their number.
    static int failuresOnAllInterfaces(const InterfaceOperation& operation,
                                       void (*report)(const char* name));

    // Removes what an interface has of its own; the policy rules of others with its mark come back
    // when they `stay`.
    static int32_t removeFwmarkChain(const InterfaceInfo_t& record, bool othersStay)
            EXCLUDES(chainMutex);
    // The kernel deletes the first policy rule with a mark, whichever interface's it is: so those
    // of others that share it and stay go as well, and are added again, in name order. Returns the
    // sum of the commands' results.
    static uint32_t removePolicyRule(const InterfaceInfo_t& record, bool othersStay);
    static uint32_t addPolicyRule(const InterfaceInfo_t& record);
    static uint32_t deletePolicyRule(const InterfaceInfo_t& record);

    // One rule of zelk_SLA: a new web connection goes to the link's chain with its share of what
    // `assigned` left. Returns the command's result.
    static uint32_t appendRatioRule(const linkStatsWrapper_t& link, const InterfaceInfo_t& record,
                                    float assigned) REQUIRES(ruleSetMutex, chainMutex);
    // Refills one interface's wrapper chain with an owner match per UID.
    static uint32_t fillWrapperChain(const InterfaceInfo_t& record,
                                     const std::vector<std::string>& uids) REQUIRES(ruleSetMutex);
};

// Whether only chosen applications may use the interface, so that a wrapper chain stands before
// its mark chain.
bool hasWrapperChain(const InterfaceInfo_t& record);

}  // namespace lnkd
