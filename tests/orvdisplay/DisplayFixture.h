#pragma once

#include "orvdisplay/OrvDisplay.h"
#include "orvimage/Convert.h"
#include "orvimage/PixelFormats.h"
#include "orvsupport/OrvComponent.h"
#include "support/GuiTest.h"

#include <QImage>
#include <QMouseEvent>
#include <QWheelEvent>
#include <QWidget>

namespace orvtest {

constexpr std::uint32_t kSurround = 0xff808080;

/// An image with a value of its own in each pixel, small enough to be told apart.
class PatternImage {
public:
    PatternImage(int width, int height, std::uint32_t pixelType = orv::kMono8)
    {
        EXPECT_EQ(
            OrvCreateImage(&m_image, static_cast<std::uint32_t>(width), static_cast<std::uint32_t>(height), pixelType),
            ORV_IMAGE_OK);
        auto *const bytes = static_cast<std::uint8_t *>(m_image->data);
        for (std::size_t i = 0; i < m_image->dataSize; ++i)
            bytes[i] = Value(static_cast<int>(i % m_image->linePitch), static_cast<int>(i / m_image->linePitch));
    }
    ~PatternImage() { OrvReleaseImage(&m_image); }
    PatternImage(const PatternImage &) = delete;
    PatternImage &operator=(const PatternImage &) = delete;

    static std::uint8_t Value(int x, int y) { return static_cast<std::uint8_t>(x * 7 + y * 13); }
    /// Colour of a Mono8 pixel.
    static std::uint32_t Colour(int x, int y) { return 0xff000000U | Value(x, y) * 0x010101U; }

    _OrvImage *get() const { return m_image; }
    _OrvImage *operator->() const { return m_image; }

private:
    _OrvImage *m_image = nullptr;
};

struct DisplayDeleter {
    void operator()(OrvDisplay *display) const { OrvDisplay::DeleteComponent(display); }
};
using DisplayPointer = std::unique_ptr<OrvDisplay, DisplayDeleter>;

/// Counts the paint events of a widget, and can say that none comes any more.
class PaintCounter : public QObject {
public:
    int Count() const { return m_count; }

protected:
    bool eventFilter(QObject *, QEvent *event) override
    {
        m_count += event->type() == QEvent::Paint ? 1 : 0;
        return false;
    }

private:
    int m_count = 0;
};

/// A shown widget with a display on it, and the window's pixels as the user sees them.
class DisplayFixture : public testing::Test {
protected:
    void ShowWidget(int width, int height)
    {
        m_widget = std::make_unique<QWidget>();
        m_widget->resize(width, height);
        m_display.reset(OrvDisplay::CreateComponent());
        ASSERT_EQ(m_display->Initialize(m_widget.get(), "auto", 0), 0);
        m_widget->installEventFilter(&m_paints);
        m_widget->show();
        Settle();
    }

    /// Lets everything that was asked for happen.
    static void Settle()
    {
        for (int round = 0; round < 5; ++round) {
            QCoreApplication::sendPostedEvents();
            QCoreApplication::processEvents();
        }
    }

    int Show(const PatternImage &image)
    {
        const int status = m_display->DisplayVideo(image.get());
        Settle();
        return status;
    }

    QImage Seen()
    {
        Settle();
        return m_widget->grab().toImage().convertToFormat(QImage::Format_RGB32);
    }
    std::uint32_t SeenAt(int x, int y) { return Seen().pixel(x, y); }

    void Set(const char *name, long value)
    {
        EXPECT_EQ(m_display->GetComponent()->SetParamInt(const_cast<char *>(name), value), 0U) << name;
    }
    void SetFloat(const char *name, double value)
    {
        EXPECT_EQ(m_display->GetComponent()->SetParamFloat(const_cast<char *>(name), value), 0U) << name;
    }
    void SetText(const char *name, std::string text)
    {
        EXPECT_EQ(m_display->GetComponent()->SetParamString(const_cast<char *>(name), text.data()), 0U) << name;
    }
    std::uint32_t Run(const char *name) { return m_display->GetComponent()->RunCommand(const_cast<char *>(name)); }
    long Get(const char *name)
    {
        long value = -1;
        EXPECT_EQ(m_display->GetComponent()->GetParamInt(const_cast<char *>(name), &value), 0U) << name;
        return value;
    }
    double GetFloat(const char *name)
    {
        double value = -1;
        EXPECT_EQ(m_display->GetComponent()->GetParamFloat(const_cast<char *>(name), &value), 0U) << name;
        return value;
    }

    void Wheel(int x, int y, int angle, Qt::KeyboardModifiers modifiers)
    {
        QWheelEvent event(QPointF(x, y), m_widget->mapToGlobal(QPoint(x, y)), QPoint(), QPoint(0, angle), Qt::NoButton,
                          modifiers, Qt::NoScrollPhase, false);
        QCoreApplication::sendEvent(m_widget.get(), &event);
    }

    void Mouse(QEvent::Type type, int x, int y, Qt::MouseButton button)
    {
        const bool isUp = type == QEvent::MouseButtonRelease;
        QMouseEvent event(type, QPointF(x, y), type == QEvent::MouseMove ? Qt::NoButton : button,
                          isUp ? Qt::NoButton : button, Qt::NoModifier);
        QCoreApplication::sendEvent(m_widget.get(), &event);
    }

    std::unique_ptr<QWidget> m_widget;
    PaintCounter m_paints;
    DisplayPointer m_display;
};

} // namespace orvtest
