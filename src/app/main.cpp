#include "app/OrvPlayer.h"
#include "core/DiagnosticLog.h"
#include "orvcam/OrvLog.h"
#include "resources/Icons.h"

#include <QApplication>
#include <QIcon>

#include <clocale>
#include <string>

namespace {

/// The camera library's messages go where the application's go.
void LogCameraMessage(OrvCam::LogLevel level, const char *text, void *)
{
    switch (level) {
    case OrvCam::LogLevel::Debug:
        return OrvLog4Cpp_Debug(kLogCategory, 0, text);
    case OrvCam::LogLevel::Info:
        return OrvLog4Cpp_Info(kLogCategory, 0, text);
    case OrvCam::LogLevel::Warning:
        return OrvLog4Cpp_Warning(kLogCategory, 0, text);
    case OrvCam::LogLevel::Error:
        return OrvLog4Cpp_Error(kLogCategory, 0, text);
    }
}

} // namespace

int main(int argc, char *argv[])
{
    OrvLog4Cpp_configure("orvplayerlog.property", "ORVPLR");
    OrvCam::SetLogSink(LogCameraMessage, nullptr);
    QApplication::setAttribute(Qt::AA_EnableHighDpiScaling);
    OrvInitResources();
    QApplication application(argc, argv);
    // Qt takes over the user's number format process-wide; ours has a decimal point everywhere.
    std::setlocale(LC_NUMERIC, "C");
    QApplication::setWindowIcon(OrvIcon(QStringLiteral(":/OrvPlayer/OrvPlayer.ico")));
    const std::string first = argc >= 2 ? argv[1] : "";
    const std::string second = argc > 2 ? argv[2] : "";
    OrvPlayer window(nullptr, first == "cameval", second == "auto");
    window.show();
    return QApplication::exec();
}
