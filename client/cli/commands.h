// The rows of all commands, by subject.

#pragma once

#include "client/cli/command.h"

namespace nyxctl {

// The program itself, whose path is empty and whose arguments are the options of every command, and then the commands.
commands_t all_commands();

// What the program's own options say.
global_options_s global_options(const given_s &given);

// Takes the dictionary from the installed folders and from --labels. Reads only what --labels names; what is wrong there
// is a usage failure.
outcome_s choose_labels(const given_s &given);

// Says on stderr what is wrong in the installed folders, if they were read, and not with -j.
void note_labels_problems(const given_s &given);

commands_t call_commands();        // list, describe, call
commands_t completion_commands();  // completion
commands_t debug_commands();       // debug
commands_t fault_commands();       // fault
commands_t health_commands();      // health, status
commands_t scenario_commands();    // scenario
commands_t interface_commands();   // set, add, del interface
commands_t metrics_commands();     // metrics
commands_t labels_commands();      // labels
commands_t record_commands();      // explain, encode, decode
commands_t setting_commands();     // set, clear
commands_t snapshot_commands();    // snapshot, diff
commands_t table_commands();       // table
commands_t view_commands();        // show, watch

}  // namespace nyxctl
