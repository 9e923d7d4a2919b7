// SPDX-License-Identifier: Apache-2.0
//
// Stand-in for the kernel's statistics module: takes commands from
// /proc/sla/config, each ended by a NUL, and publishes the rings of the
// registered interfaces and the peer of a VoIP call.
//
//   slastat LOG VOIP_PEER [INTERFACE...]
//
// VOIP_PEER is "A.B.C.D:PORT", or empty while nobody knows whom a call is with.
// The files of the named interfaces are there, not yet initialised, from the
// start: a real module makes a file before the write that asks for it returns,
// which a reader of a FIFO cannot.
#include <arpa/inet.h>
#include <poll.h>
#include <sys/timerfd.h>

#include <algorithm>
#include <cinttypes>
#include <ctime>
#include <fstream>
#include <map>
#include <set>

#include "ring.h"

namespace world {
namespace {

constexpr char kControl[] = "/proc/sla/config";
constexpr char kVoipState[] = "/proc/sla/sla_voip_state";
constexpr long kTickNs = 2'000'000;
constexpr std::size_t kLongestName = 15;

std::uint64_t wallClockMs() {
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    return static_cast<std::uint64_t>(now.tv_sec) * 1000 +
           static_cast<std::uint64_t>(now.tv_nsec) / 1'000'000;
}

class Module {
  public:
    explicit Module(const char* log) : m_log(log, std::ios::app) {
        if (!m_log)
            die(log);
    }

    void makeRing(const std::string& interface) {
        if (interface.empty() || interface.size() > kLongestName || interface[0] == '.' ||
            interface.find('/') != std::string::npos) {
            std::fprintf(stderr, "slastat: \"%s\": not an interface name\n", interface.c_str());
            return;
        }
        m_rings.try_emplace(interface, interface);
    }

    void setVoipPeer(const std::string& value) {
        const std::size_t colon = value.find(':');
        const unsigned long port = colon == std::string::npos
                                           ? 0
                                           : std::strtoul(value.c_str() + colon + 1, nullptr, 10);
        in_addr address{};
        if (port == 0 || port > 65535 ||
            inet_pton(AF_INET, value.substr(0, colon).c_str(), &address) != 1) {
            std::fprintf(stderr, "slastat: voip_peer \"%s\": not A.B.C.D:PORT\n", value.c_str());
            return;
        }
        m_peer = address.s_addr;
        m_peerPort = htons(static_cast<std::uint16_t>(port));
        publishVoip();
    }

    void command(const std::string& text) {
        const std::uint64_t now = wallClockMs();
        char stamp[32];
        std::snprintf(stamp, sizeof stamp, "%" PRIu64 ".%03" PRIu64, now / 1000, now % 1000);
        m_log << stamp << ' ' << text << std::endl;

        const std::string key = text.substr(0, text.find('='));
        const std::string value = text.substr(std::min(text.size(), key.size() + 1));
        if (key == "iface") {
            makeRing(value);
            m_registered.insert(value);
        } else if (key == "enable") {
            m_enabled = value == "1";
            if (!m_enabled)
                m_registered.clear();
            for (auto& [name, ring] : m_rings) {
                if (m_registered.count(name) != 0)
                    ring.start(now);
            }
            m_previousTick = now;
        } else if (key == "voip_enable") {
            m_voip = value == "1";
            publishVoip();
        } else if (key == "voip_peer") {  // not the module's: whom the next call is with
            setVoipPeer(value);
        } else if (key != "protocols" && key != "ports" && key != "voip_uid") {
            std::fprintf(stderr, "slastat: \"%s\": not a command\n", text.c_str());
        }
    }

    void tick() {
        const std::uint64_t now = wallClockMs();
        if (!m_enabled || now <= m_previousTick)
            return;
        for (auto& [name, ring] : m_rings) {
            if (m_registered.count(name) != 0)
                ring.tick(m_previousTick, now);
        }
        m_previousTick = now;
    }

  private:
    // Replaced as a whole, so that no reader sees half an address. The numbers
    // are the bytes in network order, read as native integers.
    void publishVoip() {
        if (!m_voip || m_peerPort == 0) {
            unlink(kVoipState);
            return;
        }
        const std::string fresh = std::string(kVoipState) + ".new";
        std::ofstream(fresh) << m_peer << ',' << m_peerPort;
        if (rename(fresh.c_str(), kVoipState) != 0)
            die(kVoipState);
    }

    std::ofstream m_log;
    std::map<std::string, Ring> m_rings;
    std::set<std::string> m_registered;
    bool m_enabled = false;
    std::uint64_t m_previousTick = 0;  // ms
    bool m_voip = false;
    std::uint32_t m_peer = 0;      // network order
    std::uint16_t m_peerPort = 0;  // network order; 0: no peer known
};

[[noreturn]] void serve(Module& module) {
    Fifo control(kControl);
    const Fd timer = checked(timerfd_create(CLOCK_MONOTONIC, TFD_NONBLOCK | TFD_CLOEXEC), "timer");
    itimerspec every{};
    every.it_interval.tv_nsec = every.it_value.tv_nsec = kTickNs;
    timerfd_settime(timer.get(), 0, &every, nullptr);
    sayReady();

    pollfd events[] = {{control.fd(), POLLIN, 0}, {timer.get(), POLLIN, 0}};
    for (;;) {
        poll(events, 2, -1);
        if ((events[0].revents & POLLIN) != 0) {
            control.receive('\0', [&](const std::string& text) { module.command(text); });
        }
        std::uint64_t expirations = 0;
        if (read(timer.get(), &expirations, sizeof expirations) > 0)
            module.tick();
    }
}

int run(int argc, char** argv) {
    if (argc < 3) {
        std::fputs("usage: slastat LOG VOIP_PEER [INTERFACE...]\n", stderr);
        return 2;
    }
    Module module(argv[1]);
    if (argv[2][0] != '\0')
        module.setVoipPeer(argv[2]);
    for (int i = 3; i < argc; ++i)
        module.makeRing(argv[i]);
    serve(module);
}

}  // namespace
}  // namespace world

int main(int argc, char** argv) {
    return world::run(argc, argv);
}
