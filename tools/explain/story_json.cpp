// SPDX-License-Identifier: Apache-2.0
#include "explain/story_json.h"

#include "explain/words.h"
#include "output/json.h"

namespace lnkd {

namespace {

constexpr int kMs = 3;  // digits of a time in seconds

double seconds(int64_t ms) {
    return static_cast<double>(ms) / 1000;
}

const char* nameOf(MomentKind kind) {
    switch (kind) {
        case MomentKind::kDaemonStart:
            return "daemon-start";
        case MomentKind::kDaemonEnd:
            return "daemon-end";
        case MomentKind::kDaemonGone:
            return "daemon-gone";
        case MomentKind::kGameStart:
            return "game-start";
        case MomentKind::kGameEnd:
            return "game-end";
        case MomentKind::kCallStart:
            return "call-start";
        case MomentKind::kCallEnd:
            return "call-end";
        case MomentKind::kRunning:
            return "running";
        case MomentKind::kLinkAdded:
            return "link-added";
        case MomentKind::kLinkRemoved:
            return "link-removed";
        case MomentKind::kSwitch:
            return "switch";
        case MomentKind::kRefusal:
            return "refusal";
        case MomentKind::kRebuild:
            return "rebuild";
        case MomentKind::kSetBack:
            return "clock-set-back";
        case MomentKind::kGap:
            return "gap";
    }
    return "";
}

const char* nameOf(Why why) {
    constexpr const char* kNames[] = {"first", "gone", "failed", "better", "tie"};
    return kNames[static_cast<int>(why)];
}

const char* nameOf(Ending ending) {
    constexpr const char* kNames[] = {"open", "switched", "recovered", "other"};
    return kNames[static_cast<int>(ending)];
}

void write(JsonWriter& json, const char* name, const LinkView& link) {
    if (link.name.empty()) {
        json.null(name);
        return;
    }
    json.beginObject(name).text("link", link.name).number("level", link.level);
    json.number("average_ms", link.averageMs).number("signal_dbm", link.signalDbm).endObject();
}

void write(JsonWriter& json, const char* name, const Total& total) {
    json.beginObject(name).number("count", total.count);
    json.number("seconds", seconds(total.ms), kMs).endObject();
}

void write(JsonWriter& json, const Moment& moment) {
    json.beginObject().number("t", seconds(moment.at.ms), kMs).text("stamp", moment.at.stamp());
    json.text("kind", nameOf(moment.kind)).text("words", wordsOf(moment));
    switch (moment.kind) {
        case MomentKind::kSwitch:
            write(json, "from", moment.from);
            write(json, "to", moment.to);
            json.text("why", nameOf(moment.why)).text("uids", moment.text);
            json.number("sockets", moment.sockets);
            json.number("refused_seconds", seconds(moment.lastedMs), kMs);
            break;
        case MomentKind::kRefusal:
            write(json, "from", moment.from);
            write(json, "to", moment.to);
            json.number("choices", moment.count).text("ending", nameOf(moment.ending));
            json.number("seconds", seconds(moment.lastedMs), kMs);
            json.number("allowed_after_seconds", seconds(moment.waitMs), kMs);
            break;
        case MomentKind::kLinkAdded:
        case MomentKind::kLinkRemoved:
            json.text("link", moment.to.name);
            break;
        case MomentKind::kRebuild:
            json.beginArray("shares");
            for (const ShareRecord::Link& link : moment.shares) {
                json.beginObject().text("link", link.name);
                json.number("share", static_cast<double>(link.share), 6);
                if (moment.hasRates) {
                    json.number("kbit_s", int64_t{link.rate});
                } else {
                    json.null("kbit_s");
                }
                json.endObject();
            }
            json.endArray();
            break;
        default:
            break;
    }
    json.endObject();
}

void write(JsonWriter& json, const char* name, const Series& series) {
    json.beginArray(name);
    for (const Series::Point& point : series.points()) {
        json.beginArray().number("", seconds(point.atMs), kMs);
        json.number("", point.low, 3).number("", point.high, 3).number("", point.last, 3);
        json.endArray();
    }
    json.endArray();
}

void writeSummary(JsonWriter& json, const Story& story) {
    json.beginObject("summary");
    write(json, "selecting", story.selecting);
    json.number("choices", story.choices).number("switches", story.switches);
    json.number("sockets_destroyed", story.sockets);
    json.number("refused_choices", story.refusedChoices);
    write(json, "refusals_only_delayed", story.delays);
    write(json, "refusals_passed_by_themselves", story.savings);
    write(json, "refusals_other", story.otherRefusals);
    json.number("worse_link_seconds", seconds(story.worseMs), kMs);
    write(json, "no_good_link", story.notGood);
    json.number("longest_no_good_link_seconds", seconds(story.longestNotGoodMs), kMs);
    json.number("passes_told", story.passes).number("rebuilds", story.rebuilds);
    json.number("rebuilds_without_rates", story.rebuildsWithoutRates);
    json.number("expected_failures", story.expectedFailures).endObject();
}

void writeCurves(JsonWriter& json, const Story& story) {
    json.beginArray("links");
    for (const auto& [name, curves] : story.curves) {
        json.beginObject().text("name", name);
        write(json, "rtt", curves.rtt);
        write(json, "misses", curves.misses);
        write(json, "average", curves.average);
        write(json, "level", curves.level);
        write(json, "share", curves.share);
        write(json, "rate", curves.rate);
        json.endObject();
    }
    json.endArray();
}

}  // namespace

std::string jsonOf(const Story& story, const std::string& name, bool curves) {
    JsonWriter json;
    json.beginObject().beginObject("log").text("name", name);
    json.text("begin", story.begin.stamp()).text("end", story.end.stamp());
    json.number("seconds", seconds(story.end.ms), kMs).number("lines", story.lines);
    json.number("daemon_lines", story.daemonLines).number("runs", story.runs).endObject();
    writeSummary(json, story);
    json.beginArray("missing");
    for (const std::string& what : story.missing) {
        json.text("", what);
    }
    json.endArray().beginArray("moments");
    for (const Moment& moment : story.moments) {
        write(json, moment);
    }
    json.endArray().beginArray("failures");
    for (const Failure& failure : story.failures) {
        json.beginObject().number("count", failure.count).text("text", failure.text);
        json.text("first", failure.first.stamp()).text("last", failure.last.stamp()).endObject();
    }
    json.endArray();
    if (curves) {
        writeCurves(json, story);
    }
    return json.endObject().result();
}

}  // namespace lnkd
