#pragma once

#include "orvsupport/OrvParam.h"

/// An object that shows its settings and figures as named, typed parameters.
///
/// Panels, the settings store and the session reach a component by parameter name only. All calls but the first three
/// return a 32-bit status, 0 for success (orvsupport/OrvParamStorage.h names the others). Any thread.
class OrvComponent {
public:
    virtual ~OrvComponent() = default;

    virtual std::uint8_t GetComponentTypeID() = 0;
    virtual std::uint32_t GetParamCount() = 0;
    /// Copies the name at a zero-based index, zero-padded to `*length` bytes; an index out of range gives "".
    /// A buffer shorter than the name and its terminator is left alone: `*length` gets the size needed and the status
    /// is 0x80000006 with the component's type identifier in bits 16 to 23.
    virtual std::uint32_t GetParamName(unsigned int index, char *buffer, unsigned int *length) = 0;

    /// A null format gives the shortest text that reads back to the same value; otherwise the printf conversion.
    virtual std::uint32_t GetParamAsString(char *name, char *buffer, unsigned int *length, const char *format) = 0;
    virtual std::uint32_t SetParamAsString(char *name, char *text) = 0;

    virtual std::uint32_t SetParamBool(char *name, bool value) = 0;
    virtual std::uint32_t SetParamInt(char *name, long value) = 0;
    virtual std::uint32_t SetParamFloat(char *name, double value) = 0;
    virtual std::uint32_t SetParamString(char *name, char *text) = 0;
    virtual std::uint32_t SetParamArray(char *name, void *data, unsigned int sizeBytes) = 0;

    virtual std::uint32_t GetParamBool(char *name, bool *value) = 0;
    virtual std::uint32_t GetParamInt(char *name, long *value) = 0;
    virtual std::uint32_t GetParamFloat(char *name, double *value) = 0;
    virtual std::uint32_t GetParamString(char *name, char *buffer, unsigned int *length) = 0;
    virtual std::uint32_t GetParamArray(char *name, void *buffer, unsigned int *sizeBytes) = 0;

    virtual std::uint32_t RunCommand(char *name) = 0;
};
