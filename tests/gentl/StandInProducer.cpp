#include "gentl/GenTL.h"

// A producer of another maker: the functions of GenTL 1.0 only, each answering "not implemented". With ORV_LACKING two
// of them are missing, too.

#if defined(ORV_LACKING)
#define TLClose NotTLClose
#define EventKill NotEventKill
#endif

#define DEFINE_10(name, parameters)                                                                                    \
    extern "C" GENTL_EXPORT GC_ERROR GC_CALLTYPE name parameters;                                                      \
    GC_ERROR GC_CALLTYPE name parameters                                                                               \
    {                                                                                                                  \
        return GC_ERR_NOT_IMPLEMENTED;                                                                                 \
    }
#define DEFINE_11(name, parameters)
#define DEFINE_13(name, parameters)
#define DEFINE_14(name, parameters)
#define DEFINE_15(name, parameters)
#define DEFINE_16(name, parameters)
#define DEFINE(since, name, parameters, arguments) DEFINE_##since(name, parameters)

#pragma GCC diagnostic ignored "-Wunused-parameter"
GENTL_FUNCTIONS(DEFINE)
