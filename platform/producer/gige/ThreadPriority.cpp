#include "producer/gige/ThreadPriority.h"

#include <pthread.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace nuvark::gige {

namespace {

constexpr int kReceivingPriority = 10;
constexpr int kHeartbeatPriority = 12;
constexpr int kNice = -10;

} // namespace

bool RaiseThreadPriority(Urgency urgency)
{
    sched_param parameter{};
    parameter.sched_priority = urgency == Urgency::Heartbeat ? kHeartbeatPriority : kReceivingPriority;
    if (pthread_setschedparam(pthread_self(), SCHED_RR, &parameter) == 0)
        return true;
    // On Linux this is of the thread alone. Without the permission it stays an ordinary one.
    (void)setpriority(PRIO_PROCESS, static_cast<id_t>(syscall(SYS_gettid)), kNice);
    return false;
}

} // namespace nuvark::gige
