#pragma once

#include "orvdisplay/ViewGeometry.h"

#include <atomic>
#include <QObject>
#include <QPointer>
#include <QWidget>

class QPaintEvent;
class QWheelEvent;
class QMouseEvent;

namespace orv {

/// What happens on a display's widget. GUI thread.
class SurfaceEvents {
public:
    /// \param width, height  screen pixels; 0 while there is nothing to draw on.
    /// \param pixelRatio  screen pixels per unit of widget coordinates.
    virtual void SurfaceChanged(int width, int height, double pixelRatio) = 0;
    virtual void ZoomRequested(int steps, ViewPoint around) = 0;
    virtual void PanRequested(int dx, int dy) = 0;
    virtual void PaintRequested(QWidget &widget) = 0;
    /// Answers to Request().
    virtual void Refresh() = 0;
    virtual void Publish() = 0;

protected:
    ~SurfaceEvents() = default;
};

/// The widget that a display draws on, taken over by an event filter, and the way from other threads to the GUI thread.
///
/// Positions and sizes are screen pixels: widget coordinates times the device pixel ratio.
/// Threads: Request from any; the rest on the GUI thread. The widget may be destroyed at any time.
class DisplaySurface : public QObject {
public:
    enum Work : unsigned {
        kRepaint = 1, ///< update the widget
        kRefresh = 2, ///< convert anew for a changed view
        kPublish = 4  ///< tell the view to the parameters
    };

    explicit DisplaySurface(SurfaceEvents &events) : m_events(events) {}
    ~DisplaySurface() override;

    void Attach(QWidget *widget);
    bool IsAttached() const { return !m_widget.isNull(); }

    /// Asks for work on the GUI thread. Requests that were not served yet are merged into one event.
    void Request(unsigned work);

protected:
    bool event(QEvent *event) override;
    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    void AnnounceSize();
    bool Wheel(const QWheelEvent &wheel);
    void Press(const QMouseEvent &mouse);
    void Drag(const QMouseEvent &mouse);
    QPoint ScreenPosition(const QPointF &position) const;

    SurfaceEvents &m_events;
    QPointer<QWidget> m_widget;
    std::atomic<unsigned> m_requested{0};
    double m_pixelRatio = 1; // as announced last
    int m_wheelRest = 0;     // eighths of a degree below a whole step
    bool m_isDragging = false;
    QPoint m_dragFrom;
};

} // namespace orv
