#pragma once

#include "base/Mutex.h"
#include "core/WorkingThread.h"
#include "orvimage/OrvImage.h"
#include "orvsupport/OrvComponentImp.h"

#include <QGraphicsView>
#include <QPoint>

#include <atomic>
#include <cstdint>
#include <list>

class FrameSink;
class GrabbingFifo;
class OrvDisplay;
class QMainWindow;
class QTimer;
namespace OrvCam {
class Buffer;
}

/// The live view: takes the newest frame from the grabber at the display rate, draws it through the display component,
/// passes it to every inspection view and keeps one copy of it for the pixel read-out and for image analysis.
///
/// Threads: Work on its own thread; everything else on the GUI thread. m_imageMutex is held while a frame is drawn and
/// copied, so that the GUI thread sees whole frames; nothing is waited for under it, and inspection views are served
/// without it.
/// Repeated and incomplete frames are given back undrawn. Stopped, the last picture stays and can be zoomed.
class DisplayView : public QGraphicsView, private WorkingThread, public OrvComponentImp {
    Q_OBJECT
public:
    /// The grabber outlives the view's running time: StopDisplaying() comes before the grabber's end.
    DisplayView(QMainWindow *parent, GrabbingFifo *grabber);
    ~DisplayView() override;

    bool StartDisplaying();
    bool StopDisplaying();
    bool IsDisplaying() const { return IsStarted(); }

    void StartVideoTimer();
    void StopVideoTimer();

    bool ZoomIn();
    bool ZoomOut();
    bool CenterImage();
    bool ZoomFitToWnd();
    bool ZoomSpreadToWnd();
    bool Zoom100();

    void clearHexDumpRectangle();
    void drawHexPixelDumpRectangle(int x, int y, int w, int h);
    /// Both ends of the rectangle count as inside; a rectangle without size holds nothing.
    bool isInRectangle(int x, int y) const;

    /// Lends the copy of the last shown frame until StopDisplaying; false, the output untouched, when there is none.
    /// Its pixels change while a further frame is copied.
    bool GetDisplayedImageRaw(_OrvImage **image);
    int ConvertImage(const _OrvImage *source, _OrvImage *destination);
    /// Emits mouseMoved with the pixel at an image position; nothing outside the image or without one.
    void sendMouseMoved(int x, int y);

    int ApplyColoration();
    /// Switches false colour on or off. Levels up to `first` are shown blue, those above `last` red, the rest grey.
    /// \return false when there are fewer than 2 levels or the display refuses.
    bool Colorize(bool on, long first, long last, long levels, bool);

    /// Whether an image continues what is shown: same format as the last frame, with pixels.
    bool IsImageSolid(const _OrvImage *image);

    void AddInspectionView(FrameSink *view);
    void RemoveInspectionView(FrameSink *view);

signals:
    /// \param r, g, b channel values; -1 for a channel that the format lacks (monochrome: g alone).
    void mouseMoved(int x, int y, int r, int g, int b);

public slots:
    void UpdateVideo();
    void onStartPointChanged(int x, int y);
    void onSizeChanged(int w, int h);

protected:
    bool Stop() override;
    void Work() override;
    bool nativeEvent(const QByteArray &eventType, void *message, long *result) override;
    void mouseMoveEvent(QMouseEvent *event) override;
    void leaveEvent(QEvent *event) override;

private:
    void DeclareParams();
    void RequestFrame() EXCLUDES(m_requestMutex);
    void WaitForRequest() EXCLUDES(m_requestMutex);
    void ShowFrame(OrvCam::Buffer *buffer) EXCLUDES(m_imageMutex);
    void DrawFrame(const _OrvImage *image) EXCLUDES(m_imageMutex);
    void KeepFrame(const _OrvImage *image) EXCLUDES(m_imageMutex);
    void InitByFirstFrame(const _OrvImage *image) EXCLUDES(m_imageMutex);
    bool VerifyDisplayFormat(const _OrvImage *image);
    void ForwardToInspection(const _OrvImage *image) EXCLUDES(m_inspectionMutex);
    bool RedrawLastImage() EXCLUDES(m_imageMutex);
    void ReadPixelUnderMouse();
    bool RunDisplayCommand(const char *name);
    bool SetDisplayInt(const char *name, long value);
    long GetIntParam(const char *name);

    std::uint64_t m_lastFrameId = 0; ///< display thread
    std::atomic<bool> m_firstFrame{false};
    GrabbingFifo *m_grabber;
    OrvDisplay *m_display;
    QTimer *m_videoTimer;
    orv::Mutex m_requestMutex; ///< guards only the request flag
    orv::ConditionVariable m_requestCondition;
    bool m_frameRequested GUARDED_BY(m_requestMutex) = true;
    std::atomic<std::uint32_t> m_bitDepth{8};

    orv::Mutex m_imageMutex; ///< never held together with another one of this class
    _OrvImage *m_lastImage GUARDED_BY(m_imageMutex) = nullptr;
    bool m_lastImageFilled GUARDED_BY(m_imageMutex) = false;
    bool m_redrawMissed GUARDED_BY(m_imageMutex) = false; ///< asked for while there was no copy to draw from
    _OrvImage *m_displayHeader = nullptr;                 ///< display thread while running

    bool m_hexDump = false;
    int m_hexDumpX = 0;
    int m_hexDumpY = 0;
    int m_hexDumpW = 0;
    int m_hexDumpH = 0;
    bool m_colorized = false;
    bool m_mouseInside = false;
    QPoint m_mousePosition; ///< in the viewport

    orv::Mutex m_inspectionMutex;
    std::list<FrameSink *> m_inspectionViews GUARDED_BY(m_inspectionMutex);

    // Bound to the parameters of the same name.
    double m_displayRate = 30.0;
    long m_colorationType = 0;
    long m_displayMode = 0;
};
