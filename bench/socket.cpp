// SPDX-License-Identifier: Apache-2.0
// Destroys and lists many sockets, against ss on the same sockets in the same run, in a network
// of its own. Prints the figures, medians of rounds in turn, as JSON. The log goes to stderr.
#include <linux/inet_diag.h>
#include <linux/netlink.h>
#include <linux/sock_diag.h>
#include <net/if.h>
#include <netinet/in.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <vector>

#include "compare.h"
#include "core/parameters.h"
#include "net/sock_diag.h"
#include "selection/socket_killing.h"
#include "selection/tcp_socket_monitor.h"

namespace {

constexpr int kConnections = 10000;
constexpr int kRounds = 7;
constexpr int kPolls = 100;
constexpr uid_t kUid = 10200;
constexpr uint16_t kPort = 9000;

void makeNetwork() {
    rlimit limit{};
    getrlimit(RLIMIT_NOFILE, &limit);
    limit.rlim_cur = limit.rlim_max;
    ifreq up{};
    strcpy(up.ifr_name, "lo");
    up.ifr_flags = IFF_UP;
    check(unshare(CLONE_NEWNET) == 0, "unshare");
    check(setrlimit(RLIMIT_NOFILE, &limit) == 0, "setrlimit");
    check(ioctl(socket(AF_INET, SOCK_DGRAM, 0), SIOCSIFFLAGS, &up) == 0, "loopback up");
}

// Connections within this machine: the client ends belong to kUid; the server ends, in a process
// of their own because of the limit of descriptors, to root.
class Connections {
  public:
    Connections() {
        sockaddr_in target{};
        target.sin_family = AF_INET;
        target.sin_port = htons(kPort);
        target.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        const auto* const address = reinterpret_cast<const sockaddr*>(&target);
        const int listening = makeSocket();
        const int on = 1;
        setsockopt(listening, SOL_SOCKET, SO_REUSEADDR, &on, sizeof(on));
        check(bind(listening, address, sizeof(target)) == 0, "bind");
        // As long as the kernel allows: a queue that overflows costs each connect a second.
        check(listen(listening, 4096) == 0, "listen");
        int accepted[2];
        check(pipe(accepted) == 0, "pipe");
        m_server = fork();
        if (m_server == 0) {
            for (int i = 0; i < kConnections; ++i) {
                check(accept(listening, nullptr, nullptr) >= 0, "accept");
            }
            check(write(accepted[1], "", 1) == 1, "write");
            for (;;) {
                pause();
            }
        }
        check(seteuid(kUid) == 0, "seteuid");  // a socket belongs to whom its maker is
        for (int i = 0; i < kConnections; ++i) {
            check(connect(makeSocket(), address, sizeof(target)) == 0, "connect");
        }
        check(seteuid(0) == 0, "seteuid");
        char done = 0;
        check(read(accepted[0], &done, 1) == 1, "read");
        close(accepted[0]);
        close(accepted[1]);
    }
    ~Connections() {
        const linger reset{1, 0};  // none stays behind in TIME_WAIT
        for (const int fd : m_sockets) {
            setsockopt(fd, SOL_SOCKET, SO_LINGER, &reset, sizeof(reset));
            close(fd);
        }
        kill(m_server, SIGKILL);
        waitpid(m_server, nullptr, 0);
    }
    Connections(const Connections&) = delete;
    Connections& operator=(const Connections&) = delete;

