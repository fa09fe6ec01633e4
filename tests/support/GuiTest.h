#pragma once

#include "support/Sanitized.h"

#include <gtest/gtest.h>

#include <QApplication>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QTemporaryDir>
#include <QThread>

/// Frame of the tests that need a running Qt application.
///
/// A test binary puts ORV_GUI_TEST_MAIN into one source file. The application runs without a screen unless
/// QT_QPA_PLATFORM says otherwise, and keeps settings and logs of the tests in a temporary folder, away from the
/// user's.

/// Runs the event loop until the condition holds; false when it does not for so long that it never will. GUI thread.
template <class Condition> bool WaitFor(Condition condition, int timeoutMs = 20000)
{
    constexpr int kSliceMs = 5;
    QElapsedTimer elapsed;
    elapsed.start();
    while (!condition()) {
        if (elapsed.hasExpired(timeoutMs))
            return false;
        QCoreApplication::processEvents(QEventLoop::AllEvents, kSliceMs);
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
        QThread::msleep(1);
    }
    return true;
}

/// Body of main: `setUp` runs once the application object exists.
template <class SetUp> int RunGuiTests(int argc, char **argv, SetUp setUp)
{
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    const QTemporaryDir home;
    for (const char *variable : {"XDG_CONFIG_HOME", "XDG_STATE_HOME", "XDG_DATA_HOME", "XDG_CACHE_HOME"})
        qputenv(variable, home.path().toLocal8Bit());

    testing::InitGoogleTest(&argc, argv);
    QApplication application(argc, argv);
    setUp();
    return RUN_ALL_TESTS();
}

// The screenless platform plug-in of Qt never frees its screen. Telling it from a leak of ours takes whole call stacks.
#if defined(__SANITIZE_ADDRESS__)
#define ORV_GUI_TEST_LEAK_CHECK 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define ORV_GUI_TEST_LEAK_CHECK 1
#endif
#endif
#ifdef ORV_GUI_TEST_LEAK_CHECK
#define ORV_GUI_TEST_SANITIZER_DEFAULTS                                                                                \
    extern "C" const char *__asan_default_options()                                                                    \
    {                                                                                                                  \
        return "fast_unwind_on_malloc=0";                                                                              \
    }                                                                                                                  \
    extern "C" const char *__lsan_default_suppressions()                                                               \
    {                                                                                                                  \
        return "leak:libqoffscreen\n";                                                                                 \
    }
#else
#define ORV_GUI_TEST_SANITIZER_DEFAULTS
#endif

#define ORV_GUI_TEST_MAIN_WITH(setUp)                                                                                  \
    ORV_GUI_TEST_SANITIZER_DEFAULTS                                                                                    \
    int main(int argc, char **argv)                                                                                    \
    {                                                                                                                  \
        return RunGuiTests(argc, argv, [] { setUp; });                                                                 \
    }

#define ORV_GUI_TEST_MAIN ORV_GUI_TEST_MAIN_WITH(static_cast<void>(0))
