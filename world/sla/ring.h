// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "fd.h"

namespace world {

// The statistics file of one interface: a ring of byte counts that a reader in
// another process maps and walks backwards from the newest record.
//
// The file is made at its full size and then only written in place: a mapping
// of it stays good whatever happens here. All times are wall-clock ms.
class Ring {
  public:
    // Makes or adopts /proc/sla/<interface>_mmap, not yet initialised.
    explicit Ring(const std::string& interface);
    ~Ring();
    Ring(const Ring&) = delete;
    Ring& operator=(const Ring&) = delete;

    // From here on the file is valid and counting starts.
    void start(std::uint64_t now);
    // Records what the interface received between the two times.
    void tick(std::uint64_t previous, std::uint64_t now);

  private:
    struct Record;
    struct File;

    std::uint64_t receivedBytes() const;
    void append(std::uint64_t timestamp, std::uint64_t bytes, std::uint8_t type);

    Fd m_counter;  // sysfs, none while the interface does not exist
    std::string m_counterPath;
    File* m_file;
    std::uint64_t m_received = 0;
    std::uint64_t m_lastTraffic = 0;
};

}  // namespace world
