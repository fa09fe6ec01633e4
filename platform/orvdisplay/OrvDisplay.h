#pragma once

#include "orvimage/OrvImage.h"

#include <functional>

class OrvComponent;
class QWidget;

/// Draws images into a widget: zoom, pan, false colour, a marked rectangle.
///
/// Cost follows the window, not the sensor: only the pixels that the visible part needs at the current zoom are
/// converted, straight into a picture of the window's size; painting only copies that picture.
///
/// The display takes over painting, wheel and drag of the widget (of the viewport, for a scroll area) by an event
/// filter: Ctrl+wheel zooms around the mouse, dragging pans. Every other event reaches the widget as usual.
///
/// Threads: CreateComponent, DeleteComponent, Initialize, Translate and the component on the GUI thread; DisplayVideo
/// and SetFormat on any one thread at a time. DisplayVideo converts on the calling thread and asks the GUI thread to
/// paint; it never waits for the GUI thread.
///
/// Parameters of the component (GetComponent()):
///   "display.fit"            0 free, 1 fit to window, 2 spread (fill the window), 3 100 % once; reads 0 after the user
///                            zooms or pans out of a fit
///   "display.zoom.in", "display.zoom.out", "display.atcenter"     commands, around the view's centre
///   "display.view.scale"     screen pixels per image pixel (float)
///   "display.init.fit", "display.init.at.x", "display.init.at.y"  taken at the first frame of a format
///   "dump.x", "dump.y", "dump.w", "dump.h", "display.dump.on", "display.dump.off"   marked rectangle, image pixels
///   "filter.id", "filter.name", "filter.channels", "filter.channel.0", "filter.state", "filter.add", "filter.del"
///                            false colour: "cmap.base" with one "r,g,b" entry (0 to 1) per level, separated by ";"
class OrvDisplay {
public:
    static OrvDisplay *CreateComponent();
    static void DeleteComponent(OrvDisplay *display);

    /// \param backend  "auto", "OpenGL" or "GDI": today all draw by raster.
    /// \return 0, or a non-zero status when there is no widget or the display has one already.
    virtual int Initialize(QWidget *widget, const char *backend, int flags) = 0;
    /// Prepares for images of this format; the initial fit and position take effect with the next image.
    virtual int SetFormat(const _OrvImage *header, const char *backend) = 0;
    /// Shows an image. The pixels are not used after the call returns.
    /// \return 0, ORV_IMAGE_ERR_UNKNOWN_FORMAT (a plain notice is shown in place of the picture),
    /// ORV_IMAGE_ERR_TOO_SHORT.
    virtual int DisplayVideo(const _OrvImage *image) = 0;
    /// Converts a whole image into the destination's pixel type; same size.
    virtual int ConvertImage(const _OrvImage *source, _OrvImage *destination) = 0;

    /// Keeps a copy of the image as the one to redraw from, for when no further frames come (playing stopped).
    virtual int RetainImage(const _OrvImage *image) = 0;
    /// Asked on the GUI thread when the view has changed (zoom, pan, size) since the last DisplayVideo: the owner may
    /// show its own copy of the last frame through DisplayVideo and return true; on false the retained image is
    /// redrawn.
    virtual void SetRedrawRequest(std::function<bool()> request) = 0;
    /// Forgets all pictures and paints the background.
    virtual void Clear() = 0;

    /// Converts a point in place. \param mode 1: widget to image pixels (floored; outside the image the result lies
    /// outside its size), 0: image to widget. \return 0, or non-zero while nothing is shown.
    virtual int Translate(int *x, int *y, int mode) = 0;
    virtual OrvComponent *GetComponent() = 0;

protected:
    virtual ~OrvDisplay() = default;
};
