#pragma once

#include <cstddef>
#include <cstdint>

/// The form of the stream target's inputs.
namespace gvspinput {

// Settings.
constexpr std::uint8_t kResend = 0x01;
constexpr std::uint8_t kBigEndian = 0x02;

/// Steps. kPacket: a piece, the datagram; kBatch: a number and as many datagrams, which come at once; kWait: units of
/// 100 microseconds (two bytes); the others stand alone.
enum Step : std::uint8_t { kPacket, kWait, kRequest, kAbandon, kDeliverAll, kRefuseNew, kBatch, kSteps = 8 };

constexpr std::size_t kMostAtOnce = 64;

} // namespace gvspinput
