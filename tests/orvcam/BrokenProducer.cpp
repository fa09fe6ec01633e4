#define GENTL_DECLARE_FUNCTIONS
#include "gentl/GenTL.h"

// A producer that lacks nearly everything.
extern "C" GC_ERROR GCInitLib()
{
    return GC_ERR_SUCCESS;
}
