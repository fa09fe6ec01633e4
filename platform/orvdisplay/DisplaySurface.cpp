#include "orvdisplay/DisplaySurface.h"

#include <cmath>
#include <QAbstractScrollArea>
#include <QCoreApplication>
#include <QMouseEvent>
#include <QWheelEvent>

namespace orv {

namespace {

QEvent::Type WorkEventType()
{
    static const int s_type = QEvent::registerEventType();
    return static_cast<QEvent::Type>(s_type);
}

} // namespace

DisplaySurface::~DisplaySurface()
{
    if (m_widget)
        m_widget->removeEventFilter(this);
}

void DisplaySurface::Attach(QWidget *widget)
{
    auto *const scrollArea = qobject_cast<QAbstractScrollArea *>(widget);
    m_widget = scrollArea != nullptr ? scrollArea->viewport() : widget;
    m_widget->setAttribute(Qt::WA_OpaquePaintEvent); // every pixel is painted: nothing to erase before
    m_widget->installEventFilter(this);
    connect(m_widget, &QObject::destroyed, this, [this] {
        m_widget.clear(); // the pointer would do so itself only after this signal
        m_events.SurfaceChanged(0, 0, m_pixelRatio);
    });
    AnnounceSize();
}

void DisplaySurface::Request(unsigned work)
{
    if (m_requested.fetch_or(work) == 0)
        QCoreApplication::postEvent(this, new QEvent(WorkEventType()));
}

bool DisplaySurface::event(QEvent *event)
{
    if (event->type() != WorkEventType())
        return QObject::event(event);
    const unsigned work = m_requested.exchange(0);
    if ((work & kPublish) != 0)
        m_events.Publish();
    if ((work & kRefresh) != 0)
        m_events.Refresh();
    if ((work & kRepaint) != 0 && m_widget)
        m_widget->update();
    return true;
}

bool DisplaySurface::eventFilter(QObject *watched, QEvent *event)
{
    if (watched != m_widget)
        return false;
    switch (event->type()) {
    case QEvent::Paint:
        if (m_widget->devicePixelRatioF() != m_pixelRatio)
            AnnounceSize(); // moved to another screen
        m_events.PaintRequested(*m_widget);
        return true;
    case QEvent::Resize:
    case QEvent::Show:
    case QEvent::Hide:
        AnnounceSize();
        return false;
    case QEvent::Wheel:
        return Wheel(*static_cast<QWheelEvent *>(event));
    case QEvent::MouseButtonPress:
    case QEvent::MouseButtonDblClick: // the second press of two quick ones
        Press(*static_cast<QMouseEvent *>(event));
        return false;
    case QEvent::MouseMove:
        Drag(*static_cast<QMouseEvent *>(event));
        return false;
    case QEvent::MouseButtonRelease:
        m_isDragging = false;
        return false;
    default:
        return false;
    }
}

void DisplaySurface::AnnounceSize()
{
    m_pixelRatio = m_widget->devicePixelRatioF();
    const bool isVisible = m_widget->isVisible();
    const double width = isVisible ? m_widget->width() * m_pixelRatio : 0;
    const double height = isVisible ? m_widget->height() * m_pixelRatio : 0;
    m_events.SurfaceChanged(static_cast<int>(std::ceil(width)), static_cast<int>(std::ceil(height)), m_pixelRatio);
}

bool DisplaySurface::Wheel(const QWheelEvent &wheel)
{
    if ((wheel.modifiers() & Qt::ControlModifier) == 0)
        return false;
    constexpr int kStep = 120; // eighths of a degree; fine wheels send less at a time
    m_wheelRest += wheel.angleDelta().y();
    const int steps = m_wheelRest / kStep;
    m_wheelRest -= steps * kStep;
    const QPoint position = ScreenPosition(wheel.position());
    if (steps != 0)
        m_events.ZoomRequested(steps, {position.x(), position.y()});
    return true;
}

void DisplaySurface::Press(const QMouseEvent &mouse)
{
    if (mouse.button() != Qt::LeftButton)
        return;
    m_isDragging = true;
    m_dragFrom = ScreenPosition(mouse.localPos());
}

void DisplaySurface::Drag(const QMouseEvent &mouse)
{
    m_isDragging = m_isDragging && (mouse.buttons() & Qt::LeftButton) != 0;
    if (!m_isDragging)
        return;
    const QPoint position = ScreenPosition(mouse.localPos());
    const QPoint moved = position - m_dragFrom;
    m_dragFrom = position;
    if (!moved.isNull())
        m_events.PanRequested(moved.x(), moved.y());
}

QPoint DisplaySurface::ScreenPosition(const QPointF &position) const
{
    return {static_cast<int>(std::floor(position.x() * m_pixelRatio)),
            static_cast<int>(std::floor(position.y() * m_pixelRatio))};
}

} // namespace orv
