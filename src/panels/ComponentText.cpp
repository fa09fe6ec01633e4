#include "panels/ComponentText.h"

#include "orvsupport/OrvComponent.h"
#include "orvsupport/OrvParamStorage.h"

namespace {

constexpr std::uint32_t kReasonMask = 0xFFFF;      // without the component's identifier
constexpr unsigned int kLongestText = 1024 * 1024; // bytes; no widget shows more

template <class Read> QString ReadText(unsigned int expectedBytes, Read read)
{
    QByteArray buffer(static_cast<int>(expectedBytes), '\0');
    unsigned int length = expectedBytes;
    const std::uint32_t status = read(buffer.data(), &length);
    const bool isTooSmall = (status & kReasonMask) == (ORV_PARAM_BUFFER_TOO_SMALL & kReasonMask);
    if (isTooSmall && length > expectedBytes && length <= kLongestText) {
        buffer.fill('\0', static_cast<int>(length));
        read(buffer.data(), &length); // grown longer meanwhile: stays empty until the next change is shown
    }
    return QString::fromLatin1(buffer.constData());
}

} // namespace

QString ReadFormatted(OrvComponent *component, QByteArray param, const char *format, unsigned int expectedBytes)
{
    return ReadText(expectedBytes, [&](char *buffer, unsigned int *length) {
        return component->GetParamAsString(param.data(), buffer, length, format);
    });
}

QString ReadString(OrvComponent *component, QByteArray param, unsigned int expectedBytes)
{
    return ReadText(expectedBytes, [&](char *buffer, unsigned int *length) {
        return component->GetParamString(param.data(), buffer, length);
    });
}
