// The table service: Create, Update, Get and Delete of entries of the pipeline's P4 tables.

#pragma once

#include "nyx/tables/tbl_svc.grpc.pb.h"
#include "svc/served.h"
#include "svc/table_service.h"

// Each method calls the free function nyx_svc_<table>_<operation> with its request and response and ends with
// gRPC status OK; the outcome is the response's api_status. No state: any thread.
class NyxTblSvcImpl final : public svc::served<nyx::NyxTblSvc> {
 public:
    NyxTblSvcImpl();
    ~NyxTblSvcImpl() override;
#include "svc/nyx_tbl_methods.inc"
};
