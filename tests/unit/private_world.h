// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <string>

// A file system of the test's own, gone when its process ends: the machine's folders under a new
// root that also has the phone's, empty, and in /system/bin two recorders in place of the wrapper
// tools. /proc is a plain folder with nothing of the machine but this process, so a test can put
// a connection table or a statistics file there.
class PrivateWorld : public testing::Test {
  protected:
    void SetUp() override {
        if (geteuid() != 0)
            GTEST_SKIP() << "only root can build a private world";
        ASSERT_TRUE(unshare(CLONE_NEWNS) == 0 && mount("", "/", "", MS_REC | MS_PRIVATE, "") == 0);
        ASSERT_EQ(mount("tmpfs", "/mnt", "tmpfs", 0, ""), 0);
        for (const auto& entry : std::filesystem::directory_iterator("/")) {
            const std::string from = entry.path(), to = "/mnt" + (from == "/proc" ? "/real" : from);
            if (entry.is_directory() && from != "/mnt") {
                std::filesystem::create_directory(to);
                ASSERT_EQ(mount(from.c_str(), to.c_str(), "", MS_BIND | MS_REC, ""), 0) << from;
            }
        }
        ASSERT_TRUE(chroot("/mnt") == 0 && chdir("/") == 0 && mkdir("/proc", 0755) == 0);
        for (const std::string& self : {std::string("self"), std::to_string(getpid())})
            std::filesystem::create_symlink("/real/" + self, "/proc/" + self);
        write("/system/bin/ip-wrapper-1.0", "#!/bin/sh\nprintf 'ip %s; ' \"$*\" >>/commands");
        write("/system/bin/iptables-wrapper-1.0", R"(#!/bin/sh
            printf "%s; " "$*" | sed "s/^-w -t mangle //; s/^-w -t nat/nat/; s/zelk_/@/g
            s/nat_POSTROUTING_DVX/nat/; s/-m owner --uid-owner/uid/
            s/--match multiport -p tcp --dports 80,443,8080 -m state --state NEW -m statistic/share/
            s/share --mode random --probability/share/" >>/commands)");
    }

    // Makes a file, and its folder.
    static void write(const std::filesystem::path& path, const std::string& content) {
        std::filesystem::create_directories(path.parent_path());
        std::ofstream(path) << content;
        std::filesystem::permissions(path, std::filesystem::perms::all);
    }

    // What the wrapper tools were called with since the last call, in order and abridged: no
    // "-w -t mangle", "nat" for "-w -t nat", "@" for the prefix of chains, "@nat" for that of
    // nat, "uid" and "share" for the matches of an owner and of a ratio rule.
    static std::string commands() {
        std::ifstream file("/commands");
        std::string all(std::istreambuf_iterator<char>{file}, {});
        std::filesystem::remove("/commands");
        return all;
    }
};
