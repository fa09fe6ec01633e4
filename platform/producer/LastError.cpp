#include "producer/LastError.h"

namespace nuvark {

namespace {

Status &Slot()
{
    thread_local Status slot(GC_ERR_SUCCESS, "No Error");
    return slot;
}

} // namespace

void RememberFailure(const char *function, const Status &status)
{
    Slot() = Status(status.Code(), std::string(function) + ": " + status.Text());
}

const Status &LastFailure()
{
    return Slot();
}

} // namespace nuvark
