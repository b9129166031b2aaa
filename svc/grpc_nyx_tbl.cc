#include "svc/grpc_nyx_tbl.h"

#include "svc/common/call.h"
#include "svc/nyx_tbl_calls.inc"

NyxTblSvcImpl::NyxTblSvcImpl() : served(k_methods) {}

NyxTblSvcImpl::~NyxTblSvcImpl() = default;

std::unique_ptr<grpc::Service> make_table_service() {
    return std::unique_ptr<grpc::Service>(new NyxTblSvcImpl);
}
