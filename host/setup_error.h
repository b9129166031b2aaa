// Why something could not be set up.

#pragma once

#include <stdexcept>

namespace host {

// The text is for people, and names what it is about.
class setup_error : public std::runtime_error {
    using std::runtime_error::runtime_error;
};

}  // namespace host
