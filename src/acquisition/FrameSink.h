#pragma once

#include "orvimage/OrvImage.h"

/// A further view that receives every frame the live display shows, such as an inspection window.
///
/// Added to and removed from DisplayView's list; it must be removed before it is destroyed.
class FrameSink {
public:
    /// On the display thread. The image is valid during the call.
    virtual void DisplayImage(const _OrvImage *image) = 0;
    /// The format changed: the next frame is a first one again. On the display thread.
    virtual void StopDisplaying() = 0;

protected:
    ~FrameSink() = default;
};
