#pragma once

#include "base/Mutex.h"
#include "panels/ParamLinks.h"

#include <QDockWidget>
#include <QMainWindow>
#include <QPointer>

#include <atomic>
#include <map>

class QCheckBox;
class QGroupBox;
class QLineEdit;
class QSettings;
class QTableView;
class QTimer;
class Session;
struct _OrvStParam;

/// Base of every dock panel: binds child widgets to named parameters of components, both ways.
///
/// The panel's name is the object name of the menu action that shows and hides it. Bound widgets are children of the
/// panel with object names of their own. A change of a parameter refreshes the first widget bound to its name, on the
/// panel's timer or, for a panel without one, at once. An edit is written through the component and nothing is read
/// back: a corrected value comes as a change of its own.
///
/// Life: made on the main window and destroyed with it. Components must outlive their bindings: a panel whose session
/// changes calls ClearParamLinks(), binds the new components and only then hands on to PlayerPanel::SetCurrentSession,
/// which refreshes every binding.
///
/// Threads: GUI thread, except OnParamChanged, UpdateFromComponentAsync, GetParamForControl, GetControlForParam,
/// HasParam and the signal enableControl, which any thread may use.
class PlayerPanel : public QDockWidget {
    Q_OBJECT
public:
    /// \param updatePeriodMs  Period of the refresh in milliseconds; 0: no timer, changes are shown at once.
    PlayerPanel(QMainWindow *mainWindow, const QString &name, int updatePeriodMs);
    ~PlayerPanel() override;

    /// Keeps the session (null: none) and refreshes every binding.
    virtual void SetCurrentSession(Session *session);
    virtual void UpdateAll();
    virtual bool SaveStateToGlobalSettings(QSettings *settings);
    virtual bool SaveStateToSessionSettings(QSettings *settings, const QString &group);
    virtual bool LoadStateFromGlobalSettings(QSettings *settings);
    virtual bool LoadStateFromSessionSettings(QSettings *settings, const QString &group);
    virtual void OnCameraParamUpdated(const QString &name);
    /// False skips this tick of the timer; what waits to be shown goes on waiting.
    virtual bool UpdateSelfByTimer();
    /// \param param, format  Texts that outlive the panel, normally literals.
    virtual bool AddParamLink(const char *param, QWidget *control, OrvComponent *component, int row,
                              const char *format);

    /// The first live panel of that name, or null.
    static PlayerPanel *GetPanel(const QString &name);
    /// Change callback for the parameters of every component. Panels compare the name only, not the component.
    static int OnParamChanged(unsigned int reason, _OrvStParam *param);

    // Bindings. Each makes the link, connects the widget and shows the present value; read-only edits never write.
    // Integer and float edits write 0 for a text that is no number.
    bool AddIntegerEdit(QLineEdit *edit, const char *param, const char *format, OrvComponent *component);
    bool AddFloatEdit(QLineEdit *edit, const char *param, const char *format, OrvComponent *component);
    bool AddStringEdit(QLineEdit *edit, const char *param, OrvComponent *component);
    bool AddBoolCheckBox(QCheckBox *box, const char *param, OrvComponent *component);
    bool AddBoolCheckGroupBox(QGroupBox *box, const char *param, OrvComponent *component);
    /// Appends a row to the view's OrvParamTableModel, labelled by the parameter when `label` is null. A view without
    /// such a model is left alone.
    bool AddTableParam(QTableView *view, const char *param, OrvComponent *component, const char *label);

    /// The first binding of that widget or parameter; a link without component when there is none.
    ParamLink GetParamForControl(const QString &controlName) const { return m_links.ForControl(controlName); }
    ParamLink GetControlForParam(const QString &param) const { return m_links.ForParam(param); }
    bool HasParam(const QString &param) const { return m_links.HasParam(param); }

    /// Shows a parameter's value in the first widget bound to it; an empty name shows all.
    void UpdateFromComponent(const QString &param);
    /// The same on the next tick of the timer.
    void UpdateFromComponentAsync(const QString &param);

    /// Sets the check mark of every menu action of that object name.
    void CheckActionMenu(const QString &actionName, bool checked);

    const QString &GetPanelName() const { return m_name; }
    Session *GetCurrentSession() const { return m_session; }

signals:
    /// Emitted from any thread to enable or disable a control on the GUI thread.
    void enableControl(QObject *control, bool enabled);

public slots:
    void enableControlSlot(QObject *control, bool enabled);
    void UpdateByTimer();

protected slots:
    void IntegerEditChanged();
    void FloatEditChanged();
    void StringEditChanged();
    void CheckBoxChanged(int state);
    void CheckGroupBoxChanged(bool on);

protected:
    void closeEvent(QCloseEvent *event) override;
    void showEvent(QShowEvent *event) override;
    void hideEvent(QHideEvent *event) override;

    /// Unbinds everything: links, rows of parameter tables, and what waits to be shown. Widgets keep their last value
    /// and can be bound again.
    void ClearParamLinks();

    /// Null once the main window is being destroyed.
    QMainWindow *MainWindow() const;

private slots:
    void ShowRequested(); // every parameter that waits

private:
    /// Queues a changed parameter for a later refresh. Any thread. True asks the caller, who is then on the GUI thread,
    /// to call UpdateFromComponent instead.
    bool NoteChange(const QString &param);
    bool IsLive() const EXCLUDES(s_panelsMutex);
    void ShowValue(const ParamLink &link);
    /// The link of the widget that sent the signal being handled, and that widget; false when the edit goes nowhere.
    template <class Widget> bool FindSender(Widget **widget, ParamLink *link) const;

    // Keys stay when their panel is gone, with a null value: a look-up of a dead panel's address then yields null.
    // Taken before the lock of a panel's links, never while a widget, a component or another callback is called.
    static orv::Mutex s_panelsMutex;
    static std::map<PlayerPanel *, PlayerPanel *> s_panels GUARDED_BY(s_panelsMutex);

    QPointer<QWidget> m_mainWindow; // a plain widget while it is being destroyed
    const QString m_name;
    Session *m_session = nullptr;
    ParamLinks m_links;
    QTimer *m_updateTimer = nullptr;       // child; null without a period
    std::atomic<bool> m_showPosted{false}; // a queued ShowRequested is on its way
};
