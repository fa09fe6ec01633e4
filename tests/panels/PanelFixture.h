#pragma once

#include "orvsupport/OrvComponentImp.h"
#include "panels/PlayerPanel.h"

#include <QMainWindow>
#include <QMap>
#include <QThread>

#include <atomic>
#include <cstring>

/// A worker as panels see it: parameters of every type that tell the panels of their changes.
class Component : public OrvComponentImp {
public:
    Component() : OrvComponentImp(0xCA)
    {
        Declare("Count", ORV_PARAM_INT, [this](_OrvStParam &param) { param.asInt = {{}, 0, -100, 100, 0, &m_count}; });
        Declare("Other", ORV_PARAM_INT, [this](_OrvStParam &param) { param.asInt.value = &m_other; });
        Declare("Rate", ORV_PARAM_FLOAT, [this](_OrvStParam &param) { param.asFloat = {{}, 0, 0, 120, 0, &m_rate}; });
        Declare("FpsAvg", ORV_PARAM_FLOAT, [this](_OrvStParam &param) { param.asFloat.value = &m_fps; });
        Declare("Enabled", ORV_PARAM_BOOL, [this](_OrvStParam &param) { param.asBool.value = &m_enabled; });
        Declare("Path", ORV_PARAM_STRING, [this](_OrvStParam &param) {
            param.asString.value = m_path;
            param.asString.capacity = sizeof m_path;
        });
    }

    std::uint32_t GetParamAsString(char *name, char *buffer, unsigned int *length, const char *format) override
    {
        ++reads[name];
        if (QThread::currentThread() != m_home)
            ++foreignReads;
        return OrvComponentImp::GetParamAsString(name, buffer, length, format);
    }
    std::uint32_t SetParamInt(char *name, long value) override
    {
        ++writes;
        return OrvComponentImp::SetParamInt(name, value);
    }

    void Set(const char *name, const char *text)
    {
        SetParamAsString(const_cast<char *>(name), const_cast<char *>(text));
    }
    std::string Text(const char *name)
    {
        char buffer[2048] = "";
        unsigned int length = sizeof buffer;
        OrvComponentImp::GetParamAsString(const_cast<char *>(name), buffer, &length, nullptr);
        return buffer;
    }

    QMap<QString, int> reads; ///< by parameter, as text; GUI thread
    int writes = 0;           ///< of integers through the interface; GUI thread
    std::atomic<int> foreignReads{0};

private:
    template <class Fill> void Declare(const char *name, OrvParamType type, Fill fill)
    {
        _OrvStParam param{};
        param.type = type;
        param.access = ORV_PARAM_ACCESS_RW;
        param.onChange = PlayerPanel::OnParamChanged;
        std::strncpy(param.name, name, sizeof param.name - 1);
        fill(param);
        m_params.AddParam(&param);
    }

    QThread *const m_home = QThread::currentThread();
    std::int64_t m_count = 5;
    std::int64_t m_other = 6;
    double m_rate = 29.97;
    double m_fps = 30;
    bool m_enabled = false;
    char m_path[2000] = "/home";
};

/// A panel with a place for widgets and its protected side open.
class Panel : public PlayerPanel {
public:
    static constexpr int kNever = 1000000; ///< a period in milliseconds that no test lives to see

    explicit Panel(QMainWindow *window, const char *name = "actionTest", int periodMs = 0)
        : PlayerPanel(window, name, periodMs)
    {
        setObjectName(QString(name) + "Panel");
        setWidget(new QWidget(this));
    }

    /// A child widget to bind.
    template <class Widget> Widget *Make(const char *name)
    {
        auto *const widget = new Widget(this->widget());
        widget->setObjectName(name);
        return widget;
    }

    using PlayerPanel::ClearParamLinks;

    bool UpdateSelfByTimer() override { return takesTicks; }

    bool takesTicks = true;
};
