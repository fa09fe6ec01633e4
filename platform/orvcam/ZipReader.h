#pragma once

#include <cstddef>
#include <string>

namespace orv::cam {

/// Whether the bytes begin like a zip archive.
bool LooksLikeZip(const std::string &bytes);

/// Unpacks the camera description of a zip archive: the first entry that ends in ".xml" and is not one of the companion
/// files under "__MACOSX".
///
/// Goes by the central directory, so archives written to a stream (sizes only behind the data) and archives with bytes
/// before or behind them work. Stored and deflated entries; the checksum is verified.
/// \param maxBytes  refuses an entry that unpacks to more.
/// \return false with one sentence in `*error`.
bool UnzipDescription(const std::string &archive, std::size_t maxBytes, std::string *xml, std::string *error);

} // namespace orv::cam
