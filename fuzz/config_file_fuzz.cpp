// SPDX-License-Identifier: Apache-2.0
#include <sys/mman.h>

#include "core/parameters.h"
#include "helpers.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const int file = memfd_create("lnkd.conf", MFD_CLOEXEC);
    static const std::string path = "/proc/self/fd/" + std::to_string(file);
    require(ftruncate(file, 0) == 0 && pwrite(file, data, size, 0) == static_cast<ssize_t>(size));
    lnkd::Parameters::instance()->readLnkdConfFile(path.c_str());
    for (const std::string& description : lnkd::Parameters::instance()->ifaceParams())
        requirePlain(lnkd::Parameters::parseInterfaceParams(description).get());
    return 0;
}
