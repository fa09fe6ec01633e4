#pragma once

#include <QByteArray>
#include <QString>

class OrvComponent;

/// A parameter's value as widgets show it. GUI thread.
///
/// Bytes are taken as Latin-1 up to the first zero. A component that refuses leaves the text empty. A value longer than
/// `expectedBytes`, terminator included, is read again with the room that the component asks for: cut or emptied, it
/// would be written back so by the next edit.
QString ReadFormatted(OrvComponent *component, QByteArray param, const char *format, unsigned int expectedBytes);
QString ReadString(OrvComponent *component, QByteArray param, unsigned int expectedBytes);
