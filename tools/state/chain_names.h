// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "state/packet_filter.h"

namespace lnkd {

// The chains that the daemon makes; those with a prefix are one for each link, its name behind it.
constexpr char kEntryChain[] = "zelk_DVX_wapper";
constexpr char kMainChain[] = "zelk_DVX";
constexpr char kShareChain[] = "zelk_SLA";
constexpr char kSelectedChain[] = "zelk_SLS";
constexpr char kNatChain[] = "zelk_nat_POSTROUTING_DVX";
constexpr char kMarkPrefix[] = "zelk_fw_";
constexpr char kWrapperSuffix[] = "_wrapper";
constexpr char kSelectionPrefix[] = "zelk_sls_";
constexpr char kSelectionUidPrefix[] = "zelk_sls_uid_";

// The link of a mark chain, or of the wrapper chain in front of one; empty for another chain.
std::string linkOfMarkChain(const std::string& chain);

// The links that have a mark chain or a wrapper chain, in name order.
std::vector<std::string> linksOf(const FilterTable& mangle);

// A chain's rules; none when it is not there.
const FilterChain& rulesOf(const FilterTable& table, const std::string& chain);

// The UIDs that a chain's rules look at, in order.
std::vector<std::string> uidsOf(const FilterChain& rules);

}  // namespace lnkd
