#include "orvdisplay/OrvDisplayImp.h"

#include "orvdisplay/FormatNotice.h"
#include "orvdisplay/Painting.h"
#include "orvimage/PixelLayout.h"

#include <QThread>

namespace orv {

class OrvDisplayImp::Call {
public:
    explicit Call(OrvDisplayImp &display) : m_display(display)
    {
        const MutexLock lock(display.m_mutex);
        m_isIn = !display.m_isClosing;
        if (m_isIn)
            ++display.m_calls;
    }
    ~Call()
    {
        const MutexLock lock(m_display.m_mutex);
        if (m_isIn && --m_display.m_calls == 0)
            m_display.m_callsEnded.NotifyAll();
    }
    Call(const Call &) = delete;
    Call &operator=(const Call &) = delete;

    bool IsIn() const { return m_isIn; }

private:
    OrvDisplayImp &m_display;
    bool m_isIn;
};

void OrvDisplayImp::Close()
{
    MutexLock lock(m_mutex);
    m_isClosing = true;
    while (m_calls > 0)
        m_callsEnded.Wait(m_mutex);
}

// Calls from outside

int OrvDisplayImp::Initialize(QWidget *widget, const char * /*backend*/, int /*flags*/)
{
    if (widget == nullptr)
        return ORV_DISPLAY_ERR_NO_WIDGET;
    if (m_surface.IsAttached())
        return ORV_DISPLAY_ERR_HAS_WIDGET;
    m_surface.Attach(widget);
    m_surface.Request(DisplaySurface::kRepaint);
    return 0;
}

int OrvDisplayImp::SetFormat(const _OrvImage *header, const char * /*backend*/)
{
    const Call call(*this);
    if (!call.IsIn())
        return ORV_DISPLAY_ERR_CLOSING;
    if (header == nullptr)
        return ORV_IMAGE_ERR_INVALID_ARGUMENT;
    const MutexLock lock(m_mutex);
    m_mustStart = true;
    return IsDisplayable(header->pixelType) ? 0 : ORV_IMAGE_ERR_UNKNOWN_FORMAT;
}

int OrvDisplayImp::DisplayVideo(const _OrvImage *image)
{
    const Call call(*this);
    if (!call.IsIn())
        return ORV_DISPLAY_ERR_CLOSING;
    if (image == nullptr)
        return ORV_IMAGE_ERR_INVALID_ARGUMENT;
    const MutexLock convert(m_convertMutex);
    const int status = Show(*image);
    if (status == 0)
        m_retained.reset(); // older than what is shown now
    return status;
}

int OrvDisplayImp::ConvertImage(const _OrvImage *source, _OrvImage *destination)
{
    const Call call(*this);
    return call.IsIn() ? orv::ConvertImage(source, destination) : ORV_DISPLAY_ERR_CLOSING;
}

int OrvDisplayImp::RetainImage(const _OrvImage *image)
{
    const Call call(*this);
    if (!call.IsIn())
        return ORV_DISPLAY_ERR_CLOSING;
    const MutexLock convert(m_convertMutex);
    if (image == nullptr) {
        m_retained.reset();
        return 0;
    }
    const bool fits = m_retained && m_retained->width == image->width && m_retained->height == image->height &&
                      m_retained->pixelType == image->pixelType;
    if (!fits) {
        _OrvImage *copy = nullptr;
        const int status = OrvCreateImage(&copy, image->width, image->height, image->pixelType);
        m_retained.reset(copy);
        if (status != ORV_IMAGE_OK)
            return status;
    }
    return OrvCopyImage(m_retained.get(), image);
}

void OrvDisplayImp::Redraw()
{
    const Call call(*this);
    if (call.IsIn())
        m_surface.Request(DisplaySurface::kRefresh);
}

void OrvDisplayImp::Clear()
{
    const MutexLock convert(m_convertMutex); // a conversion that is under way would come back after us
    m_retained.reset();
    {
        const MutexLock lock(m_mutex);
        m_pictures.Hide();
        m_notice.clear();
        m_hasImage = false;
        m_mustStart = true;
    }
    m_surface.Request(DisplaySurface::kRepaint);
}

int OrvDisplayImp::Translate(int *x, int *y, int mode)
{
    const Call call(*this);
    if (!call.IsIn())
        return ORV_DISPLAY_ERR_CLOSING;
    if (x == nullptr || y == nullptr || (mode != 0 && mode != 1))
        return ORV_IMAGE_ERR_INVALID_ARGUMENT;
    const MutexLock lock(m_mutex);
    if (!m_hasImage)
        return ORV_DISPLAY_ERR_NOTHING_SHOWN;
    // Widget positions stand for the middle of what they cover on the screen.
    const double ratio = m_pixelRatio;
    if (mode == 1) {
        const ViewPoint image = m_view.geometry.ToImage({ToScreen(*x, ratio), ToScreen(*y, ratio)});
        *x = image.x;
        *y = image.y;
    } else {
        const ViewPoint window = m_view.geometry.ToWindow({*x, *y});
        *x = ToWidget(window.x, ratio);
        *y = ToWidget(window.y, ratio);
    }
    return 0;
}

// Changes of the view

template <class Change> void OrvDisplayImp::ChangeView(Change change)
{
    bool isNewPicture = false;
    bool isNewScale = false;
    {
        const MutexLock lock(m_mutex);
        const ViewGeometry before = m_view.geometry;
        change(m_view.geometry);
        isNewPicture = !m_view.geometry.ShowsTheSameAs(before);
        isNewScale = m_view.geometry.Scale() != before.Scale() || m_view.geometry.CurrentFit() != before.CurrentFit();
        if (isNewPicture)
            ++m_view.number;
    }
    if (isNewPicture)
        m_surface.Request(DisplaySurface::kRefresh);
    if (isNewScale)
        PublishSoon();
}

void OrvDisplayImp::PublishSoon()
{
    if (QThread::currentThread() == m_surface.thread())
        Publish();
    else
        m_surface.Request(DisplaySurface::kPublish);
}

void OrvDisplayImp::Publish()
{
    Fit fit = Fit::Free;
    double scale = 1;
    {
        const MutexLock lock(m_mutex);
        fit = m_view.geometry.CurrentFit();
        scale = m_view.geometry.Scale();
    }
    m_params.PublishView(fit, scale);
}

void OrvDisplayImp::SetFit(Fit fit)
{
    ChangeView([=](ViewGeometry &view) { view.SetFit(fit); });
}

void OrvDisplayImp::SetScale(double scale)
{
    ChangeView([=](ViewGeometry &view) { view.SetScale(scale); });
    PublishSoon(); // the scale set may not be the one taken
}

void OrvDisplayImp::ZoomIn()
{
    ChangeView([](ViewGeometry &view) { view.ZoomIn(view.WindowCentre()); });
}

void OrvDisplayImp::ZoomOut()
{
    ChangeView([](ViewGeometry &view) { view.ZoomOut(view.WindowCentre()); });
}

void OrvDisplayImp::CentreImage()
{
    ChangeView([](ViewGeometry &view) { view.CentreImage(); });
}

void OrvDisplayImp::SurfaceChanged(int width, int height, double pixelRatio)
{
    {
        const MutexLock lock(m_mutex);
        m_hasWidget = m_surface.IsAttached();
        m_pixelRatio = pixelRatio;
    }
    ChangeView([=](ViewGeometry &view) { view.SetWindow(width, height); });
}

void OrvDisplayImp::ZoomRequested(int steps, ViewPoint around)
{
    const ViewPosition middle{around.x + 0.5, around.y + 0.5};
    ChangeView([=](ViewGeometry &view) {
        for (int step = 0; step < steps; ++step)
            view.ZoomIn(middle);
        for (int step = 0; step > steps; --step)
            view.ZoomOut(middle);
    });
}

void OrvDisplayImp::PanRequested(int dx, int dy)
{
    ChangeView([=](ViewGeometry &view) { view.Pan(dx, dy); });
}

void OrvDisplayImp::Mark(const MarkedArea &area)
{
    {
        const MutexLock lock(m_mutex);
        const bool isSeen = area.isOn || m_marked.isOn;
        const bool isSame = m_marked == area;
        m_marked = area;
        if (isSame || !isSeen)
            return;
    }
    m_surface.Request(DisplaySurface::kRepaint);
}

void OrvDisplayImp::SetColours(std::shared_ptr<const LevelColours> colours)
{
    {
        const MutexLock lock(m_mutex);
        if (m_view.colours == colours)
            return;
        m_view.colours = std::move(colours);
        ++m_view.number;
    }
    m_surface.Request(DisplaySurface::kRefresh);
}

// Pictures

OrvDisplayImp::View OrvDisplayImp::ViewFor(const _OrvImage &image)
{
    const StartView start = m_params.InitialView();
    bool isNew = false;
    View view;
    {
        const MutexLock lock(m_mutex);
        m_hasImage = true;
        ViewGeometry &geometry = m_view.geometry;
        const auto width = static_cast<int>(image.width);
        const auto height = static_cast<int>(image.height);
        isNew = m_mustStart || geometry.ImageWidth() != width || geometry.ImageHeight() != height;
        if (isNew) {
            m_mustStart = false;
            geometry.SetImage(width, height);
            geometry.Start(start.fit, start.atX, start.atY);
            ++m_view.number;
        }
        view = m_view;
    }
    if (isNew)
        m_surface.Request(DisplaySurface::kPublish);
    return view;
}

int OrvDisplayImp::Show(const _OrvImage &image)
{
    PixelSource checked;
    const int status = OpenPixelSource(&image, checked);
    if (status == ORV_IMAGE_ERR_UNKNOWN_FORMAT || status == ORV_IMAGE_ERR_NOT_CONVERTIBLE) {
        ShowNotice(FormatNotice(image));
        return ORV_IMAGE_ERR_UNKNOWN_FORMAT;
    }
    if (status != ORV_IMAGE_OK)
        return status;
    const View view = ViewFor(image);
    Picture *picture = nullptr;
    {
        const MutexLock lock(m_mutex);
        if (!m_hasWidget)
            return ORV_DISPLAY_ERR_NO_WIDGET;
        picture = &m_pictures.Back();
    }
    if (!view.geometry.IsComplete())
        return 0; // hidden: nothing to draw on
    picture->width = view.geometry.WindowWidth();
    picture->height = view.geometry.WindowHeight();
    picture->view = view.geometry.Transform();
    picture->viewNumber = view.number;
    picture->pixels.resize(static_cast<std::size_t>(picture->width) * static_cast<std::size_t>(picture->height));
    const ViewTarget target{picture->pixels.data(), picture->width, picture->height, picture->width, kSurround};
    const int converted = ConvertView(&image, picture->view, target, view.colours.get());
    if (converted != ORV_IMAGE_OK)
        return converted;
    {
        const MutexLock lock(m_mutex);
        m_notice.clear();
        m_pictures.Show(*picture);
    }
    m_surface.Request(DisplaySurface::kRepaint);
    return 0;
}

void OrvDisplayImp::ShowNotice(const std::string &text)
{
    {
        const MutexLock lock(m_mutex);
        m_pictures.Hide();
        m_hasImage = false;
        if (m_notice == text)
            return;
        m_notice = text;
    }
    m_surface.Request(DisplaySurface::kRepaint);
}

bool OrvDisplayImp::IsOutOfDate()
{
    const MutexLock lock(m_mutex);
    if (!m_hasImage || !m_view.geometry.IsComplete())
        return false;
    const Picture *const shown = m_pictures.Shown();
    return shown == nullptr || shown->viewNumber != m_view.number;
}

bool OrvDisplayImp::ConvertAnew()
{
    if (m_redrawRequest && m_redrawRequest())
        return true;
    const MutexLock convert(m_convertMutex);
    return m_retained && Show(*m_retained) == 0;
}

void OrvDisplayImp::Refresh()
{
    if (IsOutOfDate() && !ConvertAnew())
        m_surface.Request(DisplaySurface::kRepaint); // the old picture, with the background where it does not reach
}

void OrvDisplayImp::PaintRequested(QWidget &widget)
{
    if (IsOutOfDate())
        ConvertAnew(); // else the old picture would flash up
    PaintJob job;
    {
        const MutexLock lock(m_mutex);
        job.picture = m_pictures.BeginPaint();
        job.marked = m_marked;
        job.notice = m_notice;
    }
    Paint(widget, job);
    const MutexLock lock(m_mutex);
    m_pictures.EndPaint();
}

} // namespace orv
