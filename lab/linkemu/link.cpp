// SPDX-License-Identifier: Apache-2.0
#include "link.h"

#include <algorithm>
#include <ctime>

namespace lab {

namespace {

constexpr int kBatch = 64;
constexpr double kNanosecondsPerMs = 1e6;
constexpr double kSmallestQueueBytes = 15000;  // ten packets: a slow link must still carry a burst

}  // namespace

Nanoseconds monotonicNow() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return Nanoseconds{now.tv_sec} * 1'000'000'000 + now.tv_nsec;
}

Direction::Direction(const LinkSettings& settings, int from, int to)
    : m_settings(settings),
      m_from(from),
      m_to(to),
      m_slots(new Slot[kSlots]),  // not zeroed: pages that are never used cost nothing
      m_random(static_cast<unsigned>(from)) {}

Nanoseconds Direction::endOfTurn(const Slot& packet) const {
    if (m_settings.rateMbit <= 0)
        return packet.arrived;
    const double bits = 8.0 * static_cast<double>(packet.length);
    const auto turn = static_cast<Nanoseconds>(bits * 1000 / m_settings.rateMbit);
    return std::max(m_lineFree, packet.arrived) + turn;
}

bool Direction::accept(std::size_t length) {
    if (!m_settings.up || m_end - m_travelling == kSlots)
        return false;
    if (m_settings.lossPercent > 0 &&
        std::uniform_real_distribution<>(0, 100)(m_random) < m_settings.lossPercent) {
        return false;
    }
    if (m_settings.rateMbit <= 0)
        return true;
    const double limit =
            std::max(kSmallestQueueBytes, m_settings.rateMbit * 1000 / 8 * m_settings.queueMs);
    return static_cast<double>(m_waitingBytes + length) <= limit;
}

void Direction::receive() {
    for (int i = 0; i < kBatch; ++i) {
        // With a full ring the packet is still read, or it would wait in the
        // device and wake us again at once.
        std::array<std::uint8_t, kSlotBytes> dropped;
        const bool full = m_end - m_travelling == kSlots;
        std::uint8_t* buffer = full ? dropped.data() : slot(m_end).data.data();
        const ssize_t length = read(m_from, buffer, kSlotBytes);
        if (length <= 0)
            return;
        if (!accept(static_cast<std::size_t>(length)))
            continue;

        Slot& packet = slot(m_end++);
        packet.length = static_cast<std::size_t>(length);
        packet.arrived = monotonicNow();
        m_waitingBytes += packet.length;
        deliver(packet.arrived);
    }
}

void Direction::deliver(Nanoseconds now) {
    for (; m_waiting != m_end; ++m_waiting) {
        Slot& packet = slot(m_waiting);
        const Nanoseconds end = endOfTurn(packet);
        if (end > now)
            break;
        packet.due = end + static_cast<Nanoseconds>(m_settings.delayMs * kNanosecondsPerMs);
        m_lineFree = end;
        m_waitingBytes -= packet.length;
    }
    for (; m_travelling != m_waiting; ++m_travelling) {
        const Slot& packet = slot(m_travelling);
        if (packet.due > now)
            break;
        // A device that is down refuses the packet: lost, as on a real line.
        [[maybe_unused]] const ssize_t written = write(m_to, packet.data.data(), packet.length);
    }
    // An empty ring starts over at the slot that is still in the processor's cache.
    if (m_travelling == m_end)
        m_travelling = m_waiting = m_end = 0;
}

Nanoseconds Direction::nextDue() const {
    if (m_travelling != m_waiting)
        return slot(m_travelling).due;
    if (m_waiting == m_end)
        return kNever;
    return endOfTurn(slot(m_waiting)) +
           static_cast<Nanoseconds>(m_settings.delayMs * kNanosecondsPerMs);
}

void Direction::clear() {
    m_travelling = m_waiting = m_end = 0;
    m_waitingBytes = 0;
}

Link::Link(std::string name, Fd near, Fd internet)
    : m_name(std::move(name)),
      m_near(std::move(near)),
      m_internet(std::move(internet)),
      m_up(m_settings, m_near.get(), m_internet.get()),
      m_down(m_settings, m_internet.get(), m_near.get()) {}

void Link::apply(const LinkSettings& settings) {
    m_settings = settings;
    if (!m_settings.up) {
        m_up.clear();
        m_down.clear();
    }
}

}  // namespace lab
