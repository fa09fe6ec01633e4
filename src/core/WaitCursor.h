#pragma once

#include <QCursor>
#include <QGuiApplication>

namespace orv {

/// Shows the wait cursor for a scope. Never around a message box: its button would be offered as something to wait for.
/// GUI thread.
class WaitCursor {
public:
    WaitCursor() { QGuiApplication::setOverrideCursor(QCursor(Qt::WaitCursor)); }
    ~WaitCursor() { QGuiApplication::restoreOverrideCursor(); }
    WaitCursor(const WaitCursor &) = delete;
    WaitCursor &operator=(const WaitCursor &) = delete;
};

} // namespace orv
