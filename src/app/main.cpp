#include "app/OrvPlayer.h"
#include "core/DiagnosticLog.h"
#include "resources/Icons.h"

#include <QApplication>
#include <QIcon>

#include <clocale>
#include <string>

int main(int argc, char *argv[])
{
    OrvLog4Cpp_configure("orvplayerlog.property", "ORVPLR");
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
