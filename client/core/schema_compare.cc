#include "client/core/schema_compare.h"

#include <google/protobuf/descriptor.h>
#include <google/protobuf/descriptor.pb.h>

#include "proto/proto_files.h"

namespace pb = google::protobuf;

namespace nyxctl {
namespace {

// What writers may leave out or add without a change of meaning.
std::string comparable_bytes(pb::FileDescriptorProto file) {
    file.clear_source_code_info();
    return file.SerializeAsString();
}

}  // namespace

std::vector<std::string> schema_files() {
    std::vector<std::string> files;
    for (const std::string_view file : nyx::proto_files()) {
        if (file.starts_with("nyx/")) {
            files.emplace_back(file);
        }
    }
    return files;
}

bool is_same_schema(const std::string &file, std::string_view descriptor_bytes) {
    pb::FileDescriptorProto own;
    pb::DescriptorPool::generated_pool()->FindFileByName(file)->CopyTo(&own);
    pb::FileDescriptorProto other;
    return other.ParseFromArray(descriptor_bytes.data(), static_cast<int>(descriptor_bytes.size())) &&
           comparable_bytes(std::move(other)) == comparable_bytes(std::move(own));
}

}  // namespace nyxctl
