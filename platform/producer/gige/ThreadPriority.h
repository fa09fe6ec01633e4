#pragma once

namespace nuvark::gige {

/// Work that must not wait for the rest of a busy machine.
enum class Urgency {
    Receiving, ///< packets in a buffer that overflows
    Heartbeat  ///< one small packet in time; before everything else
};

/// Raises the calling thread's priority as far as this process may. \return whether it got a real-time one.
bool RaiseThreadPriority(Urgency urgency);

} // namespace nuvark::gige
