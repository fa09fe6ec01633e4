#pragma once

#include <string>

/// The colour map that marks both ends of the range: levels up to `first` blue, levels above `last` red, grey between.
///
/// \return One "r,g,b" entry per level, 0 to 1, separated by ";", with four decimals, or six for more than 256 levels.
///         A point under every locale.
/// \param levels  At least 2.
std::string FalseColourMap(long first, long last, long levels);
