// SPDX-License-Identifier: Apache-2.0
//
// The link emulator: forwards between TUN devices of two network namespaces
// with a delay, a rate and a loss for each link, set by lines on a FIFO.
//
//   linkemu CONTROL NETNS NEAR_DEVICE:INTERNET_DEVICE[:ethernet]...
#include <linux/if_tun.h>
#include <net/if.h>
#include <sched.h>
#include <sys/epoll.h>
#include <sys/ioctl.h>
#include <sys/timerfd.h>

#include <algorithm>
#include <charconv>
#include <deque>
#include <sstream>
#include <vector>

#include "link.h"

namespace lab {
namespace {

using world::checked;
using world::die;
using world::Fifo;
using world::sayReady;

// A device that carries IP packets, or Ethernet frames.
Fd openTun(const std::string& name, bool ethernet) {
    Fd device = checked(open("/dev/net/tun", O_RDWR | O_NONBLOCK | O_CLOEXEC), "/dev/net/tun");
    ifreq request{};
    request.ifr_flags = static_cast<short>((ethernet ? IFF_TAP : IFF_TUN) | IFF_NO_PI);
    name.copy(request.ifr_name, IFNAMSIZ - 1);
    if (ioctl(device.get(), TUNSETIFF, &request) != 0)
        die(name);
    return device;
}

struct Setting {
    const char* name;
    double LinkSettings::*field;
    double least;
    double most;
};

constexpr Setting kSettings[] = {
        {"rate", &LinkSettings::rateMbit, 0, 100000},
        {"delay", &LinkSettings::delayMs, 0, 10000},
        {"loss", &LinkSettings::lossPercent, 0, 100},
        {"queue", &LinkSettings::queueMs, 1, 10000},
};

// Applies "LINK up|down|SETTING VALUE…", or nothing of it and returns what was wrong.
std::string applyLine(const std::string& line, std::deque<Link>& links) {
    std::istringstream words(line);
    std::string word;
    if (!(words >> word))
        return "";
    Link* link = nullptr;
    for (Link& candidate : links) {
        if (candidate.name() == word)
            link = &candidate;
    }
    if (link == nullptr)
        return "\"" + word + "\": no such link";

    LinkSettings wanted = link->settings();
    while (words >> word) {
        if (word == "up" || word == "down") {
            wanted.up = word == "up";
            continue;
        }
        const Setting* setting = nullptr;
        for (const Setting& candidate : kSettings) {
            if (word == candidate.name)
                setting = &candidate;
        }
        if (setting == nullptr) {
            return "\"" + word + "\": not a setting (rate, delay, loss, queue, up, down)";
        }
        std::string text;
        words >> text;
        double value = -1;
        const char* end = text.data() + text.size();
        const auto parsed = std::from_chars(text.data(), end, value);
        // Written so that not-a-number is refused too.
        const bool inRange = value >= setting->least && value <= setting->most;
        if (parsed.ec != std::errc() || parsed.ptr != end || !inRange) {
            std::ostringstream problem;
            problem << word << " \"" << text << "\": not a number from " << setting->least << " to "
                    << setting->most;
            return problem.str();
        }
        wanted.*setting->field = value;
    }
    link->apply(wanted);
    return "";
}

void obey(const std::string& line, std::deque<Link>& links) {
    const std::string problem = applyLine(line, links);
    if (!problem.empty()) {
        std::fprintf(stderr, "linkemu: %s; line \"%s\" ignored\n", problem.c_str(), line.c_str());
    }
}

void watch(int epoll, int fd, void* owner) {
    epoll_event event{};
    event.events = EPOLLIN;
    event.data.ptr = owner;
    if (epoll_ctl(epoll, EPOLL_CTL_ADD, fd, &event) != 0)
        die("epoll");
}

void armTimer(int timer, Nanoseconds due) {
    itimerspec when{};  // all zero: off
    if (due != kNever) {
        when.it_value.tv_sec = due / 1'000'000'000;
        when.it_value.tv_nsec = due % 1'000'000'000;
    }
    timerfd_settime(timer, TFD_TIMER_ABSTIME, &when, nullptr);
}

[[noreturn]] void forward(Fifo& control, std::deque<Link>& links,
                          const std::vector<std::pair<int, Direction*>>& directions) {
    const Fd epoll = checked(epoll_create1(EPOLL_CLOEXEC), "epoll");
    const Fd timer = checked(timerfd_create(CLOCK_MONOTONIC, TFD_NONBLOCK | TFD_CLOEXEC), "timer");
    for (const auto& [fd, direction] : directions)
        watch(epoll.get(), fd, direction);
    watch(epoll.get(), control.fd(), &control);
    watch(epoll.get(), timer.get(), nullptr);
    sayReady();

    Nanoseconds armed = kNever;
    for (;;) {
        epoll_event events[16];
        const int count = epoll_wait(epoll.get(), events, 16, -1);
        for (int i = 0; i < count; ++i) {
            void* owner = events[i].data.ptr;
            if (owner == &control) {
                control.receive('\n', [&](const std::string& line) { obey(line, links); });
            } else if (owner != nullptr) {
                static_cast<Direction*>(owner)->receive();
            }
        }
        const Nanoseconds now = monotonicNow();
        Nanoseconds due = kNever;
        for (const auto& [fd, direction] : directions) {
            direction->deliver(now);
            due = std::min(due, direction->nextDue());
        }
        // Setting the timer also takes back an expiry that nobody has read. A
        // past expiry must be replaced even by "off", or it wakes us for ever.
        if (due != armed || armed <= now)
            armTimer(timer.get(), due);
        armed = due;
    }
}

int run(int argc, char** argv) {
    if (argc < 4) {
        std::fputs("usage: linkemu CONTROL NETNS NEAR_DEVICE:INTERNET_DEVICE[:ethernet]...\n",
                   stderr);
        return 2;
    }
    Fifo control(argv[1]);
    std::vector<std::string> names;
    std::vector<std::string> farNames;
    std::vector<bool> ethernet;
    std::vector<Fd> near;
    for (int i = 3; i < argc; ++i) {
        std::istringstream words(argv[i]);
        std::string kind;
        std::getline(words, names.emplace_back(), ':');
        std::getline(words, farNames.emplace_back(), ':');
        std::getline(words, kind);
        ethernet.push_back(kind == "ethernet");
        near.push_back(openTun(names.back(), ethernet.back()));
    }
    const Fd netns = checked(open(argv[2], O_RDONLY | O_CLOEXEC), argv[2]);
    if (setns(netns.get(), CLONE_NEWNET) != 0)
        die(argv[2]);

    std::deque<Link> links;  // a link never moves: its directions point at its settings
    std::vector<std::pair<int, Direction*>> directions;
    for (std::size_t i = 0; i < names.size(); ++i) {
        Fd far = openTun(farNames[i], ethernet[i]);
        const int nearFd = near[i].get();
        const int farFd = far.get();
        Link& link = links.emplace_back(names[i], std::move(near[i]), std::move(far));
        directions.emplace_back(nearFd, &link.up());
        directions.emplace_back(farFd, &link.down());
    }
    forward(control, links, directions);
}

}  // namespace
}  // namespace lab

int main(int argc, char** argv) {
    return lab::run(argc, argv);
}
