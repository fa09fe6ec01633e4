#pragma once

#include "base/Bytes.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <vector>

/// What every fuzz target consists of: a function that takes any bytes, in the source named after the target, and valid
/// inputs to begin with, in the one beside it.
namespace orv::fuzz {

using Bytes = std::vector<std::uint8_t>;

/// Ends the program, as a finding, where a rule is broken.
inline void Require(bool isKept, const char *rule)
{
    if (isKept)
        return;
    std::fprintf(stderr, "broken: %s\n", rule);
    std::abort();
}

/// The next piece of an input: a length of two bytes (big-endian), then as many bytes or what is left. A copy of its
/// own, exactly as long, so that the sanitizer sees a read beyond it.
inline Bytes TakePiece(ByteReader &in)
{
    const std::size_t length = std::min<std::size_t>(in.U16(), in.Rest().size);
    const std::uint8_t *begin = in.Rest().data;
    Bytes piece(begin, begin + length);
    in.Skip(length);
    return piece;
}

inline void PutPiece(ByteWriter &out, ByteSpan piece)
{
    out.U16(static_cast<std::uint16_t>(piece.size));
    out.Bytes(piece);
}

inline ByteSpan SpanOf(const Bytes &bytes)
{
    return {bytes.data(), bytes.size()};
}

/// Valid inputs of the target.
std::vector<Bytes> Seeds();

} // namespace orv::fuzz

/// Plays the input and ends the program where a rule is broken. Keeps nothing from one input to the next.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size);
