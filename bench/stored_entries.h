// Entries that a table of the stand-in holds already.

#pragma once

#include <chrono>
#include <cstddef>

namespace bench {

// Fills the table when constructed, in a process of its own.
class stored_entries {
 public:
    explicit stored_entries(size_t count);

    // Seconds to create an entry beside those, by requests of 1,000 entries that are deleted again outside of the time.
    double cost_of_one_more(std::chrono::nanoseconds slice);

 private:
    size_t count_;
};

}  // namespace bench
