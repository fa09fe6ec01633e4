#include "acquisition/DisplayView.h"

#include "acquisition/FalseColour.h"
#include "acquisition/FrameSink.h"
#include "acquisition/GrabbingFifo.h"
#include "acquisition/PixelReadOut.h"
#include "core/DiagnosticLog.h"
#include "orvdisplay/OrvDisplay.h"
#include "panels/PlayerPanel.h"

#include <QMainWindow>
#include <QMouseEvent>
#include <QTimer>

#include <cstring>
#include <string>

namespace {

constexpr std::uint8_t kComponentId = 100;
constexpr double kLowestRate = 0.001; ///< frames per second; below it nothing is shown
constexpr long kFalseColorFilter = 1000;

enum FitMode : long { FitToWindow = 1, SpreadToWindow = 2, ActualSize = 3 };

const char *BackendName(long displayMode)
{
    switch (displayMode) {
    case 2:
        return "OpenGL";
    case 1:
        return "GDI";
    default:
        return "auto";
    }
}

} // namespace

DisplayView::DisplayView(QMainWindow *parent, GrabbingFifo *grabber)
    : QGraphicsView(parent), WorkingThread("DisplayView"), OrvComponentImp(kComponentId), m_grabber(grabber),
      m_display(OrvDisplay::CreateComponent()), m_videoTimer(new QTimer(this))
{
    setFrameShape(QFrame::NoFrame);
    setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    setVerticalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    setMouseTracking(true);
    viewport()->setMouseTracking(true);
    DeclareParams();
    const int result = m_display->Initialize(this, "auto", 0);
    if (result != 0)
        LogFormatted(LogLevel::Fatal, LogCode(result), "OrvDisplay->Initialize() failed: %08x",
                     static_cast<unsigned>(result));
    m_display->SetRedrawRequest([this] { return RedrawLastImage(); });
    connect(m_videoTimer, &QTimer::timeout, this, &DisplayView::UpdateVideo);
}

DisplayView::~DisplayView()
{
    LogFormatted(LogLevel::Debug, 0, "DisplayView::~DisplayView()");
    // The thread uses members of this class, so it has to end before they do.
    if (IsStarted())
        StopDisplaying();
    Terminate();
    OrvReleaseImageHeader(&m_displayHeader);
    OrvDisplay::DeleteComponent(m_display);
    const orv::MutexLock lock(m_imageMutex);
    OrvReleaseImage(&m_lastImage);
}

void DisplayView::DeclareParams()
{
    const auto declare = [this](const char *name, auto fill) {
        _OrvStParam param = {};
        param.access = ORV_PARAM_ACCESS_RW;
        std::strncpy(param.name, name, sizeof param.name - 1);
        param.onChange = PlayerPanel::OnParamChanged;
        fill(param);
        m_params.AddParam(&param);
    };
    const auto integer = [](long *member) {
        return [member](_OrvStParam &param) {
            param.type = ORV_PARAM_INT;
            param.asInt.maximum = 2;
            param.asInt.value = member;
        };
    };
    declare("DisplayRate", [this](_OrvStParam &param) {
        param.type = ORV_PARAM_FLOAT;
        param.asFloat.defaultValue = 30.0;
        param.asFloat.maximum = 120.0;
        param.asFloat.value = &m_displayRate;
    });
    declare("ColorationType", integer(&m_colorationType));
    declare("DisplayMode", integer(&m_displayMode));
    declare("ApplyColoration", [this](_OrvStParam &param) {
        param.type = ORV_PARAM_COMMAND;
        param.asCommand.run = [](void *context) { return static_cast<DisplayView *>(context)->ApplyColoration(); };
        param.asCommand.context = this;
    });
}

long DisplayView::GetIntParam(const char *name)
{
    long value = 0;
    m_params.GetParamInt(const_cast<char *>(name), &value);
    return value;
}

// Starting and stopping

bool DisplayView::StartDisplaying()
{
    const LogScope scope("DisplayView::StartDisplaying()");
    m_firstFrame = true;
    StartVideoTimer();
    return WorkingThread::Start();
}

