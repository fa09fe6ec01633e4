#pragma once

/// Where the camera library's diagnostic messages go.
namespace OrvCam {

enum class LogLevel { Debug, Info, Warning, Error };

/// `text` is one UTF-8 line without a line end, valid during the call. Called from any thread, one call at a time; it
/// must neither call SetLogSink nor wait for a thread that might log. The library may hold any of its locks meanwhile,
/// so the sink must not call it in any other way either.
using LogSink = void (*)(LogLevel level, const char *text, void *context);

/// Sets the one receiver of the process; null drops all messages, as at the start. Once it has returned, the sink set
/// before is not running and does not run any more.
void SetLogSink(LogSink sink, void *context);

} // namespace OrvCam
