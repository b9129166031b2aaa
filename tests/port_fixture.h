// The port service, over ports whose records are laid out by offset.

#pragma once

#include <algorithm>
#include <array>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

#include "sim/api/ports.h"
#include "sim/api/reset_card.h"
#include "sim/card/card.h"
#include "svc/port.h"
#include "tests/device_fixture.h"

namespace test {

inline constexpr size_t k_status = 383;  // where the status part starts
inline constexpr size_t k_xcvr_id = 53;  // in the status part

// The record of a port, zero except for what is put into it.
class port_record {
 public:
    explicit port_record(std::string_view id, uint32_t port_type = 1) {
        put_text(0, id).put(17, 1U).put(29, port_type);
    }

    template <class T>
    port_record &put(size_t offset, T value) {
        memcpy(bytes_.data() + offset, &value, sizeof(value));
        return *this;
    }
    port_record &put_text(size_t offset, std::string_view text) {
        std::copy(text.begin(), text.end(), bytes_.begin() + static_cast<ptrdiff_t>(offset));
        return *this;
    }

    std::string bytes(size_t first, size_t end) const {
        return {bytes_.begin() + first, bytes_.begin() + end};
    }
    nyx_if_info_s info() const {
        nyx_if_info_s info;
        memcpy(&info, bytes_.data(), bytes_.size());
        return info;
    }

 private:
    std::array<char, 1474> bytes_ = {};
};

inline std::string id_text(const nyx_obj_key_s &key) {
    return std::string(reinterpret_cast<const char *>(key.id), 16);
}

inline nyx::PortSpec every_setting(std::string_view id) {
    nyx::PortSpec spec;
    google::protobuf::TextFormat::ParseFromString(
        "port_number: 170 setting_a: PORT_SETTING_1 port_type: PORT_TYPE_DATA setting_b: PORT_SETTING_B_9 "
        "setting_c: PORT_SETTING_2 number_a: 0x01020304 number_b: 0xfffffffe setting_d: PORT_SETTING_1 "
        "flag_a: true flag_b: false flag_c: true setting_e: PORT_SETTING_2 number_c: 0x80000001",
        &spec);
    spec.set_id(std::string(id));
    return spec;
}

// The same in a record.
inline port_record record_of_every_setting(std::string_view id) {
    return port_record(id)
        .put(25, 1U)
        .put(33, 7U)
        .put(37, 2U)
        .put<uint8_t>(41, 1)
        .put(42, 0x01020304U)
        .put(46, 0xfffffffeU)
        .put(50, 1U)
        .put<uint8_t>(55, 1)
        .put(56, 2U)
        .put(60, 0x80000001U);
}

class port_service : public device_service<nyx::PortSvc, PortSvcImpl> {
 protected:
    port_service() { sim::reset_card(); }
    ~port_service() override { sim::reset_card(); }

    nyx::PortGetResponse get(const std::vector<std::string> &ids) {
        nyx::PortGetRequest req;
        req.mutable_id()->Assign(ids.begin(), ids.end());
        return call<nyx::PortGetResponse>("PortGet", req);
    }

    // The port after its record was put into the port API.
    nyx::Port read(const port_record &rec) {
        sim::put_port(rec.info());
        const auto rsp = get({rec.bytes(0, 16)});
        EXPECT_EQ(rsp.api_status(), types::API_STATUS_OK);
        EXPECT_EQ(rsp.response_size(), 1);
        return rsp.response_size() ? rsp.response(0) : nyx::Port();
    }

    static std::vector<std::string> ids(const nyx::PortGetResponse &rsp) {
        std::vector<std::string> ids;
        for (const auto &port : rsp.response()) {
            ids.push_back(port.spec().id());
        }
        return ids;
    }

    const std::string port_1_ = id_text(sim::port_key(1)), port_2_ = id_text(sim::port_key(2)),
                      port_3_ = id_text(sim::port_key(3)), uplink_1_ = id_text(sim::uplink_key(1));
};

}  // namespace test
