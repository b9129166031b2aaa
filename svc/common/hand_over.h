// The agent's executor, as the library's own sources use it.

#pragma once

#include <functional>

namespace svc {

bool has_executor();

// As executor_t; false without an executor.
bool hand_over(std::function<void()> work);

}  // namespace svc
