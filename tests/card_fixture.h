// One service over the stand-in's card as it is at the start.

#pragma once

#include <string>
#include <vector>

#include "sim/api/reset_card.h"
#include "sim/card/card.h"
#include "tests/device_fixture.h"

namespace test {

inline std::string id_of(const nyx_obj_key_s &key) {
    return std::string(reinterpret_cast<const char *>(key.id), sizeof(key.id));
}

template <class Svc, class Impl>
class card_service : public device_service<Svc, Impl> {
 protected:
    card_service() { sim::reset_card(); }
    ~card_service() override { sim::reset_card(); }

    template <class Request, class Response>
    Response read(const std::string &method, const std::vector<std::string> &ids) {
        Request req;
        req.mutable_id()->Add(ids.begin(), ids.end());
        return this->template call<Response>(method, req);
    }
};

}  // namespace test
