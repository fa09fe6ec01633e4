#include "orvcam/Log.h"

#include "base/Mutex.h"

namespace orv::cam {

namespace {

struct Receiver {
    Mutex mutex; ///< held while the sink runs, so that SetLogSink can promise the end of the old one
    OrvCam::LogSink sink GUARDED_BY(mutex) = nullptr;
    void *context GUARDED_BY(mutex) = nullptr;
};

/// Never destroyed: producers' threads may still log while the process ends.
Receiver &TheReceiver()
{
    static Receiver *receiver = new Receiver;
    return *receiver;
}

} // namespace

void Log(OrvCam::LogLevel level, const std::string &text)
{
    Receiver &receiver = TheReceiver();
    MutexLock lock(receiver.mutex);
    if (receiver.sink != nullptr)
        receiver.sink(level, text.c_str(), receiver.context);
}

} // namespace orv::cam

void OrvCam::SetLogSink(LogSink sink, void *context)
{
    auto &receiver = orv::cam::TheReceiver();
    orv::MutexLock lock(receiver.mutex);
    receiver.sink = sink;
    receiver.context = context;
}
