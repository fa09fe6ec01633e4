#include "orvdisplay/Painting.h"

#include <algorithm>
#include <cmath>
#include <QImage>
#include <QPainter>
#include <QWidget>

namespace orv {

namespace {

const QColor kMarkColour(255, 220, 0);
const QColor kMarkEdge(0, 0, 0);

/// The frame of a rectangle, one screen pixel thick.
void DrawFrame(QPainter &painter, const QRect &frame, const QColor &colour)
{
    painter.fillRect(QRect(frame.left(), frame.top(), frame.width(), 1), colour);
    painter.fillRect(QRect(frame.left(), frame.bottom(), frame.width(), 1), colour);
    painter.fillRect(QRect(frame.left(), frame.top() + 1, 1, frame.height() - 2), colour);
    painter.fillRect(QRect(frame.right(), frame.top() + 1, 1, frame.height() - 2), colour);
}

/// An edge of the marked area on the screen; just outside the picture when it is further out.
int EdgeOnScreen(double imagePosition, double scale, int offset, int size)
{
    return static_cast<int>(std::floor(std::clamp(imagePosition * scale + offset, -4.0, size + 4.0) + 0.5));
}

/// Around the marked image pixels, which stay visible, in two colours to stand out on any picture.
void DrawMark(QPainter &painter, const Picture &picture, const MarkedArea &area)
{
    const ViewTransform &view = picture.view;
    const auto x = static_cast<double>(area.x);
    const auto y = static_cast<double>(area.y);
    const int left = EdgeOnScreen(x, view.scale, view.offsetX, picture.width);
    const int top = EdgeOnScreen(y, view.scale, view.offsetY, picture.height);
    const int right = EdgeOnScreen(x + static_cast<double>(area.width), view.scale, view.offsetX, picture.width);
    const int bottom = EdgeOnScreen(y + static_cast<double>(area.height), view.scale, view.offsetY, picture.height);
    const QRect marked(left, top, right - left, bottom - top);
    DrawFrame(painter, marked.adjusted(-1, -1, 1, 1), kMarkColour);
    DrawFrame(painter, marked.adjusted(-2, -2, 2, 2), kMarkEdge);
}

void DrawPicture(QPainter &painter, const QRectF &window, const Picture &picture, double pixelRatio)
{
    QImage image(reinterpret_cast<const uchar *>(picture.pixels.data()), picture.width, picture.height,
                 picture.width * 4, QImage::Format_RGB32);
    image.setDevicePixelRatio(pixelRatio);
    // A picture from before the window grew does not reach its edges.
    const QRectF covered(0, 0, picture.width / pixelRatio, picture.height / pixelRatio);
    if (!covered.contains(window))
        painter.fillRect(window, QColor::fromRgb(kSurround));
    painter.drawImage(QPointF(0, 0), image);
}

} // namespace

void Paint(QWidget &widget, const PaintJob &job)
{
    QPainter painter(&widget);
    const QRectF window(widget.rect());
    const bool hasNotice = !job.notice.empty();
    if (hasNotice || job.picture == nullptr) {
        painter.fillRect(window, QColor::fromRgb(kSurround));
        painter.setPen(Qt::black);
        if (hasNotice)
            painter.drawText(window, Qt::AlignCenter | Qt::TextWordWrap, QString::fromStdString(job.notice));
        return;
    }
    const double ratio = widget.devicePixelRatioF();
    DrawPicture(painter, window, *job.picture, ratio);
    if (job.marked.isOn && job.marked.width > 0 && job.marked.height > 0) {
        painter.scale(1 / ratio, 1 / ratio);
        DrawMark(painter, *job.picture, job.marked);
    }
}

int ToScreen(int widgetPosition, double pixelRatio)
{
    return static_cast<int>(std::floor((widgetPosition + 0.5) * pixelRatio));
}

int ToWidget(int screenPosition, double pixelRatio)
{
    return static_cast<int>(std::ceil((screenPosition + 0.5) / pixelRatio - 0.5));
}

} // namespace orv
