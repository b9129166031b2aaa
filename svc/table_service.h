// The table service without its class, whose 148 methods take a compiler ten seconds to read.

#pragma once

#include <memory>

#include "agent_api/nyx_tbl.h"
#include "svc/nyx_tbl_functions.h"

namespace grpc {
class Service;
}

// A new NyxTblSvcImpl. It must outlive the server that it is registered with.
std::unique_ptr<grpc::Service> make_table_service();

// Fills the action data of a flow_info record, for action 0.
void nyx_flow_info_proto_to_api_spec(nyx_tbl_flow_info_spec_s *spec, const nyx::flow_infoSpec *proto);
