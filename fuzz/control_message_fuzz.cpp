// SPDX-License-Identifier: Apache-2.0
#include "control/socket_server.h"
#include "core/parameters.h"
#include "core/text_values.h"
#include "helpers.h"
#include "rules/uid_entries.h"

// All of a message but the commands that it would run: without a parameter store a handler ends
// before its first process or thread. What it would have stored is stored here.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    lnkd::msg_t msg{};
    memcpy(&msg, data, std::min(size, sizeof(msg) - 1));
    lnkd::handleMessage(msg);

    lnkd::Parameters* const parameters = lnkd::Parameters::instance();
    parameters->UpdateInterfaceMode(msg.message);
    parameters->UpdateInterface(msg.message, true);
    parameters->UpdateInterfaceBssid(msg.message);
    const lnkd::InterfaceSnapshot table = parameters->interfaces();
    for (const auto& [name, record] : *table) {
        requirePlain(record.get());
        parameters->UpdateInterface(name.c_str(), false);
    }
    for (const std::string& uid : lnkd::usableUids(lnkd::splitList(msg.message)))
        require(std::all_of(uid.begin(), uid.end(), isdigit) && std::stoul(uid) <= UINT32_MAX &&
                (uid == "0" || uid.front() != '0'));
    return 0;
}
