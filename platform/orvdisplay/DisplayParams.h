#pragma once

#include "base/Mutex.h"
#include "orvdisplay/ViewGeometry.h"
#include "orvsupport/OrvComponentImp.h"

#include <memory>
#include <string>
#include <vector>

namespace orv {

/// The marked rectangle, image pixels.
struct MarkedArea {
    long x = 0;
    long y = 0;
    long width = 0;
    long height = 0;
    bool isOn = false;

    bool operator==(const MarkedArea &other) const
    {
        return x == other.x && y == other.y && width == other.width && height == other.height && isOn == other.isOn;
    }
};

/// First view of a format's images.
struct StartView {
    Fit fit;
    double atX; ///< 0 to 1 of the image's width
    double atY;
};

/// What the parameters of a display act on. Any thread. Mark and SetColours do not come back to the parameters.
class DisplayControl {
public:
    virtual void SetFit(Fit fit) = 0;
    virtual void SetScale(double scale) = 0;
    virtual void ZoomIn() = 0;
    virtual void ZoomOut() = 0;
    virtual void CentreImage() = 0;
    virtual void Mark(const MarkedArea &area) = 0;
    /// Null shows mono images in grey.
    virtual void SetColours(std::shared_ptr<const LevelColours> colours) = 0;

protected:
    ~DisplayControl() = default;
};

/// The component of a display: its parameters, as listed in OrvDisplay.h.
///
/// Threads: any, but PublishView on the GUI thread only.
class DisplayParams : public OrvComponentImp, private OrvParamListener {
public:
    /// Identifier in bits 16 to 23 of the statuses that this component makes itself.
    static constexpr std::uint8_t kTypeId = 110;

    explicit DisplayParams(DisplayControl &control);

    StartView InitialView() const;
    /// Writes the view that is shown into "display.fit" and "display.view.scale", with notification, where it differs.
    void PublishView(Fit fit, double scale);

private:
    /// Bound to the parameters: written through the store only.
    struct Members {
        long fit = static_cast<long>(Fit::Window);
        double scale = 1;
        long initialFit = static_cast<long>(Fit::Window);
        double initialX = 0.5;
        double initialY = 0.5;
        long markedX = 0;
        long markedY = 0;
        long markedWidth = 0;
        long markedHeight = 0;
        long filterId = 0;
        long filterChannels = 0;
        long filterState = 0;
        char filterName[64] = "";
    };

    struct IntRange {
        long minimum;
        long maximum;
    };

    void ParamChanged(_OrvStParam param) override;
    void Declare();
    void AddInt(const char *name, long &member, const IntRange &range);
    void AddFloat(const char *name, double &member, double minimum, double maximum);
    void AddString(const char *name, char *member, std::size_t capacity);
    void AddCommand(const char *name, OrvParamCommand run);
    void Listen(const char *name);

    long IntValue(const char *name) const;
    double FloatValue(const char *name) const;
    std::string TextValue(const char *name, std::size_t capacity) const;

    void SwitchMark(bool isOn) EXCLUDES(m_mutex);
    void MarkAsSet() REQUIRES(m_mutex);
    int AddFilter() EXCLUDES(m_mutex);
    int DeleteFilter() EXCLUDES(m_mutex);
    void ApplyFilter() REQUIRES(m_mutex);

    DisplayControl &m_control;
    Members m_members;
    std::vector<char> m_colourMap;

    /// Held from reading what was set to handing it to the control, so that of two threads the later one's is what
    /// stays. The control takes its own lock within and calls nobody.
    Mutex m_mutex;
    bool m_isMarked GUARDED_BY(m_mutex) = false;
    std::shared_ptr<const LevelColours> m_filter GUARDED_BY(m_mutex); // the one filter; null for none
    long m_filterId GUARDED_BY(m_mutex) = 0;
};

} // namespace orv
