#pragma once

#include "producer/Status.h"

namespace nuvark {

/// The last failure of each thread, for GCGetLastError. Later successes do not clear it.
void RememberFailure(const char *function, const Status &status);
const Status &LastFailure();

} // namespace nuvark
