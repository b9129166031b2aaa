// Limits log lines whose number is up to peers.

#pragma once

#include <chrono>
#include <cstdint>

namespace svc {

// Lets a burst of lines through in each second. For one thread.
class log_limit {
 public:
    // Whether the next line may be written.
    bool take() {
        const auto now = clock::now();
        if (now - second_ >= std::chrono::seconds(1)) {
            second_ = now;
            lines_ = 0;
        }
        return lines_++ < k_lines_a_second;
    }

 private:
    using clock = std::chrono::steady_clock;
    static constexpr uint32_t k_lines_a_second = 10;

    clock::time_point second_ = {};
    uint32_t lines_ = 0;
};

}  // namespace svc
