// SPDX-License-Identifier: Apache-2.0
#include "state/processes.h"

#include <dirent.h>

#include <memory>

#include "core/text_values.h"

namespace lnkd {

namespace {

struct FolderCloser {
    void operator()(DIR* folder) const { closedir(folder); }
};

}  // namespace

std::vector<pid_t> readProcesses() {
    std::vector<pid_t> processes;
    const std::unique_ptr<DIR, FolderCloser> folder(opendir("/proc"));
    while (const dirent* const entry = folder != nullptr ? readdir(folder.get()) : nullptr) {
        if (isAllDigits(entry->d_name)) {
            processes.push_back(parseInt(entry->d_name));
        }
    }
    return processes;
}

}  // namespace lnkd
