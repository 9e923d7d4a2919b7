// SPDX-License-Identifier: Apache-2.0
#include "ring.h"

#include <fcntl.h>
#include <sys/mman.h>

#include <atomic>

namespace world {

namespace {

constexpr std::uint32_t kMagic = 0x686A7379;
constexpr std::uint32_t kRecords = 1279;
constexpr std::uint8_t kSample = 2;
constexpr std::uint8_t kReference = 0;

// A reader wants several records within some 100 KiB to trust a measurement.
constexpr std::uint64_t kLargestRecord = 16 * 1024;

// A longer silence, or a slower trickle, is the sender's pace and not the link's:
// on a busy link full packets come closer down to 0.4 Mbit/s.
constexpr std::uint64_t kSilenceMs = 30;
constexpr std::uint64_t kTrickleBytesPerMs = 50;

}  // namespace

struct Ring::Record {
    std::uint64_t timestamp;
    std::uint32_t bytes;
    std::uint16_t reserved;
    std::uint8_t type;
    std::uint8_t flag;
};

struct Ring::File {
    std::uint32_t magic;
    std::uint32_t reserved;
    std::atomic<std::uint32_t> writeIndex;  // slot after the newest record's
    std::uint32_t reserved2;
    Record records[kRecords];
};

Ring::Ring(const std::string& interface)
    : m_counterPath("/sys/class/net/" + interface + "/statistics/rx_bytes") {
    static_assert(sizeof(File) == 20480);
    const std::string path = "/proc/sla/" + interface + "_mmap";
    const Fd file = checked(open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644), path);
    if (ftruncate(file.get(), sizeof(File)) != 0)
        die(path);
    void* base = mmap(nullptr, sizeof(File), PROT_READ | PROT_WRITE, MAP_SHARED, file.get(), 0);
    if (base == MAP_FAILED)
        die(path);
    m_file = static_cast<File*>(base);
}

Ring::~Ring() {
    munmap(m_file, sizeof(File));
}

void Ring::start(std::uint64_t now) {
    m_counter = Fd(open(m_counterPath.c_str(), O_RDONLY | O_CLOEXEC));
    m_received = receivedBytes();
    m_lastTraffic = now - kSilenceMs;
    m_file->magic = kMagic;
}

std::uint64_t Ring::receivedBytes() const {
    char text[24] = {};
    if (pread(m_counter.get(), text, sizeof text - 1, 0) <= 0)
        return m_received;
    return std::strtoull(text, nullptr, 10);
}

// A record's rate is its bytes over the time since the record before it. After a
// silence that time says nothing about the link: what arrives first only marks
// the time from which the next record counts. Traffic too thin to tell, a probe
// now and then, thus yields references alone and no rate, rather than a wrong one.
void Ring::tick(std::uint64_t previous, std::uint64_t now) {
    const std::uint64_t received = receivedBytes();
    if (received <= m_received) {
        m_received = received;
        return;
    }
    const std::uint64_t bytes = received - m_received;
    m_received = received;
    const std::uint64_t pause = now - m_lastTraffic;
    m_lastTraffic = now;
    if (pause >= kSilenceMs || bytes < pause * kTrickleBytesPerMs) {
        append(now, bytes, kReference);
        return;
    }
    // The burst is spread over the tick: records of one moment would have no duration.
    const std::uint64_t parts = (bytes + kLargestRecord - 1) / kLargestRecord;
    for (std::uint64_t part = 1; part <= parts; ++part) {
        append(previous + (now - previous) * part / parts,
               bytes * part / parts - bytes * (part - 1) / parts, kSample);
    }
}

void Ring::append(std::uint64_t timestamp, std::uint64_t bytes, std::uint8_t type) {
    const std::uint32_t slot = m_file->writeIndex.load(std::memory_order_relaxed) % kRecords;
    m_file->records[slot] = {timestamp, static_cast<std::uint32_t>(bytes), 0, type, 0};
    // Whoever sees the new index also sees the record.
    m_file->writeIndex.store((slot + 1) % kRecords, std::memory_order_release);
}

}  // namespace world
