#pragma once

#include "tests/simulator/DataWindows.h"
#include "tests/simulator/GenApiBridge.h"

typedef struct _ArvDevice ArvDevice;

namespace orvsim {

/// What stands behind the addresses that libaravis's GenApi reads and writes.
struct DeviceMemory {
    GenApiBridge::Read read;
    GenApiBridge::Write write;
    DataWindows windows;
};

/// A device of the library's kind that is nothing but memory.
/// \param memory  borrowed; must live longer than the device.
/// \return the caller's to unreference.
ArvDevice *NewMemoryDevice(DeviceMemory *memory);

} // namespace orvsim
