#pragma once

namespace orvsim {

/// What became of a register access. Each transport maps it to its own status codes.
enum class Outcome {
    Ok,
    NoSuchAddress,
    BadAlignment, ///< address or size not a multiple of 4
    ReadOnly,     ///< or locked at the moment
    WriteOnly,
    InvalidValue
};

} // namespace orvsim
