// Text out of records, made UTF-8.

#include "base/text.h"

#include <google/protobuf/wrappers.pb.h>

#include <string>

#include "fuzz/check.h"
#include "fuzz/input.h"
#include "fuzz/quiet.h"

namespace {

using fuzz::check;

// By another judge than the code under test: the one that refuses messages.
bool is_utf8(std::string_view bytes) {
    google::protobuf::BytesValue sent;
    sent.set_value(bytes.data(), bytes.size());
    return google::protobuf::StringValue().ParseFromString(sent.SerializeAsString());
}

std::string ascii_of(std::string_view bytes) {
    std::string ascii;
    std::ranges::copy_if(bytes, std::back_inserter(ascii), [](char c) { return (c & 0x80) == 0; });
    return ascii;
}

void check_text(std::string_view bytes) {
    const std::string text = base::to_utf8(bytes);
    check(is_utf8(text), "the text is UTF-8");
    check(!is_utf8(bytes) || text == bytes, "UTF-8 stays as it is");
    check(base::to_utf8(text) == text, "a text that was cleaned is clean");
    check(ascii_of(text) == ascii_of(bytes), "ASCII stays as it is");
}

void check_cut(std::string_view bytes) {
    const std::string text = base::to_utf8(bytes);
    check(base::without_cut_character(text) == text, "nothing is cut off a whole text");
    for (size_t size = text.size() - std::min<size_t>(text.size(), 8); size < text.size(); size++) {
        const auto cut = base::without_cut_character(std::string_view(text).substr(0, size));
        check(is_utf8(cut) && size - cut.size() < 4, "a cut character goes, and no other");
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    fuzz::be_quiet();
    fuzz::input in(data, size);
    const auto first = in.take_bytes(in.take<uint8_t>());
    const auto second = in.take_rest();
    check_text(first);
    check_cut(first);
    const std::string around = std::string(first) + '\xff' + std::string(second);
    check(base::to_utf8(around) == base::to_utf8(first) + "\xef\xbf\xbd" + base::to_utf8(second),
          "one wrong byte costs no other");
    return 0;
}
