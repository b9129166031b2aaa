// Where the agent's log goes.

#pragma once

#include <spdlog/sinks/sink.h>

#include <string>
#include <string_view>
#include <vector>

namespace host {

// The journal, with fields, when that is what stderr is connected to; otherwise stderr. Any thread.
spdlog::sink_ptr make_log_target();

// The words key=value of an audit line as fields of the journal: NYX_METHOD=nyx.PortSvc/PortUpdate.
std::vector<std::string> journal_fields(std::string_view line);

}  // namespace host
