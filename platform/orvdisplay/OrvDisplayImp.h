#pragma once

#include "base/Mutex.h"
#include "orvdisplay/DisplayParams.h"
#include "orvdisplay/DisplaySurface.h"
#include "orvdisplay/OrvDisplay.h"
#include "orvdisplay/Pictures.h"

#include <string>

namespace orv {

/// The raster display.
///
/// DisplayVideo converts the visible part of an image into a picture of the window's size, under m_convertMutex, and
/// swaps it in under m_mutex; painting copies the picture that is in. A change of the view is answered on the GUI
/// thread by a new conversion of the last image (see Refresh), at the latest when the widget is painted: the window
/// system wants it painted right after resizing.
///
/// Every change that makes another picture out of the same image counts up m_viewNumber, and a picture knows the number
/// that it was made for: that is how a picture is known to be out of date.
///
/// Lock order: m_convertMutex before m_mutex. No lock is held while calling the redraw request, the parameters, or Qt's
/// event posting. The parameters hold theirs while they call Mark and SetColours: those take m_mutex and nothing else.
class OrvDisplayImp final : public OrvDisplay, private DisplayControl, private SurfaceEvents {
public:
    OrvDisplayImp() : m_params(*this), m_surface(*this) {}

    /// Refuses calls from now on and waits for those that are running on other threads.
    void Close() EXCLUDES(m_mutex);

    int Initialize(QWidget *widget, const char *backend, int flags) override;
    int SetFormat(const _OrvImage *header, const char *backend) override EXCLUDES(m_mutex);
    int DisplayVideo(const _OrvImage *image) override EXCLUDES(m_convertMutex, m_mutex);
    int ConvertImage(const _OrvImage *source, _OrvImage *destination) override;
    int RetainImage(const _OrvImage *image) override EXCLUDES(m_convertMutex, m_mutex);
    void SetRedrawRequest(std::function<bool()> request) override { m_redrawRequest = std::move(request); }
    void Redraw() override;
    void Clear() override EXCLUDES(m_convertMutex, m_mutex);
    int Translate(int *x, int *y, int mode) override EXCLUDES(m_mutex);
    OrvComponent *GetComponent() override { return &m_params; }

private:
    /// Counts a call in, unless the display is closing.
    class Call;

    struct ImageDeleter {
        void operator()(_OrvImage *image) const { OrvReleaseImage(&image); }
    };

    // What a conversion and a painting need to know, copied out of the guarded members.
    struct View {
        ViewGeometry geometry;
        std::uint64_t number = 0;
        std::shared_ptr<const LevelColours> colours;
    };

    void SetFit(Fit fit) override;
    void SetScale(double scale) override;
    void ZoomIn() override;
    void ZoomOut() override;
    void CentreImage() override;
    void Mark(const MarkedArea &area) override EXCLUDES(m_mutex);
    void SetColours(std::shared_ptr<const LevelColours> colours) override EXCLUDES(m_mutex);

    void SurfaceChanged(int width, int height, double pixelRatio) override;
    void ZoomRequested(int steps, ViewPoint around) override;
    void PanRequested(int dx, int dy) override;
    void PaintRequested(QWidget &widget) override EXCLUDES(m_mutex);
    void Refresh() override EXCLUDES(m_convertMutex, m_mutex);
    void Publish() override EXCLUDES(m_mutex);

    template <class Change> void ChangeView(Change change) EXCLUDES(m_mutex);
    /// Tells the parameters, at once on the GUI thread, else through its event loop.
    void PublishSoon();

    int Show(const _OrvImage &image) REQUIRES(m_convertMutex) EXCLUDES(m_mutex);
    void ShowNotice(const std::string &text) EXCLUDES(m_mutex);
    /// Takes a new format's size and start into the view.
    View ViewFor(const _OrvImage &image) EXCLUDES(m_mutex);
    bool IsOutOfDate() EXCLUDES(m_mutex);
    /// Converts the last image anew. GUI thread. \return false when there is none to be had.
    bool ConvertAnew() EXCLUDES(m_convertMutex, m_mutex);

    DisplayParams m_params;
    DisplaySurface m_surface;
    std::function<bool()> m_redrawRequest; // GUI thread

    Mutex m_convertMutex; // one conversion at a time
    std::unique_ptr<_OrvImage, ImageDeleter> m_retained GUARDED_BY(m_convertMutex);

    Mutex m_mutex; // held for a few lines
    ConditionVariable m_callsEnded;
    int m_calls GUARDED_BY(m_mutex) = 0;
    bool m_isClosing GUARDED_BY(m_mutex) = false;
    bool m_hasWidget GUARDED_BY(m_mutex) = false;
    double m_pixelRatio GUARDED_BY(m_mutex) = 1;
    bool m_hasImage GUARDED_BY(m_mutex) = false;
    bool m_mustStart GUARDED_BY(m_mutex) = true; // the next image begins a format
    View m_view GUARDED_BY(m_mutex);
    MarkedArea m_marked GUARDED_BY(m_mutex);
    std::string m_notice GUARDED_BY(m_mutex); // shown in place of a picture
    Pictures m_pictures GUARDED_BY(m_mutex);
};

} // namespace orv
