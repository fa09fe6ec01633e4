#pragma once

#include "orvimage/OrvImage.h"

#include <functional>

class OrvComponent;
class QWidget;

/// Statuses of the display; it also hands on those of the image functions. 0 is success.
enum OrvDisplayStatus : int {
    ORV_DISPLAY_ERR_NO_WIDGET = -42001,     ///< none was given, or it has been destroyed
    ORV_DISPLAY_ERR_HAS_WIDGET = -42002,    ///< the display draws into another one already
    ORV_DISPLAY_ERR_NOTHING_SHOWN = -42003, ///< no image has been shown yet
    ORV_DISPLAY_ERR_CLOSING = -42004        ///< the display is being deleted
};

/// Draws images into a widget: zoom, pan, false colour, a marked rectangle.
///
/// Cost follows the window, not the sensor: only the pixels that the visible part needs at the current zoom are
/// converted, straight into a picture of the window's size; painting only copies that picture. Nothing is converted
/// while the widget is hidden.
///
/// The display takes over painting, wheel and drag of the widget (of the viewport, for a scroll area) by an event
/// filter: Ctrl+wheel zooms around the mouse, dragging with the left button pans. Every event but painting and
/// Ctrl+wheel reaches the widget as usual. The widget may be destroyed before the display.
///
/// Threads: CreateComponent, DeleteComponent, Initialize, SetRedrawRequest and Clear on the GUI thread; all others and
/// the component on any. DisplayVideo converts on the calling thread, one conversion at a time, and asks the GUI thread
/// to paint; it never waits for the GUI thread's event loop.
///
/// Parameters of the component (GetComponent(), type identifier 110):
///   "display.fit"            0 free, 1 fit to window, 2 spread (fill the window, parts may stick out), 3 100 % once;
///                            reads 0 after the user zooms or pans out of a fit
///   "display.zoom.in", "display.zoom.out", "display.atcenter"     commands, around the view's centre
///   "display.view.scale"     screen pixels per image pixel (float); brought into 1/64 to 64 when set
///   "display.init.fit", "display.init.at.x", "display.init.at.y"  taken at the first frame of a format; the point (0
///   to
///                            1 of the image's size) comes to the view's centre
///   "dump.x", "dump.y", "dump.w", "dump.h", "display.dump.on", "display.dump.off"   marked rectangle, image pixels
///   "filter.id", "filter.name", "filter.channels", "filter.channel.0", "filter.state", "filter.add", "filter.del"
///                            false colour of mono images: "cmap.base" with one "r,g,b" entry (0 to 1) per level,
///                            separated by ";". "filter.add" puts the filter in place of the one before; with a text
///                            that is no such map it answers with a status and leaves no filter. "filter.del" takes
///                            away the filter of that "filter.id". "filter.state" 0 switches it off without taking it
///                            away.
class OrvDisplay {
public:
    static OrvDisplay *CreateComponent();
    /// Waits for calls of this class that are running on other threads; the caller sees to it that none begins after
    /// this one, and does not call from within the redraw request. Calls of the component are not waited for: the
    /// caller ends those on other threads, and its listeners, before. Null is allowed.
    static void DeleteComponent(OrvDisplay *display);

    /// \param backend  "auto", "OpenGL" or "GDI": today all draw by raster.
    /// \return 0, or a non-zero status when there is no widget or the display has one already.
    virtual int Initialize(QWidget *widget, const char *backend, int flags) = 0;
    /// Prepares for images of this format; the initial fit and position take effect with the next image.
    virtual int SetFormat(const _OrvImage *header, const char *backend) = 0;
    /// Shows an image. The pixels are not used after the call returns. An image of another size than before begins a
    /// new format.
    /// \return 0 (also while the widget is hidden); ORV_IMAGE_ERR_UNKNOWN_FORMAT, a plain notice is shown in place of
    /// the picture; ORV_IMAGE_ERR_TOO_SHORT or ORV_IMAGE_ERR_INVALID_ARGUMENT, the picture before stays;
    /// ORV_DISPLAY_ERR_NO_WIDGET.
    virtual int DisplayVideo(const _OrvImage *image) = 0;
    /// Converts a whole image into the destination's pixel type, see orv::ConvertImage; no false colours.
    virtual int ConvertImage(const _OrvImage *source, _OrvImage *destination) = 0;

    /// Keeps a copy of the image as the one to redraw from, for when no further frames come (playing stopped). The
    /// next DisplayVideo or Clear drops the copy, and so does null.
    virtual int RetainImage(const _OrvImage *image) = 0;
    /// Asked on the GUI thread, also from within a paint event, when the view has changed (zoom, pan, size) since the
    /// last DisplayVideo: the owner may show its own copy of the last frame through DisplayVideo and return true; on
    /// false the retained image is redrawn.
    virtual void SetRedrawRequest(std::function<bool()> request) = 0;
    /// Asks for that again, if the view has changed: for an owner who could not serve the request and now can.
    virtual void Redraw() = 0;
    /// Forgets all pictures and paints the background.
    virtual void Clear() = 0;

    /// Converts a point in place. \param mode 1: widget to image pixels (floored; outside the image the result lies
    /// outside its size), 0: image to widget. \return 0, or non-zero while nothing is shown.
    virtual int Translate(int *x, int *y, int mode) = 0;
    virtual OrvComponent *GetComponent() = 0;

protected:
    virtual ~OrvDisplay() = default;
};
