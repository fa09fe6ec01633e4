#pragma once

#include "base/Bytes.h"

#include <cstddef>

/// Stands where the GigE Vision transport stands in the producer: one interface with two cameras that are made of
/// memory, so that a program with it sends nothing to anybody. It takes that transport's place when it is linked: the
/// modules ask one function for their interfaces, and this one is found before the library's.
///
/// What the cameras do by themselves is told here. Nothing happens where no camera or no stream is open. One thread.
namespace toy {

/// A frame of the size that comes; the bytes say what is stated of it.
void SendFrame(orv::ByteReader &in);
/// An event as a command of the message channel, and the same as traffic of each kind.
void SendEvent(orv::ByteSpan packet);
void LoseCamera();
void InvalidateFeature();
/// From now on every access fails, or none.
void SetFailing(bool failing);

/// Cameras and streams that the modules still hold.
std::size_t CountOpen();

} // namespace toy
