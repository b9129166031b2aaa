#include "svc/executor.h"

#include <utility>

#include "svc/common/hand_over.h"

namespace svc {

namespace {

executor_t g_executor;

}  // namespace

void set_executor(executor_t executor) { g_executor = std::move(executor); }

bool has_executor() { return static_cast<bool>(g_executor); }

bool hand_over(std::function<void()> work) { return g_executor && g_executor(std::move(work)); }

}  // namespace svc
