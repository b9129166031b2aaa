// The operations of the table service, the same for every table: write (create and update), remove and get.
//
// Each takes the binding of a table (its records and their conversions, generated from the schema) and the
// operation of the table library to call. Entries are handled one by one, in order and without rollback: a
// failure does not stop the rest, unless the client has left. The return code is SDK_RET_OK, or SDK_RET_MAX_RETURN_VALUE when any of them
// failed; its translation goes into the response. No state: any thread.

#pragma once

#include "agent_api/sdk_ret.h"
#include "svc/common/call.h"
#include "svc/common/ret_code.h"

namespace nyx_tbl {

// Ternary tables are those whose records hold a mask.
template <class Record>
concept ternary = requires(Record rec) {
    rec.key_mask_valid;
};

// Keeps the outcome of a request while its entries are handled.
class outcome {
 public:
    void add(sdk::sdk_ret_t ret) {
        if (ret != sdk::SDK_RET_OK) {
            ret_ = sdk::SDK_RET_MAX_RETURN_VALUE;
        }
    }

    // Whether the client has left; what is not done then counts as failed.
    bool stop_with_client() {
        const bool has_left = svc::client_has_left();
        add(has_left ? sdk::SDK_RET_OPERATION_TIMED_OUT : sdk::SDK_RET_OK);
        return has_left;
    }

    template <class Response>
    sdk::sdk_ret_t report(Response *rsp) const {
        rsp->set_api_status(tbl_svc_ret_to_api_status(ret_));
        return ret_;
    }

 private:
    sdk::sdk_ret_t ret_ = sdk::SDK_RET_OK;
};

// Fills a zeroed record.
template <class Binding, class Spec>
void spec_to_record(typename Binding::spec_s &rec, const Spec &spec) {
    rec.action_id = static_cast<uint8_t>(spec.action_id());
    Binding::key_to_record(rec.key, spec.key());
    if constexpr (ternary<typename Binding::spec_s>) {
        if (spec.key_mask_valid()) {
            rec.key_mask_valid = 1;
            Binding::key_to_record(rec.key_mask, spec.key_mask());
        }
    }
    Binding::data_to_record(rec, spec);
}

// Fills an empty message.
template <class Binding, class Spec>
void record_to_spec(Spec *spec, const typename Binding::spec_s &rec) {
    spec->set_action_id(rec.action_id);
    Binding::key_to_proto(spec->mutable_key(), rec.key);
    if constexpr (ternary<typename Binding::spec_s>) {
        if (rec.key_mask_valid) {
            spec->set_key_mask_valid(1);
            Binding::key_to_proto(spec->mutable_key_mask(), rec.key_mask);
        }
    }
    Binding::data_to_proto(spec, rec);
}

// Create and Update: `operation` is the table's _create or _update.
template <class Binding, class Operation, class Request, class Response>
sdk::sdk_ret_t write(Operation operation, const Request &req, Response *rsp) {
    outcome result;
    for (const auto &spec : req.request()) {
        if (result.stop_with_client()) {
            break;
        }
        typename Binding::spec_s rec{};
        spec_to_record<Binding>(rec, spec);
        result.add(operation(&rec));
    }
    return result.report(rsp);
}

// Delete.
template <class Binding, class Operation, class Request, class Response>
sdk::sdk_ret_t remove(Operation operation, const Request &req, Response *rsp) {
    outcome result;
    for (const auto &key : req.key()) {
        if (result.stop_with_client()) {
            break;
        }
        typename Binding::key_s key_rec{};
        Binding::key_to_record(key_rec, key);
        result.add(operation(&key_rec));
    }
    return result.report(rsp);
}

// Get: one entry in the response for each key, in the order of the keys, also where the read failed.
template <class Binding, class Operation, class Request, class Response>
sdk::sdk_ret_t get(Operation operation, const Request &req, Response *rsp) {
    outcome result;
    rsp->mutable_response()->Reserve(req.key_size());
    for (const auto &key : req.key()) {
        if (result.stop_with_client()) {
            break;
        }
        typename Binding::key_s key_rec{};
        Binding::key_to_record(key_rec, key);
        typename Binding::spec_s rec{};
        result.add(operation(&key_rec, &rec));
        record_to_spec<Binding>(rsp->add_response()->mutable_spec(), rec);
    }
    return result.report(rsp);
}

}  // namespace nyx_tbl
