#pragma once

#include "orvsupport/OrvParam.h"

#include <memory>

/// Status codes of the parameter store. 0 is success. The low 16 bits tell the reason.
enum OrvParamStatus : std::uint32_t {
    ORV_PARAM_OK = 0,
    /// The value was out of range or off the increment and was brought to the nearest allowed one, which is now set.
    ORV_PARAM_CLAMPED = 0x80000001,
    ORV_PARAM_UNKNOWN_NAME = 0x80000002,
    ORV_PARAM_WRONG_TYPE = 0x80000003,
    /// A text that is no value of the parameter's type, a not-a-number, or a block shorter than the parameter.
    ORV_PARAM_BAD_VALUE = 0x80000004,
    ORV_PARAM_NOT_ALLOWED = 0x80000005, ///< the access mode forbids it
    /// The caller's buffer is too small (the size needed is stored in the length argument), or a text or block is too
    /// long for the parameter.
    ORV_PARAM_BUFFER_TOO_SMALL = 0x80000006,
    ORV_PARAM_INVALID_ARGUMENT = 0x80000007, ///< null pointer, or a format whose conversion does not fit the type
    ORV_PARAM_DUPLICATE_NAME = 0x80000008
};

/// Named, typed parameters bound to member variables of their owner.
///
/// Threads: any; the bound members must be written only through the store once it is shared. The store's lock is never
/// held while change callbacks, listeners or commands run, so these may call back into the store.
/// Lifetime: members, default texts and listeners outlive the store.
///
/// Range: a value outside minimum and maximum, or off the increment, is brought to the nearest allowed one. A minimum
/// and maximum that are both 0 declare no range. Increments count from the minimum (from 0 where there is none).
///
/// As-string forms with a null format: integers "%lld"; floating point the shortest text that reads back to the same
/// value; booleans "1" or "0"; strings as they are; arrays as lower-case hexadecimal without separators; commands "".
/// With a format: that printf conversion of the value, exactly one. Integers and booleans take d i u o x X with the
/// full 64 bits whatever length modifier is written, integers, booleans and floating point take a e f g as a double,
/// the others take s. A decimal point is a point under every locale, on writing and on reading. Reading takes the whole
/// text or nothing: booleans also as "true" and "false", arrays at their full size; the empty text of a command is
/// accepted and does nothing.
class OrvParamStorage {
public:
    /// No flags are defined yet: pass 0.
    explicit OrvParamStorage(unsigned int flags);
    ~OrvParamStorage();
    OrvParamStorage(const OrvParamStorage &) = delete;
    OrvParamStorage &operator=(const OrvParamStorage &) = delete;

    /// Copies the record and binds its name to the member it points to. The member is not written.
    /// ORV_PARAM_INVALID_ARGUMENT for a name that is empty or fills its field without a terminator, an unknown type, a
    /// missing member or command function, an empty buffer, an upside-down range or a default outside it.
    std::uint32_t AddParam(_OrvStParam *param);
    /// Registers a listener for one declared name; the same listener may be registered for several names.
    std::uint32_t AddParamChangedListener(char *name, OrvParamListener *listener);

    std::uint32_t GetParamCount() const;
    /// Fills the record with the descriptor at a zero-based index in declaration order.
    std::uint32_t GetParamByIdx(unsigned int index, _OrvStParam *param) const;

    // Setters. With notify, a write that took place calls the change callback and then the listeners, once each, also
    // when the new value equals the old one.
    std::uint32_t SetParamInt(char *name, long value, bool notify);
    std::uint32_t SetParamFloat(char *name, double value, bool notify);
    std::uint32_t SetParamBool(char *name, bool value, bool notify);
    std::uint32_t SetParamString(char *name, char *text, bool notify);
    std::uint32_t SetParamArray(char *name, void *data, unsigned int sizeBytes, bool notify);
    std::uint32_t SetParamAsString(char *name, char *text, bool notify);

    // Getters. `*length` is the buffer's size in bytes on entry; on success it is left alone, on too small it gets the
    // size needed and the buffer is left alone.
    std::uint32_t GetParamInt(char *name, long *value) const;
    std::uint32_t GetParamFloat(char *name, double *value) const;
    std::uint32_t GetParamBool(char *name, bool *value) const;
    std::uint32_t GetParamString(char *name, char *buffer, unsigned int *length) const;
    std::uint32_t GetParamArray(char *name, void *buffer, unsigned int *sizeBytes) const;
    std::uint32_t GetParamAsString(char *name, char *buffer, unsigned int *length, const char *format) const;

    /// Runs the command, without the lock, on the calling thread and returns its result as the status.
    std::uint32_t RunCommand(char *name);

private:
    struct Impl;
    std::unique_ptr<Impl> m_impl;
};
