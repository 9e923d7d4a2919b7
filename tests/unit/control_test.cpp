// SPDX-License-Identifier: Apache-2.0
#include "control/socket_server.h"
#include "private_world.h"

using ControlSocket = PrivateWorld;

TEST_F(ControlSocket, TakesThePlaceOfAnOldFileAndIsOpenToAll) {
    umask(077);
    write("/old-socket", "left by a killed run");
    for (const std::string& path : {std::string("/old-socket"), '/' + std::string(200, 'a')}) {
        EXPECT_GE(lnkd::createSocket(path.c_str()), 0) << path;
        struct stat file {};
        lstat(path.substr(0, 107).c_str(), &file);
        EXPECT_EQ(file.st_mode, static_cast<mode_t>(S_IFSOCK | 0666)) << path;
    }
    EXPECT_EQ(lnkd::createSocket("/proc"), -1) << "a folder is nothing to replace";
}
