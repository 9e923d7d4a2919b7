// SPDX-License-Identifier: Apache-2.0
#include "control/interface_commands.h"
#include "control/selection_commands.h"
#include "control/socket_server.h"
#include "core/parameters.h"
#include "core/thread_annotations.h"

#define LNKD_LOG_TAG "DVX-Lnkd-LnkdSocket-Server"
#include "core/log.h"

namespace lnkd {

namespace {

// The command lock, first in the order of all locks: held around every handler, and by the
// teardown while it marks the control side stopped.
Mutex commandMutex;
bool commandsStopped GUARDED_BY(commandMutex) = false;

}  // namespace

void handleMessage(const msg_t& msg) {
    const MutexLock lock(commandMutex);
    if (commandsStopped) {
        LNKD_LOGE("message %d dropped, the daemon is stopped", msg.id);
        return;
    }
    Parameters* const parameters = commandParameters();
    switch (msg.id) {
        case kSetUidWhitelist:
            setUidWhitelist(msg.message);
            break;
        case kUpdateInterfaces:
            updateInterfaces(msg.message);
            break;
        case kUpdateSlsInterfacesRtt:
            updateSlsInterfacesRtt(msg.message);
            break;
        case kStartSlsServer:
            StartSlsServer(msg.message);
            break;
        case kStopSlsServer:
            StopSlsServer();
            break;
        case kSetDblWlanUidWhitelist:
            setDblWlanUidWhitelist(msg.message);
            break;
        case kSetVoipStatus:
            setVoipStatus(msg.message);
            break;
        case kUpdateInterfaceBssid:
            if (parameters != nullptr) {
                parameters->UpdateInterfaceBssid(msg.message);
            }
            break;
        case kUpdateInterfaceMode:
            if (parameters != nullptr) {
                parameters->UpdateInterfaceMode(msg.message);
            }
            break;
        default:
            LNKD_LOGE("unknow mesage!!!");
            break;
    }
}

void stopHandlingMessages() {
    const MutexLock lock(commandMutex);
    commandsStopped = true;
}

}  // namespace lnkd
