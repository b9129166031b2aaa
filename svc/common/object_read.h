// Reading objects of the agent, the same for every kind of object.

#pragma once

#include "agent_api/nyx_types.h"
#include "agent_api/sdk_ret.h"
#include "svc/common/call.h"
#include "svc/common/converters.h"
#include "svc/common/ret_code.h"

namespace svc {

// Reads the objects with the ids of the request, in order and up to the first failure, or all objects when it has no
// ids. `read` is sdk_ret_t(nyx_obj_key_s *, Info *), `read_all` walks over all records, and `to_proto` appends a
// record to the response, which gets the translated outcome. What was appended before a failure stays. A client that has
// left counts as a failure.
template <class Info, class Request, class Response, class Read, class ReadAll>
sdk::sdk_ret_t read_objects(const Request *req, Response *rsp, Read read, ReadAll read_all,
                            nyx_read_cb_t to_proto) {
    auto ret = sdk::SDK_RET_OK;
    if (!req) {
        ret = sdk::SDK_RET_INVALID_ARG;
    } else if (req->id().empty()) {
        ret = read_all(to_proto, rsp);
    } else {
        for (const auto &id : req->id()) {
            if (client_has_left()) {
                ret = sdk::SDK_RET_OPERATION_TIMED_OUT;
                break;
            }
            nyx_obj_key_s key = key_to_api(id);
            Info info{};
            ret = read(&key, &info);
            if (ret != sdk::SDK_RET_OK) {
                break;
            }
            to_proto(&info, rsp);
        }
    }
    rsp->set_api_status(sdk_ret_to_api_status(ret));
    return ret;
}

}  // namespace svc