bool DisplayView::StopDisplaying()
{
    const LogScope scope("DisplayView::StopDisplaying()");
    m_grabber->SetGrabberThtreadBlocking(false);
    StopVideoTimer();
    const bool stopped = Stop();
    m_grabber->SetGrabberThtreadBlocking(true);
    const orv::MutexLock lock(m_imageMutex);
    if (m_lastImage && m_lastImageFilled)
        m_display->RetainImage(m_lastImage); // the picture stays, and can still be zoomed
    m_lastImageFilled = false;
    OrvReleaseImage(&m_lastImage);
    return stopped;
}

void DisplayView::StartVideoTimer()
{
    double rate = 0.0;
    m_params.GetParamFloat(const_cast<char *>("DisplayRate"), &rate);
    if (rate > kLowestRate)
        m_videoTimer->start(static_cast<int>(1000.0 / rate));
    else
        m_videoTimer->stop();
}

void DisplayView::StopVideoTimer()
{
    m_videoTimer->stop();
}

void DisplayView::RequestFrame()
{
    {
        const orv::MutexLock lock(m_requestMutex);
        m_frameRequested = true;
    }
    m_requestCondition.NotifyOne();
}

void DisplayView::UpdateVideo()
{
    RequestFrame();
    if (m_mouseInside)
        ReadPixelUnderMouse(); // the picture moves under a resting mouse, too
}

bool DisplayView::Stop()
{
    const LogScope scope("DisplayView::Stop()");
    if (!IsStarted()) {
        LogFormatted(LogLevel::Error, 0, "DisplayView::Start: Invalid state: m_bStart==false");
        return false;
    }
    RequestPark();
    const orv::MutexLock lock(m_stoppedMutex);
    while (!ConsumeStopped()) {
        RequestFrame(); // wakes the thread where it waits for a tick
        m_stoppedCondition.Wait(m_stoppedMutex);
    }
    return true;
}

// One frame

void DisplayView::WaitForRequest()
{
    const orv::MutexLock lock(m_requestMutex);
    while (!m_frameRequested && IsStarted())
        m_requestCondition.Wait(m_requestMutex);
    m_frameRequested = false;
}

void DisplayView::Work()
{
    WaitForRequest();
    OrvCam::Buffer *buffer = nullptr;
    const int err = m_grabber->GetNewestBuffer(&buffer, false);
    if (err != 0) {
        LogFormatted(LogLevel::Error, LogCode(err), "GetNewestBuffer returned err=%X", static_cast<unsigned>(err));
        return;
    }
    if (!buffer) {
        LogFormatted(LogLevel::Info, 0, "GetNewestBuffer returned buff=0");
        return;
    }
    ShowFrame(buffer);
    m_grabber->ReturnBuffer(buffer);
}

void DisplayView::ShowFrame(OrvCam::Buffer *buffer)
{
    const std::uint64_t frameId = buffer->GetFrameID();
    if ((frameId == m_lastFrameId && !m_firstFrame) || buffer->IsIncomplete())
        return;
    m_lastFrameId = frameId;
    const _OrvImage *image = buffer->GetImage();
    if (m_firstFrame)
        InitByFirstFrame(image);
    DrawFrame(image);
    ForwardToInspection(image);
    KeepFrame(image);
}

void DisplayView::DrawFrame(const _OrvImage *image)
{
    LogFormatted(LogLevel::Info, 0, "DisplayView::Work() DisplayVideo called for frame ID=%i",
                 static_cast<int>(m_lastFrameId));
    const orv::MutexLock lock(m_imageMutex);
    // Until the new frame is copied, a redraw must not bring the one before back.
    m_lastImageFilled = false;
    const int drawn = m_display->DisplayVideo(image);
    LogFormatted(LogLevel::Info, LogCode(drawn), "DisplayView::Work() DisplayVideo returned for frame ID=%i",
                 static_cast<int>(m_lastFrameId));
}

