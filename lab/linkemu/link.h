// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <memory>
#include <random>
#include <string>

#include "world/sla/fd.h"

namespace lab {

using world::Fd;

using Nanoseconds = std::int64_t;  // of the monotonic clock
constexpr Nanoseconds kNever = std::numeric_limits<Nanoseconds>::max();

Nanoseconds monotonicNow();

// How a link behaves, the same in both directions.
struct LinkSettings {
    double delayMs = 0;
    double rateMbit = 0;  // 0: no limit
    double lossPercent = 0;
    double queueMs = 100;  // how long a packet may wait for its turn; more are dropped
    bool up = true;
};

// One direction of a link: packets wait in a queue for their turn on the line,
// then travel for the delay, in order. A new rate holds at once for the packets
// that still wait; a new delay for those that have not left the queue.
class Direction {
  public:
    Direction(const LinkSettings& settings, int from, int to);

    // Takes packets from the sending device; at most a batch, so that no
    // direction starves the others.
    void receive();
    // Hands over what is due.
    void deliver(Nanoseconds now);
    // When `deliver` has something to do again.
    Nanoseconds nextDue() const;
    void clear();

  private:
    static constexpr std::size_t kSlots = 4096;      // 80 ms of 1500-byte packets at 600 Mbit/s
    static constexpr std::size_t kSlotBytes = 2048;  // above the devices' MTU

    struct Slot {
        std::array<std::uint8_t, kSlotBytes> data;
        std::size_t length;
        Nanoseconds arrived;
        Nanoseconds due;  // set when the packet leaves the queue
    };

    Slot& slot(std::size_t number) const { return m_slots[number % kSlots]; }
    Nanoseconds endOfTurn(const Slot& packet) const;
    bool accept(std::size_t length);

    const LinkSettings& m_settings;
    int m_from;
    int m_to;
    std::unique_ptr<Slot[]> m_slots;
    // Running numbers: [m_travelling, m_waiting) are under way, [m_waiting, m_end) queued.
    std::size_t m_travelling = 0;
    std::size_t m_waiting = 0;
    std::size_t m_end = 0;
    std::size_t m_waitingBytes = 0;
    Nanoseconds m_lineFree = 0;  // end of the last packet's turn
    std::minstd_rand m_random;
};

// A pair of TUN devices and the two directions between them.
class Link {
  public:
    Link(std::string name, Fd near, Fd internet);
    Link(const Link&) = delete;
    Link& operator=(const Link&) = delete;

    const std::string& name() const { return m_name; }
    const LinkSettings& settings() const { return m_settings; }
    void apply(const LinkSettings& settings);
    Direction& up() { return m_up; }
    Direction& down() { return m_down; }

  private:
    std::string m_name;
    LinkSettings m_settings;
    Fd m_near;
    Fd m_internet;
    Direction m_up;
    Direction m_down;
};

}  // namespace lab
