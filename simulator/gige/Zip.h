#pragma once

#include <string>

namespace orvsim {

/// An archive with one deflated file, sizes and check sum in the local header too: readers that go by that one alone
/// can open it. The same content gives the same bytes.
///
/// \return empty when the compressor fails (out of memory).
std::string MakeZip(const std::string &fileName, const std::string &content);

} // namespace orvsim