void DisplayView::KeepFrame(const _OrvImage *image)
{
    bool isMissing = false;
    {
        const orv::MutexLock lock(m_imageMutex);
        const int copied = OrvCopyImage(m_lastImage, image);
        if (copied != ORV_IMAGE_OK)
            LogFormatted(LogLevel::Error, LogCode(copied), "IICopyImage failed for m_lastImage, err=%i", copied);
        m_lastImageFilled = copied == ORV_IMAGE_OK;
        isMissing = m_lastImageFilled && m_redrawMissed;
        if (isMissing)
            m_redrawMissed = false;
    }
    if (isMissing) // there may be no further frame to show the view as it is now
        m_display->Redraw();
}

void DisplayView::InitByFirstFrame(const _OrvImage *image)
{
    m_bitDepth = image->significantBits;
    if (!VerifyDisplayFormat(image)) {
        m_display->SetFormat(image, BackendName(GetIntParam("DisplayMode")));
        const orv::MutexLock lock(m_inspectionMutex);
        for (FrameSink *view : m_inspectionViews)
            view->StopDisplaying();
    }
    const orv::MutexLock lock(m_imageMutex);
    OrvReleaseImage(&m_lastImage);
    m_lastImageFilled = false;
    const int created = OrvCreateImage(&m_lastImage, image->width, image->height, image->pixelType);
    if (created != ORV_IMAGE_OK)
        LogFormatted(LogLevel::Error, LogCode(created), "OrvCreateImage failed m_lastImage, w=%i, h=%i, type=%x",
                     static_cast<int>(image->width), static_cast<int>(image->height), image->pixelType);
    m_firstFrame = false;
}

bool DisplayView::VerifyDisplayFormat(const _OrvImage *image)
{
    if (!image)
        return false;
    if (m_displayHeader && m_displayHeader->width == image->width && m_displayHeader->height == image->height &&
        m_displayHeader->pixelType == image->pixelType)
        return true;
    OrvReleaseImageHeader(&m_displayHeader);
    OrvCreateImageHeader(&m_displayHeader, image->width, image->height, image->pixelType, nullptr, 0, 0);
    return false;
}

void DisplayView::ForwardToInspection(const _OrvImage *image)
{
    const orv::MutexLock lock(m_inspectionMutex);
    for (FrameSink *view : m_inspectionViews)
        view->DisplayImage(image);
}

bool DisplayView::RedrawLastImage()
{
    const orv::MutexLock lock(m_imageMutex);
    m_redrawMissed = !m_lastImage || !m_lastImageFilled;
    return !m_redrawMissed && m_display->DisplayVideo(m_lastImage) == 0;
}

bool DisplayView::IsImageSolid(const _OrvImage *image)
{
    const orv::MutexLock lock(m_imageMutex);
    if (m_firstFrame || !m_lastImage)
        return true;
    if (image->width != m_lastImage->width || image->height != m_lastImage->height ||
        image->pixelType != m_lastImage->pixelType || image->lineLayout != m_lastImage->lineLayout)
        return false;
    return image->data != nullptr;
}

void DisplayView::AddInspectionView(FrameSink *view)
{
    const orv::MutexLock lock(m_inspectionMutex);
    m_inspectionViews.push_back(view);
}

void DisplayView::RemoveInspectionView(FrameSink *view)
{
    const orv::MutexLock lock(m_inspectionMutex);
    m_inspectionViews.remove(view);
}

// Commands to the display component

bool DisplayView::RunDisplayCommand(const char *name)
{
    return m_display->GetComponent()->RunCommand(const_cast<char *>(name)) == 0;
}

bool DisplayView::SetDisplayInt(const char *name, long value)
{
    return m_display->GetComponent()->SetParamInt(const_cast<char *>(name), value) == 0;
}

bool DisplayView::ZoomIn()
{
    return RunDisplayCommand("display.zoom.in");
}

bool DisplayView::ZoomOut()
{
    return RunDisplayCommand("display.zoom.out");
}

bool DisplayView::CenterImage()
{
    return RunDisplayCommand("display.atcenter");
}

bool DisplayView::ZoomFitToWnd()
{
    return SetDisplayInt("display.fit", FitToWindow);
}

