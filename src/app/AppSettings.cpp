#include "app/AppSettings.h"

#include "orvsupport/OrvComponent.h"

#include <QByteArray>
#include <QCryptographicHash>
#include <QVariant>

namespace {

constexpr int kNameBytes = 256;
constexpr int kValueBytes = 1024;
constexpr int kLongestStoreName = 180; // bytes; leaves room for the suffixes of settings, lock and temporary files
constexpr int kHashDigits = 16;

QString Organisation()
{
    return QStringLiteral("Zelkor");
}

/// High bits of a component's status say who and how, the low half whether.
bool Failed(std::uint32_t status)
{
    return (status & 0xFFFF) != 0;
}

/// A name or value read from a component; null when the component refuses.
template <int Capacity, class Read> QByteArray ReadText(Read read)
{
    QByteArray buffer(Capacity, '\0');
    unsigned int length = Capacity;
    if (Failed(read(buffer.data(), &length)))
        return {};
    return QByteArray(buffer.constData()); // up to the first zero byte, and never null
}

QByteArray ParamName(OrvComponent *component, unsigned int index)
{
    return ReadText<kNameBytes>(
        [&](char *buffer, unsigned int *length) { return component->GetParamName(index, buffer, length); });
}

bool SaveParam(QSettings *settings, OrvComponent *component, unsigned int index)
{
    QByteArray name = ParamName(component, index);
    if (name.isNull())
        return false;
    const QByteArray value = ReadText<kValueBytes>([&](char *buffer, unsigned int *length) {
        return component->GetParamAsString(name.data(), buffer, length, nullptr);
    });
    if (value.isNull())
        return false;
    settings->setValue(QString::fromUtf8(name), QString::fromUtf8(value));
    return true;
}

/// False for what only a damaged or hand-edited file holds: lists, and values of no type.
bool IsSingleText(const QVariant &value)
{
    return value.isValid() && value.canConvert<QString>();
}

bool LoadParam(QSettings *settings, OrvComponent *component, unsigned int index)
{
    QByteArray name = ParamName(component, index);
    if (name.isNull())
        return false;
    const QString key = QString::fromUtf8(name);
    if (key.isEmpty() || !settings->contains(key))
        return true;
    const QVariant value = settings->value(key);
    if (!IsSingleText(value))
        return false;
    QByteArray text = value.toString().toUtf8();
    return !Failed(component->SetParamAsString(name.data(), text.data()));
}

/// Runs `handle` for every parameter with the group open.
template <class Handle>
bool ForEachParam(QSettings *settings, const QString &group, OrvComponent *component, Handle handle)
{
    const unsigned int count = component->GetParamCount();
    settings->beginGroup(group);
    bool result = true;
    for (unsigned int index = 0; index < count; ++index)
        result = handle(settings, component, index) && result;
    settings->endGroup();
    return result;
}

bool IsUnsafeInFileName(QChar character, bool isFirst)
{
    return character.category() == QChar::Other_Control || character == '/' || character == '\\' || character == '%' ||
           (isFirst && character == '.');
}

QString Escaped(QChar character)
{
    return QStringLiteral("%%1").arg(character.unicode(), 2, 16, QLatin1Char('0'));
}

/// The longest beginning of at most that many bytes of UTF-8 that cuts no character in two.
QString Beginning(const QString &text, int bytes)
{
    QString beginning = text.left(bytes);
    while (beginning.toUtf8().size() > bytes)
        beginning.chop(1);
    if (!beginning.isEmpty() && beginning.at(beginning.size() - 1).isHighSurrogate())
        beginning.chop(1);
    return beginning;
}

} // namespace

AppSettings::AppSettings(QObject *parent)
    : QObject(parent), m_application(std::make_unique<QSettings>(Organisation(), QStringLiteral("OrvPlayer")))
{
}

AppSettings::~AppSettings() = default;

QSettings *AppSettings::GetSessionSettings(const QString &sessionName)
{
    std::unique_ptr<QSettings> &store = m_sessions[sessionName];
    if (!store)
        store = std::make_unique<QSettings>(Organisation(), StoreName(sessionName));
    return store.get();
}

bool AppSettings::SaveOrvComponentSettings(QSettings *settings, QString group, OrvComponent *component)
{
    return ForEachParam(settings, group, component, SaveParam);
}

bool AppSettings::LoadOrvComponentSettings(QSettings *settings, QString group, OrvComponent *component)
{
    return ForEachParam(settings, group, component, LoadParam);
}

QString AppSettings::StoreName(const QString &sessionName)
{
    QString name;
    for (const QChar character : sessionName)
        name += IsUnsafeInFileName(character, name.isEmpty()) ? Escaped(character) : QString(character);
    if (name.isEmpty())
        return QStringLiteral("%");
    if (name.toUtf8().size() <= kLongestStoreName)
        return name;
    const QByteArray hash = QCryptographicHash::hash(sessionName.toUtf8(), QCryptographicHash::Sha256).toHex();
    return Beginning(name, kLongestStoreName - kHashDigits - 1) + '~' + QString::fromLatin1(hash.left(kHashDigits));
}
