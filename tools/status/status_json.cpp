// SPDX-License-Identifier: Apache-2.0
#include "status/status_json.h"

#include "output/json.h"
#include "output/text.h"

namespace lnkd {

namespace {

// Raised when a member changes its meaning or goes; a new one raises nothing.
constexpr int64_t kVersion = 1;

const char* nameOf(Users users) {
    switch (users) {
        case Users::kWhitelist:
            return "whitelist";
        case Users::kSecondWifiList:
            return "second-wifi";
        case Users::kAll:
            break;
    }
    return "all";
}

// A number of things that is known only when what they are counted in was read.
std::optional<size_t> countIf(bool isKnown, size_t count) {
    return isKnown ? std::optional(count) : std::nullopt;
}

template <typename Number>
void optionalNumber(JsonWriter& json, const char* name, const std::optional<Number>& value) {
    if (value.has_value()) {
        json.number(name, static_cast<int64_t>(*value));
    } else {
        json.null(name);
    }
}

void optionalBoolean(JsonWriter& json, const char* name, const std::optional<bool>& value) {
    if (value.has_value()) {
        json.boolean(name, *value);
    } else {
        json.null(name);
    }
}

void optionalShare(JsonWriter& json, const char* name, const std::optional<double>& value) {
    if (value.has_value()) {
        json.number(name, *value, 6);
    } else {
        json.null(name);
    }
}

void optionalText(JsonWriter& json, const char* name, const std::string& value) {
    if (value.empty()) {
        json.null(name);
    } else {
        json.text(name, value);
    }
}

void texts(JsonWriter& json, const char* name, const std::vector<std::string>& values) {
    json.beginArray(name);
    for (const std::string& value : values) {
        json.text("", value);
    }
    json.endArray();
}

void uids(JsonWriter& json, const char* name, const UidList& list) {
    if (list.has_value()) {
        texts(json, name, *list);
    } else {
        json.null(name);
    }
}

void addDaemon(JsonWriter& json, const Observation& seen, const Picture& picture) {
    const DaemonProcess daemon = picture.daemon.value_or(DaemonProcess{});
    const auto positive = [](int64_t value) {
        return value > 0 ? std::optional(value) : std::nullopt;
    };
    json.beginObject("daemon").text("state", nameOf(picture.daemonState));
    optionalNumber(json, "pid", positive(daemon.pid > 0 ? daemon.pid : seen.idleDaemon));
    optionalNumber(json, "started_at", positive(daemon.startedAt));
    optionalNumber(json, "resident_kib", positive(daemon.residentKb));
    optionalNumber(json, "private_kib", positive(daemon.privateKb));
    optionalText(json, "log", daemon.logName);
    optionalNumber(
            json, "chains",
            countIf(seen.filter.mangle.known() && seen.filter.nat.known(), picture.leftChains));
    optionalNumber(json, "policy_rules", countIf(seen.policyRules.known(), picture.leftRules));
    json.endObject();
}

void addLink(JsonWriter& json, const LinkPicture& link) {
    json.beginObject().text("name", link.name).boolean("present", link.isThere);
    json.boolean("up", link.isUp).boolean("carrier", link.hasCarrier);
    texts(json, "addresses", link.addresses);
    optionalText(json, "mark", link.mark.has_value() ? hexadecimal(*link.mark) : "");
    optionalNumber(json, "table", link.table);
    json.boolean("policy_rule", link.hasPolicyRule);
    optionalBoolean(json, "default_route", link.hasDefaultRoute);
    optionalBoolean(json, "metered", link.metered);
    json.text("users", nameOf(link.users));
    optionalShare(json, "share", link.share);
    json.number("dealt_connections", static_cast<int64_t>(link.dealtConnections))
            .number("new_connections", static_cast<int64_t>(link.newConnections))
            .number("steered_bytes", static_cast<int64_t>(link.steeredBytes));
    optionalNumber(json, "connections", link.connections);
    optionalNumber(json, "bits_per_second", link.bitsPerSecond);
    optionalNumber(json, "statistics_age_ms", link.statisticsAgeMs);
    optionalNumber(json, "rtt_ms", link.probe.rttMs);
    optionalNumber(json, "level", link.probe.level);
    json.boolean("selected", link.isSelected).endObject();
}

void addLinks(JsonWriter& json, const Observation& seen, const Picture& picture) {
    if (!seen.filter.mangle.known()) {
        json.null("links");
        return;
    }
    json.beginArray("links");
    for (const LinkPicture& link : picture.links) {
        addLink(json, link);
    }
    json.endArray();
}

void addByMark(JsonWriter& json, const Reading<ConnectionsByMark>& connections) {
    if (!connections.known()) {
        json.null("by_mark");
        return;
    }
    json.beginArray("by_mark");
    for (const auto& [mark, count] : connections.value) {
        json.beginObject()
                .text("mark", hexadecimal(mark))
                .number("all", static_cast<int64_t>(count.all))
                .number("live", static_cast<int64_t>(count.live))
                .endObject();
    }
    json.endArray();
}

void addConnections(JsonWriter& json, const Observation& seen) {
    const bool isKnown = seen.tracked.known();
    json.beginObject("connections");
    optionalNumber(json, "tracked",
                   isKnown ? std::optional(seen.tracked.value.count) : std::nullopt);
    optionalNumber(json, "limit", isKnown ? std::optional(seen.tracked.value.limit) : std::nullopt);
    addByMark(json, seen.connections);
    json.endObject();
}

}  // namespace

const char* nameOf(DaemonState state) {
    switch (state) {
        case DaemonState::kRunning:
            return "running";
        case DaemonState::kStopped:
            return "stopped";
        case DaemonState::kDisabled:
            return "disabled";
        case DaemonState::kLeftovers:
            return "leftovers";
        case DaemonState::kUnknown:
            break;
    }
    return "unknown";
}

std::string statusJson(const Observation& seen, const Picture& picture,
                       const std::vector<Warning>& warnings) {
    const bool areChainsKnown = seen.filter.mangle.known();
    JsonWriter json;
    json.beginObject().number("version", kVersion).number("time_ms", seen.wallMs);
    addDaemon(json, seen, picture);
    addLinks(json, seen, picture);
    optionalShare(json, "default_route_share", picture.defaultShare);
    json.beginObject("lists");
    uids(json, "steered", areChainsKnown ? UidList(picture.entry) : std::nullopt);
    uids(json, "whitelist", picture.whitelist);
    uids(json, "second_wifi", picture.secondWifi);
    uids(json, "gaming", picture.gaming);
    json.endObject().beginObject("selection");
    optionalBoolean(json, "running",
                    areChainsKnown ? std::optional(picture.isSelecting) : std::nullopt);
    optionalText(json, "link", picture.selected);
    json.endObject();
    addConnections(json, seen);
    json.beginArray("warnings");
    for (const Warning& warning : warnings) {
        json.beginObject()
                .text("id", warning.id)
                .text("subject", warning.subject)
                .text("text", warning.text)
                .endObject();
    }
    json.endArray();
    texts(json, "unread", seen.problems());
    return json.endObject().result();
}

}  // namespace lnkd
