// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <vector>

namespace lnkd {

enum class NeedState {
    kOk,
    kMissing,
    kUnknown,  // it could not be tried
};

// Something that the daemon wants of the kernel or the file system, and whether it is there.
struct Need {
    std::string subject;      // what it belongs to; those of a subject follow each other
    std::string thing;        // one name within the subject
    bool isOptional = false;  // the daemon does its work without it
    std::string without;      // what will not work without it
    std::string remedy;       // what to do about it

    NeedState state = NeedState::kUnknown;
    std::string found = {};  // what there is, or why not; may be empty

    Need met(const std::string& what) const { return with(NeedState::kOk, what); }
    Need missing(const std::string& why) const { return with(NeedState::kMissing, why); }
    Need unknown(const std::string& why) const { return with(NeedState::kUnknown, why); }

  private:
    Need with(NeedState newState, const std::string& text) const {
        Need need = *this;
        need.state = newState;
        need.found = text;
        return need;
    }
};

using Needs = std::vector<Need>;

}  // namespace lnkd
