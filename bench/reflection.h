// Entries of the table `flow` converted by protobuf's reflection, as code for any table would do it without a generator.

#pragma once

#include <vector>

#include "agent_api/nyx_tbl.h"
#include "nyx/tables/flow.pb.h"

namespace bench {

// Looks up descriptors, offsets and widths when constructed.
class flow_reflection {
 public:
    flow_reflection();

    void to_record(nyx_tbl_flow_spec_s &record, const nyx::flowSpec &spec) const;
    void to_message(nyx::flowSpec *spec, const nyx_tbl_flow_spec_s &record) const;

 private:
    struct field_s {
        const google::protobuf::FieldDescriptor *field;
        size_t offset, width;
    };

    static std::vector<field_s> fields_of(const google::protobuf::Descriptor *message);
    static void to_bytes(uint8_t *record, const google::protobuf::Message &message,
                         const std::vector<field_s> &fields);
    static void to_fields(google::protobuf::Message *message, const uint8_t *record,
                          const std::vector<field_s> &fields);

    const std::vector<field_s> key_, data_;
};

}  // namespace bench
