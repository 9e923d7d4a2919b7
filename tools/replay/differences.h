// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

#include "logfile/choice_record.h"
#include "logfile/probe_record.h"
#include "logfile/share_record.h"

namespace lnkd {

// What was decided, in words that are equal for equal decisions, and what it was decided from.
std::string textOf(const ProbeRecord& probe);
std::string textOf(const ChoiceRecord& choice);
// Without what became of the rules, unless that is certain.
std::string textOf(const ShareRecord& shares, bool isCertain);

}  // namespace lnkd
