#pragma once

#include "orvcam/OrvLog.h"

#include <string>

namespace orv::cam {

/// Hands one message to the sink set with OrvCam::SetLogSink. Any thread.
void Log(OrvCam::LogLevel level, const std::string &text);

inline void LogWarning(const std::string &text)
{
    Log(OrvCam::LogLevel::Warning, text);
}

inline void LogInfo(const std::string &text)
{
    Log(OrvCam::LogLevel::Info, text);
}

} // namespace orv::cam
