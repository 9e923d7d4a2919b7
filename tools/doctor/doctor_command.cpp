// SPDX-License-Identifier: Apache-2.0
#include "doctor/doctor_command.h"

#include <cstdio>
#include <ctime>

#include "core/text_values.h"
#include "doctor/doctor_report.h"
#include "doctor/link_needs.h"
#include "doctor/private_network.h"
#include "doctor/rule_trials.h"
#include "doctor/socket_trials.h"
#include "doctor/system_needs.h"
#include "doctor/wifi_signal.h"
#include "output/text.h"

namespace lnkd {

namespace {

void append(Needs* all, const Needs& some) {
    all->insert(all->end(), some.begin(), some.end());
}

Needs examineAll(const std::vector<std::string>& links, bool withProbe) {
    Needs all = examineRights();
    const Needs tools = examineTools();
    append(&all, tools);
    const PrivateNetwork network;
    append(&all,
           tryRules(network, tools[0].state == NeedState::kOk, tools[1].state == NeedState::kOk));
    append(&all, examineConnectionTracking());  // once the trials have asked for it
    append(&all, trySockets(network));
    append(&all, examineModule());
    append(&all, {examineSocketFolder(), examineClock(time(nullptr))});
    std::vector<std::string> wifis;
    for (const std::string& link : links) {
        if (isWifi(link)) {
            wifis.push_back(link);
        }
    }
    append(&all, examineSignal(wifis));
    append(&all, examineLinks(links, withProbe));
    return all;
}

int runDoctor(const Arguments& arguments) {
    std::vector<std::string> links = splitDistinct(arguments.value("links"));
    for (const std::string& link : links) {
        if (!isInterfaceName(link)) {
            return usageError("doctor", quoted(link) + ": not an interface name");
        }
    }
    if (!arguments.has("links")) {
        links = knownLinks();
    }
    const Needs needs = examineAll(links, !arguments.has("no-probe"));
    const std::string text = arguments.has("json")
                                     ? doctorJson(needs)
                                     : doctorText(needs, arguments.has("all"), Terminal());
    std::fputs(text.c_str(), stdout);
    return exitStatusFor(needs);
}

}  // namespace

Subcommand doctorCommand() {
    Subcommand command;
    command.name = "doctor";
    command.summary = "Says what is missing here of what the daemon needs, and what to do.";
    command.options = {
            {"links", "NAMES", "look at these links, comma-separated"},
            {"no-probe", "", "do not connect to the probe target"},
            {"all", "", "a line for each thing that was looked at"},
            {"json", "", "for a program"},
    };
    command.notes =
            "Without --links they are those that the daemon has or is to have.\n"
            "Rules and sockets are tried in a network namespace of its own, as root, and not\n"
            "on the machine; the manual page has the exceptions. The daemon need not run.\n"
            "Exit status: 0 all there, 1 something that the daemon needs is missing, 2 usage,\n"
            "3 something that it needs could not be tried.\n";
    command.run = runDoctor;
    return command;
}

}  // namespace lnkd