bool DisplayView::ZoomSpreadToWnd()
{
    return SetDisplayInt("display.fit", SpreadToWindow);
}

bool DisplayView::Zoom100()
{
    return SetDisplayInt("display.fit", ActualSize);
}

void DisplayView::clearHexDumpRectangle()
{
    if (m_display)
        RunDisplayCommand("display.dump.off");
}

void DisplayView::drawHexPixelDumpRectangle(int x, int y, int w, int h)
{
    m_hexDumpX = x;
    m_hexDumpY = y;
    m_hexDumpW = w;
    m_hexDumpH = h;
    m_hexDump = true;
}

bool DisplayView::isInRectangle(int x, int y) const
{
    if (m_hexDumpW < 1 || m_hexDumpH < 1)
        return false;
    return m_hexDumpX <= x && x <= m_hexDumpX + m_hexDumpW && m_hexDumpY <= y && y <= m_hexDumpY + m_hexDumpH;
}

void DisplayView::onStartPointChanged(int x, int y)
{
    m_hexDumpX = x;
    m_hexDumpY = y;
}

void DisplayView::onSizeChanged(int w, int h)
{
    m_hexDumpW = w;
    m_hexDumpH = h;
}

int DisplayView::ConvertImage(const _OrvImage *source, _OrvImage *destination)
{
    return m_display->ConvertImage(source, destination);
}

int DisplayView::ApplyColoration()
{
    const long levels = 1L << m_bitDepth.load();
    Colorize(GetIntParam("ColorationType") != 0, 0, levels - 2, levels, false);
    return 0;
}

bool DisplayView::Colorize(bool on, long first, long last, long levels, bool)
{
    if (levels < 2)
        return false;
    OrvComponent *component = m_display->GetComponent();
    const auto name = [](const char *text) { return const_cast<char *>(text); };
    bool done = SetDisplayInt("filter.id", kFalseColorFilter);
    if (m_colorized || !on) {
        RunDisplayCommand("filter.del"); // refused when there is none: nothing to remove then
        m_colorized = false;
    }
    if (!on)
        return done;
    std::string map = FalseColourMap(first, last, levels);
    done = component->SetParamString(name("filter.name"), name("cmap.base")) == 0 && done;
    done = SetDisplayInt("filter.channels", 1) && done;
    done = component->SetParamString(name("filter.channel.0"), map.data()) == 0 && done;
    done = SetDisplayInt("filter.state", 1) && done;
    done = RunDisplayCommand("filter.add") && done;
    m_colorized = done;
    return done;
}

// The pixel under the mouse

bool DisplayView::GetDisplayedImageRaw(_OrvImage **image)
{
    const orv::MutexLock lock(m_imageMutex);
    if (!m_lastImage || !m_lastImageFilled)
        return false;
    *image = m_lastImage;
    return true;
}

void DisplayView::sendMouseMoved(int x, int y)
{
    PixelValue value;
    {
        const orv::MutexLock lock(m_imageMutex);
        if (!m_lastImage || !m_lastImageFilled || !ReadPixel(*m_lastImage, x, y, &value))
            return;
    }
    emit mouseMoved(x, y, value.c0, value.c1, value.c2);
}

void DisplayView::ReadPixelUnderMouse()
{
    int x = m_mousePosition.x();
    int y = m_mousePosition.y();
    if (m_display->Translate(&x, &y, 1) == 0)
        sendMouseMoved(x, y);
}

void DisplayView::mouseMoveEvent(QMouseEvent *event)
{
    m_mouseInside = true;
    m_mousePosition = event->pos();
    ReadPixelUnderMouse();
    QGraphicsView::mouseMoveEvent(event);
}

void DisplayView::leaveEvent(QEvent *event)
{
    m_mouseInside = false;
    QGraphicsView::leaveEvent(event);
}

bool DisplayView::nativeEvent(const QByteArray &, void *, long *)
{
    LogFormatted(LogLevel::Debug, 0, "DisplayView::nativeEvent()");
    return false;
}
