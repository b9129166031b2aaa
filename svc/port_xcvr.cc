#include "svc/port_xcvr.h"

#include <dlfcn.h>
#include <fmt/format.h>
#include <link.h>

#include <algorithm>
#include <span>
#include <string>
#include <string_view>

#include "agent_api/xcvr.h"

namespace {

using namespace sdk::platform;
using memory_t = std::span<const uint8_t, 256>;

// Fields of SFF-8472 A0h. Those of SFF-8636 page 00h have the same offsets, as the page is stored from offset 0; its
// revision is shorter.
struct field_s {
    size_t offset;
    size_t size;
};
constexpr field_s k_vendor_name = {20, 16};
constexpr field_s k_vendor_oui = {37, 3};
constexpr field_s k_vendor_part_number = {40, 16};
constexpr field_s k_vendor_revision_sfp = {56, 4};
constexpr field_s k_vendor_revision_qsfp = {56, 2};
constexpr field_s k_vendor_serial = {68, 16};

// The field without trailing blanks; each byte that is not printable ASCII becomes an underscore.
std::string text_of(memory_t memory, field_s field) {
    const std::string_view bytes(reinterpret_cast<const char *>(memory.data()), memory.size());
    const std::string_view filled = bytes.substr(field.offset, field.size);
    std::string text(filled.substr(0, filled.find_last_not_of(' ') + 1));
    std::ranges::replace_if(
        text, [](char c) { return c < 32 || c > 126; }, '_');
    return text;
}

// How many places the platform's table has. Its declaration leaves that open, so the size comes from the symbol table
// of the library that defines it.
size_t num_xcvrs() {
    Dl_info object;
    void *symbol = nullptr;
    const bool found =
        dladdr1(static_cast<const void *>(g_xcvr), &object, &symbol, RTLD_DL_SYMENT) != 0 && symbol;
    return found ? static_cast<const ElfW(Sym) *>(symbol)->st_size / sizeof(g_xcvr[0]) : 0;
}

bool is_qsfp(uint32_t xcvr_number) {
    static const size_t count = num_xcvrs();
    const uint32_t index = xcvr_number - 1;  // number 0 wraps around, beyond any table
    const xcvr_s *xcvr = index < count ? g_xcvr[index] : nullptr;
    return xcvr && (xcvr->type == XCVR_TYPE_QSFP || xcvr->type == XCVR_TYPE_QSFP28);
}

}  // namespace

void svc::xcvr_to_proto(nyx::PortXcvrStatus *proto, const port_status_s &port) {
    const memory_t memory(port.xcvr_id);
    const auto oui = memory.subspan(k_vendor_oui.offset, k_vendor_oui.size);
    proto->set_port(port.xcvr_number);
    proto->set_xcvr_value_1(port.xcvr_value[0]);
    proto->set_xcvr_value_2(port.xcvr_value[1]);
    proto->set_xcvr_value_3(port.xcvr_value[2]);
    proto->set_xcvr_value_4(port.xcvr_value[3]);
    proto->set_xcvr_value_5(port.xcvr_value[4]);
    proto->set_xcvr_value_6(port.xcvr_value[5]);
    proto->set_id_data(memory.data(), memory.size());
    proto->set_vendor_name(text_of(memory, k_vendor_name));
    proto->set_vendor_oui(fmt::format("{:02x}:{:02x}:{:02x}", oui[0], oui[1], oui[2]));
    proto->set_vendor_serial(text_of(memory, k_vendor_serial));
    proto->set_vendor_part_number(text_of(memory, k_vendor_part_number));
    proto->set_vendor_revision(
        text_of(memory, is_qsfp(port.xcvr_number) ? k_vendor_revision_qsfp : k_vendor_revision_sfp));
}