  private:
    int makeSocket() {
        m_sockets.push_back(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
        check(m_sockets.back() >= 0, "socket");
        return m_sockets.back();
    }

    std::vector<int> m_sockets;
    pid_t m_server = -1;
};

// The sockets of kUid, as the kernel lists them.
std::vector<inet_diag_msg> listed() {
    std::vector<inet_diag_msg> found;
    android::net::SockDiag diag;
    check(diag.open(), "socket diagnostics");
    diag.getLiveTcpInfos([&](const inet_diag_msg* msg, const auto& /*info*/) {
        if (msg->idiag_uid == kUid) {
            found.push_back(*msg);
        }
    });
    return found;
}

struct Killing {
    double ms;
    size_t left;  // sockets that it passed over
};

// `far`: what the resets do to the other ends is not this machine's work.
Killing timeKilling(bool far, const std::function<void()>& kill) {
    const Connections connections;
    check(listed().size() == kConnections, "not all sockets are there");
    if (far) {
        run("iptables -t raw -A OUTPUT -p tcp --tcp-flags RST RST -j DROP");
    }
    const double ms = msOf(kill);
    if (far) {
        run("iptables -t raw -F OUTPUT");
    }
    return {ms, listed().size()};
}

// What the kernel takes at least: one request a socket, nothing listed, nothing read.
Killing timeRequests(bool far) {
    struct Request {
        nlmsghdr header;
        inet_diag_req_v2 body;
    };
    std::vector<Request> requests;
    const int fd = socket(AF_NETLINK, SOCK_DGRAM | SOCK_CLOEXEC, NETLINK_SOCK_DIAG);
    const auto prepare = [&] {
        for (const inet_diag_msg& msg : listed()) {
            Request request{};
            request.header.nlmsg_len = sizeof(request);
            request.header.nlmsg_type = SOCK_DESTROY;
            request.header.nlmsg_flags = NLM_F_REQUEST;
            request.body.sdiag_family = AF_INET;
            request.body.sdiag_protocol = IPPROTO_TCP;
            request.body.idiag_states = 1U << msg.idiag_state;
            request.body.id = msg.id;
            requests.push_back(request);
        }
    };
    double preparing = 0;
    Killing result = timeKilling(far, [&] {
        preparing = msOf(prepare);
        for (const Request& request : requests) {
            check(send(fd, &request, sizeof(request), 0) == sizeof(request), "SOCK_DESTROY");
        }
    });
    close(fd);
    result.ms -= preparing;
    return result;
}

// The rounds alternate, so that a slow moment of the machine meets all. Prints members of JSON.
void compareKilling(const char* where, bool far) {
    std::vector<double> ours, ss, requests;
    size_t left = 0;
    for (int round = 0; round < kRounds; ++round) {
        const Killing mine = timeKilling(far, [] { lnkd::killSocketsForUID("10200"); });
        ours.push_back(mine.ms);
        left += mine.left;
        ss.push_back(timeKilling(far, [] { run("exec ss -K -nt dport = :9000 >/dev/null"); }).ms);
        requests.push_back(timeRequests(far).ms);
    }
    printf("\"%s\": {\"ours\": %.3f, \"ss\": %.3f, \"requests\": %.3f, \"left\": %zu},\n", where,
           median(ours), median(ss), median(requests), left);
}

void comparePolling() {
    const Connections connections;
    lnkd::Parameters::instance()->setGamingUids("10999");  // none of the sockets is the game's
    lnkd::SlaTcpSocketMonitor* const monitor = lnkd::SlaTcpSocketMonitor::instance();
    monitor->resumePolling();
    std::vector<double> ours, ss;
    for (int round = 0; round < kRounds; ++round) {
        ours.push_back(msOf([&] { monitor->poll(); }));
        ss.push_back(msOf([] { run("exec ss -tin >/dev/null"); }));
    }
    residentKib();  // reading it the first time costs pages of its own
    const long before = residentKib();
    for (int i = 0; i < kPolls; ++i) {
        monitor->poll();
    }
    const long growth = residentKib() - before;
    lnkd::SlaTcpSocketMonitor::finalize();
    printf("\"poll\": {\"ours\": %.3f, \"ss\": %.3f, \"growth\": %ld}", median(ours), median(ss),
           growth);
}

}  // namespace

int main() {
    makeNetwork();
    printf("{");
    compareKilling("near", false);
    compareKilling("far", true);
    comparePolling();
    printf("}\n");
}
