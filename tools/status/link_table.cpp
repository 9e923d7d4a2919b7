// SPDX-License-Identifier: Apache-2.0
#include "status/link_table.h"

#include <algorithm>
#include <cmath>
#include <iterator>

#include "output/text.h"

namespace lnkd {

namespace {

constexpr char kNone[] = "-";

Cell markCell(const LinkPicture& link) {
    return {link.mark.has_value() ? hexadecimal(*link.mark) : kNone};
}

Cell stateCell(const LinkPicture& link) {
    if (!link.isThere) {
        return {"gone", Tone::kBad};
    }
    if (!link.isUp) {
        return {"down", Tone::kBad};
    }
    if (!link.hasPolicyRule) {
        return {"no rule", Tone::kBad};
    }
    if (!link.hasDefaultRoute.value_or(true)) {
        return {"no route", Tone::kBad};
    }
    return link.hasCarrier ? Cell{"up", Tone::kGood} : Cell{"no carrier", Tone::kBad};
}

Cell meteredCell(const LinkPicture& link) {
    return {!link.metered.has_value() ? "?" : *link.metered ? "yes" : "no"};
}

Cell usersCell(const LinkPicture& link) {
    switch (link.users) {
        case Users::kWhitelist:
            return {"whitelist"};
        case Users::kSecondWifiList:
            return {"2nd Wi-Fi"};
        case Users::kAll:
            break;
    }
    return {"all"};
}

Cell shareCell(const LinkPicture& link) {
    return {link.share.has_value() ? std::to_string(std::lround(*link.share * 100)) + " %" : kNone};
}

Cell rttCell(const LinkPicture& link) {
    if (link.probe.hasFailed) {
        return {"failed", Tone::kBad};
    }
    return {link.probe.rttMs.has_value() ? std::to_string(*link.probe.rttMs) + " ms" : kNone};
}

Cell levelCell(const LinkPicture& link) {
    return {link.probe.level.has_value() ? std::to_string(*link.probe.level) : kNone};
}

struct Column {
    const char* heading;  // a blank in front: set to the right
    int rank;             // 0 always stays; of the others, the highest goes first
    Cell (*cell)(const LinkPicture& link);
};

constexpr Column kColumns[] = {
        {"LINK", 0,
         [](const LinkPicture& link) {
             return link.isSelected ? Cell{"*" + link.name, Tone::kGood} : Cell{' ' + link.name};
         }},
        {"STATE", 0, stateCell},
        {"MARK", 2, markCell},
        {"TABLE", 5,
         [](const LinkPicture& link) {
             return Cell{link.table.has_value() ? std::to_string(*link.table) : kNone};
         }},
        {"ROUTE", 6,
         [](const LinkPicture& link) {
             return Cell{!link.hasDefaultRoute.has_value() ? "?"
                         : *link.hasDefaultRoute           ? "default"
                                                           : "none"};
         }},
        {"METERED", 1, meteredCell},
        {"FOR", 3, usersCell},
        {" SHARE", 0, shareCell},
        {" NEW", 0, [](const LinkPicture& link) { return Cell{countText(link.newConnections)}; }},
        {" STEERED", 4,
         [](const LinkPicture& link) {
             return Cell{sizeText(static_cast<double>(link.steeredBytes))};
         }},
        {" OPEN", 0,
         [](const LinkPicture& link) {
             return Cell{link.connections.has_value() ? countText(*link.connections) : kNone};
         }},
        {" NOW", 0,
         [](const LinkPicture& link) {
             return Cell{link.bitsPerSecond.has_value() ? rateText(*link.bitsPerSecond) : kNone};
         }},
        {" RTT", 0, rttCell},
        {" LEVEL", 0, levelCell},
};

Table tableOf(const Picture& picture, int highestRank) {
    std::vector<std::string> headings;
    for (const Column& column : kColumns) {
        if (column.rank <= highestRank) {
            headings.emplace_back(column.heading);
        }
    }
    Table table(headings);
    for (const LinkPicture& link : picture.links) {
        std::vector<Cell> row;
        for (const Column& column : kColumns) {
            if (column.rank <= highestRank) {
                row.push_back(column.cell(link));
            }
        }
        table.add(std::move(row));
    }
    return table;
}

}  // namespace

std::string linkTable(const Picture& picture, const Terminal& terminal) {
    int rank = std::max_element(std::begin(kColumns), std::end(kColumns),
                                [](const Column& a, const Column& b) { return a.rank < b.rank; })
                       ->rank;
    const size_t width = terminal.width();
    while (rank > 0 && width > 0 && tableOf(picture, rank).width() > width) {
        --rank;
    }
    return tableOf(picture, rank).lines(terminal);
}

}  // namespace lnkd
