// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <sys/time.h>

#include <atomic>
#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "core/fair_mutex.h"
#include "core/thread_annotations.h"
#include "selection/interface_rtt.h"

namespace lnkd {

// The engine of link selection: one record and one probe thread for each interface, and the
// choice among them, made once per main-loop pass while a game or a call runs.
//
// The choice. The interface with the highest network level wins. On a tie the present one stays
// when it is a Wi-Fi; otherwise the later in name order wins, but for the second Wi-Fi of a pair
// while nothing is chosen yet. At most n_hyst switches follow one another within t_hyst_s seconds
// of the previous one, unless the chosen interface has failed. A switch points the rules at the
// new interface and destroys the applications' sockets, so that they connect again over it.
//
// A start of link selection is initPingThreads(), threadStop(), createRttThreads(),
// threadResume(); a stop is threadStop(), threadDestory(), destoryPingThreads(). Both come from
// the control thread, as do interfaces that come and go.
class SmartLinkSelection {
  public:
    // Opens link selection: before it, and after finalize(), there is no object and none is built.
    // Called once, by the start-up, before a control message can ask for the object. 0, or -1 when
    // it was open or has been finalized.
    static int Init();
    // Whether the object exists. Takes no lock, builds nothing.
    static bool isInstance();
    // Returns the object, built at the first call with a record, not probing, for each interface
    // of the table. Null unless link selection is open.
    static SmartLinkSelection* instance();
    // Ends all threads and releases the object, if there is one, for good. No other thread may use
    // it any more.
    static void finalize();
    // Ends the probes in hand, so that whoever holds the ping lock for one gives it back at once.
    // For the teardown: once a stop was asked for, no probe begins.
    static void endProbes() EXCLUDES(mapMutex);

    SmartLinkSelection(const SmartLinkSelection&) = delete;
    SmartLinkSelection& operator=(const SmartLinkSelection&) = delete;

    // Builds one record for each interface of the table, without threads and not probing. Ends
    // and releases what was there, so that a start while active leaves no thread behind.
    void initPingThreads() EXCLUDES(pingMutex, mapMutex);
    // Starts a thread for each record that has none.
    void createRttThreads() EXCLUDES(mapMutex);
    // Let the threads rest, and probe again.
    void threadStop() EXCLUDES(mapMutex);
    void threadResume() EXCLUDES(mapMutex);
    // Ends and joins all threads; takes up to one probe for each.
    void threadDestory() EXCLUDES(pingMutex, mapMutex);
    // Releases all records and forgets the choice. The threads have been joined.
    void destoryPingThreads() EXCLUDES(pingMutex, mapMutex);
    // Takes one interface in (add) or out while a game or a call runs; at other times the next
    // start reads the table anyway. Always true.
    bool updateSlsInterfacemap(const char* name, bool add) EXCLUDES(pingMutex, mapMutex);

    // One choice, when a game or a call runs.
    void slsChooseInterface() EXCLUDES(pingMutex, mapMutex);

    // Sets what is added to each time measured on an interface, ms, if there is a record of it.
    // Waits for no probe.
    static void setRssiPenalty(const std::string& name, int32_t penaltyMs) EXCLUDES(mapMutex);

    // During a call, makes its remote end the target of the probes, once: while that is still the
    // default, and once the kernel module knows the end.
    static void setVoipIpAddressAndPort();

    // Held by each probe for its whole length and by the choice, the rules and destroyed sockets
    // included: probes never overlap, and a choice never sees a record in the middle of an
    // update. Handed on in order of arrival, so that probes without a pause cannot keep the choice
    // out.
    static FairMutex pingMutex;
    // Guards the structure of m_slsInterfaceMap, and the thread handles. Below pingMutex; never
    // held across a probe, a join, a command or a destroyed socket.
    static Mutex mapMutex ACQUIRED_AFTER(pingMutex);

  private:
    friend class SmartLinkSelectionPeer;  // unit tests of the choice

    using InterfaceMap = std::map<std::string, std::unique_ptr<InterfaceRtt>>;

    SmartLinkSelection();
    ~SmartLinkSelection() = default;

    int calcInterface() EXCLUDES(pingMutex, mapMutex);
    // Points rules and sockets at m_currentInterface.
    void performSwitch() REQUIRES(pingMutex) EXCLUDES(mapMutex);
    // The best record, null when there is none. Forgets the count of recent switches when the
    // chosen interface has failed.
    InterfaceRtt* getFastestInterface() REQUIRES(pingMutex) EXCLUDES(mapMutex);
    // Whether a switch is allowed now; a window that is over starts anew.
    bool hystCheckAndUpdate(timeval& windowStart) REQUIRES(pingMutex);

    void addInterface(const char* name) EXCLUDES(pingMutex, mapMutex);
    void removeInterface(const char* name) EXCLUDES(pingMutex, mapMutex);
    // Takes a record out of the map and the choice and returns it; null when there is none.
    std::unique_ptr<InterfaceRtt> takeRecord(const std::string& name) EXCLUDES(pingMutex, mapMutex);
    static void endThread(InterfaceRtt& record) EXCLUDES(pingMutex, mapMutex);
    static void startThread(InterfaceRtt& record) REQUIRES(mapMutex);

    InterfaceMap m_slsInterfaceMap GUARDED_BY(mapMutex);
    InterfaceRtt* m_currentInterface GUARDED_BY(pingMutex) = nullptr;  // null: nothing chosen
    timeval m_hystWindowStart GUARDED_BY(pingMutex) = {};              // wall clock
    int32_t m_switchCount GUARDED_BY(pingMutex) = 0;                   // in the current window
};

// The body of a probe thread; its argument is the InterfaceRtt, which it returns when it ends.
void* makeRawPingFunc(void* arg);

}  // namespace lnkd
