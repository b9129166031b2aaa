"""Writes the comments of a protobuf descriptor set, without the descriptors, as C++ for client/core/symbols.cc.

usage: contract_comments DESCRIPTOR-SET CPP-FILE
"""

import pathlib
import sys

from google.protobuf import descriptor_pb2


def comments_only(file):
    """Puts comments at the ends of lines in front: DebugString() prints them below, like comments on what comes next."""
    kept = descriptor_pb2.FileDescriptorProto(name=file.name)
    for location in file.source_code_info.location:
        if location.leading_comments or location.trailing_comments:
            lines = (location.leading_comments + location.trailing_comments).splitlines(keepends=True)
            location.leading_comments = "".join(line.removeprefix(" ") for line in lines)
            location.ClearField("trailing_comments")
            kept.source_code_info.location.append(location)
    return kept


def main(descriptor_set, cpp_file):
    files = descriptor_pb2.FileDescriptorSet.FromString(pathlib.Path(descriptor_set).read_bytes()).file
    data = descriptor_pb2.FileDescriptorSet(file=map(comments_only, files)).SerializeToString()
    pathlib.Path(cpp_file).write_text(f"""#include "client/core/contract_comments.h"
namespace nyxctl {{
static constexpr unsigned char k_bytes[] = {{{",".join(map(str, data))}}};
const std::span<const unsigned char> k_contract_comments = k_bytes;
}}
""")


main(*sys.argv[1:])
