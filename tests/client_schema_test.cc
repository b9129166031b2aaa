// Comparing an agent's schema with the client's own.

#include <google/protobuf/descriptor.pb.h>
#include <gtest/gtest.h>

#include "client/core/schema_compare.h"
#include "nyx/port.pb.h"

namespace {

TEST(SchemaCompare, AnyChangeOfMeaningDiffers_CommentsDoNot) {
    google::protobuf::FileDescriptorProto file;
    nyx::Port::descriptor()->file()->CopyTo(&file);
    EXPECT_TRUE(nyxctl::is_same_schema("nyx/port.proto", file.SerializeAsString()));
    file.mutable_source_code_info()->add_location()->set_leading_comments("a comment");
    EXPECT_TRUE(nyxctl::is_same_schema("nyx/port.proto", file.SerializeAsString()));
    file.mutable_message_type(0)->mutable_field(0)->mutable_options()->set_deprecated(true);
    EXPECT_FALSE(nyxctl::is_same_schema("nyx/port.proto", file.SerializeAsString()));
    EXPECT_FALSE(nyxctl::is_same_schema("nyx/port.proto", "\xff"));
}

}  // namespace
