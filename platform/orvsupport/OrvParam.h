#pragma once

#include <cstddef>
#include <cstdint>

struct _OrvStParam;

/// Called after a notified change, on the thread that made it. `reason` is the store's change counter.
using OrvParamCallback = int (*)(unsigned int reason, _OrvStParam *param);
/// Body of a command parameter.
using OrvParamCommand = int (*)(void *context);

enum OrvParamType : std::uint32_t {
    ORV_PARAM_INT = 0,    ///< signed 64-bit
    ORV_PARAM_BOOL = 1,   ///< one byte
    ORV_PARAM_FLOAT = 2,  ///< double
    ORV_PARAM_STRING = 3, ///< zero-terminated bytes in a fixed buffer
    ORV_PARAM_ARRAY = 4,  ///< bytes of a fixed block
    ORV_PARAM_COMMAND = 5
};

/// Readable and writable: what every parameter of the application declares.
constexpr std::uint32_t ORV_PARAM_ACCESS_RW = 3;

/// One parameter, as a component declares it to its store and as the store hands it to listeners.
///
/// The layout is fixed (344 bytes, little-endian host): components, stores and plug-ins that were built apart exchange
/// it. The value part depends on the type; clear the whole record before filling it.
struct _OrvStParam {
    std::uint32_t type;
    std::uint32_t access;
    char name[256]; ///< zero-terminated
    unsigned char reserved[24];
    OrvParamCallback onChange; ///< null for none

    struct IntValue {
        unsigned char reserved[8];
        std::int64_t defaultValue;
        std::int64_t minimum;
        std::int64_t maximum;
        std::int64_t increment; ///< 0 or 1: any value in range
        std::int64_t *value;
    };
    struct FloatValue {
        unsigned char reserved[8];
        double defaultValue;
        double minimum;
        double maximum;
        double increment;
        double *value;
    };
    struct BoolValue {
        unsigned char reserved;
        std::uint8_t defaultValue;
        unsigned char reserved2[6];
        bool *value;
        unsigned char reserved3[32];
    };
    struct StringValue {
        unsigned char reserved[8];
        const char *defaultValue;
        char *value;
        std::int64_t capacity; ///< bytes, terminator included
        unsigned char reserved2[16];
    };
    /// Both slots are filled; a component without a separate default points both at the same block.
    struct ArrayValue {
        unsigned char reserved[8];
        const void *defaultValue;
        std::int64_t defaultSize; ///< bytes
        void *value;
        std::int64_t size; ///< bytes
        unsigned char reserved2[8];
    };
    struct CommandValue {
        OrvParamCommand run;
        void *context;
        unsigned char reserved[32];
    };
    union {
        IntValue asInt;
        FloatValue asFloat;
        BoolValue asBool;
        StringValue asString;
        ArrayValue asArray;
        CommandValue asCommand;
        unsigned char bytes[48];
    };
};

static_assert(sizeof(bool) == 1, "boolean members are one byte");
static_assert(sizeof(_OrvStParam) == 344);
static_assert(offsetof(_OrvStParam, type) == 0);
static_assert(offsetof(_OrvStParam, access) == 4);
static_assert(offsetof(_OrvStParam, name) == 8);
static_assert(offsetof(_OrvStParam, reserved) == 264);
static_assert(offsetof(_OrvStParam, onChange) == 288);
static_assert(offsetof(_OrvStParam, bytes) == 296);
static_assert(offsetof(_OrvStParam, asInt.defaultValue) == 304);
static_assert(offsetof(_OrvStParam, asInt.minimum) == 312);
static_assert(offsetof(_OrvStParam, asInt.maximum) == 320);
static_assert(offsetof(_OrvStParam, asInt.increment) == 328);
static_assert(offsetof(_OrvStParam, asInt.value) == 336);
static_assert(offsetof(_OrvStParam, asFloat.defaultValue) == 304);
static_assert(offsetof(_OrvStParam, asFloat.minimum) == 312);
static_assert(offsetof(_OrvStParam, asFloat.maximum) == 320);
static_assert(offsetof(_OrvStParam, asFloat.increment) == 328);
static_assert(offsetof(_OrvStParam, asFloat.value) == 336);
static_assert(offsetof(_OrvStParam, asBool.defaultValue) == 297);
static_assert(offsetof(_OrvStParam, asBool.value) == 304);
static_assert(offsetof(_OrvStParam, asString.defaultValue) == 304);
static_assert(offsetof(_OrvStParam, asString.value) == 312);
static_assert(offsetof(_OrvStParam, asString.capacity) == 320);
static_assert(offsetof(_OrvStParam, asCommand.run) == 296);
static_assert(offsetof(_OrvStParam, asCommand.context) == 304);

/// Hears of changes of the parameters it was registered for, on the thread that made the change.
class OrvParamListener {
public:
    virtual void ParamChanged(_OrvStParam param) = 0;

protected:
    ~OrvParamListener() = default;
};
