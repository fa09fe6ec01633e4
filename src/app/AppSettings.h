#pragma once

#include <QObject>
#include <QSettings>
#include <QString>

#include <map>
#include <memory>

class OrvComponent;

/// The application's persistent settings: one store for the application as a whole and one per camera.
///
/// A store is a settings file of the platform's default format and place under the organisation "Zelkor". A camera's
/// store is named by its session (see StoreName()). A component lies in a store as one group with one key per parameter
/// and the parameter's text form as value; what the file holds besides, or holds wrongly, is passed over.
///
/// Threads: GUI thread.
class AppSettings : public QObject {
    Q_OBJECT
public:
    explicit AppSettings(QObject *parent = nullptr);
    ~AppSettings() override;

    /// The application's own store: window and panel geometry.
    QSettings &Application() { return *m_application; }

    /// The store of that session, made on first request. Stays the property of this object, the same on every call.
    QSettings *GetSessionSettings(const QString &sessionName);

    // Both return false when any parameter failed, and go on with the next one. Only the low 16 bits of a component's
    // status tell a failure.

    /// Writes every parameter of the component into the group.
    bool SaveOrvComponentSettings(QSettings *settings, QString group, OrvComponent *component);
    /// Sets every parameter that the group has a value for; those that are missing or do not fit keep their value.
    bool LoadOrvComponentSettings(QSettings *settings, QString group, OrvComponent *component);

    /// The name of a session's store, fit for a file name.
    ///
    /// A session name holds texts that the camera made up. Slashes, backslashes, control characters, '%' and a leading
    /// dot become '%' and two hexadecimal digits; a result beyond 180 bytes of UTF-8 is cut there and closed by '~' and
    /// 16 digits of a hash of the whole; an empty name becomes "%". Names without any of these stay as they are, and
    /// different names never share a store.
    static QString StoreName(const QString &sessionName);

private:
    std::unique_ptr<QSettings> m_application;
    std::map<QString, std::unique_ptr<QSettings>> m_sessions; // by session name
};
