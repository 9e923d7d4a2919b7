// SPDX-License-Identifier: Apache-2.0
#include "commands/table.h"

#include <algorithm>

#include "check/check_command.h"
#include "clean/clean_command.h"
#include "commands/completion.h"
#include "doctor/doctor_command.h"
#include "explain/explain_command.h"
#include "session/session_command.h"
#include "status/status_command.h"

namespace lnkd {

const std::vector<Subcommand>& subcommands() {
    static const std::vector<Subcommand> table = {
            sessionCommand(), statusCommand(),  checkCommand(),      doctorCommand(),
            cleanCommand(),   explainCommand(), completionCommand(),
    };
    return table;
}

const Subcommand* findSubcommand(const std::string& name) {
    const std::vector<Subcommand>& table = subcommands();
    const auto found = std::find_if(table.begin(), table.end(), [&name](const Subcommand& command) {
        return command.name == name;
    });
    return found == table.end() ? nullptr : &*found;
}

}  // namespace lnkd
