#pragma once

#include "orvsupport/OrvParamStorage.h"

#include <cstring>
#include <string>
#include <vector>

/// Names travel as non-constant pointers; the store never writes through them.
inline char *Name(const char *name)
{
    return const_cast<char *>(name);
}

inline _OrvStParam Declaration(const char *name, OrvParamType type)
{
    _OrvStParam param{};
    param.type = type;
    param.access = ORV_PARAM_ACCESS_RW;
    std::strncpy(param.name, name, sizeof param.name - 1);
    return param;
}

inline _OrvStParam IntDeclaration(const char *name, std::int64_t *member, std::int64_t minimum, std::int64_t maximum,
                                  std::int64_t increment = 0)
{
    _OrvStParam param = Declaration(name, ORV_PARAM_INT);
    param.asInt.defaultValue = minimum;
    param.asInt.minimum = minimum;
    param.asInt.maximum = maximum;
    param.asInt.increment = increment;
    param.asInt.value = member;
    return param;
}

inline _OrvStParam FloatDeclaration(const char *name, double *member, double minimum, double maximum,
                                    double increment = 0)
{
    _OrvStParam param = Declaration(name, ORV_PARAM_FLOAT);
    param.asFloat.defaultValue = minimum;
    param.asFloat.minimum = minimum;
    param.asFloat.maximum = maximum;
    param.asFloat.increment = increment;
    param.asFloat.value = member;
    return param;
}

inline _OrvStParam BoolDeclaration(const char *name, bool *member)
{
    _OrvStParam param = Declaration(name, ORV_PARAM_BOOL);
    param.asBool.value = member;
    return param;
}

inline _OrvStParam StringDeclaration(const char *name, char *member, std::int64_t capacity)
{
    _OrvStParam param = Declaration(name, ORV_PARAM_STRING);
    param.asString.defaultValue = "";
    param.asString.value = member;
    param.asString.capacity = capacity;
    return param;
}

inline _OrvStParam ArrayDeclaration(const char *name, void *member, std::int64_t size)
{
    _OrvStParam param = Declaration(name, ORV_PARAM_ARRAY);
    param.asArray.defaultValue = member;
    param.asArray.defaultSize = size;
    param.asArray.value = member;
    param.asArray.size = size;
    return param;
}

inline _OrvStParam CommandDeclaration(const char *name, OrvParamCommand run, void *context)
{
    _OrvStParam param = Declaration(name, ORV_PARAM_COMMAND);
    param.asCommand.run = run;
    param.asCommand.context = context;
    return param;
}

/// A store with one parameter of each type, and the members they are bound to.
struct EveryType {
    static constexpr std::uint32_t kCommandResult = 77;

    EveryType()
    {
        for (_OrvStParam param :
             {IntDeclaration("Int", &integer, 0, 0), FloatDeclaration("Float", &number, 0, 0),
              BoolDeclaration("Bool", &flag), StringDeclaration("String", text, sizeof text),
              ArrayDeclaration("Array", block, sizeof block), CommandDeclaration("Command", Run, this)})
            store.AddParam(&param);
    }

    /// The text form; on failure the status as "!" and its low 16 bits.
    std::string Text(const char *name, const char *format = nullptr)
    {
        char buffer[512];
        unsigned int length = sizeof buffer;
        const std::uint32_t status = store.GetParamAsString(Name(name), buffer, &length, format);
        return status == ORV_PARAM_OK ? buffer : "!" + std::to_string(status & 0xFFFF);
    }

    static int Run(void *context)
    {
        ++static_cast<EveryType *>(context)->runs;
        return kCommandResult;
    }

    std::int64_t integer = 0;
    double number = 0;
    bool flag = false;
    char text[16] = "";
    unsigned char block[4] = {};
    int runs = 0;
    OrvParamStorage store{0};
};
