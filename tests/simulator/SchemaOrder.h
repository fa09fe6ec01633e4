#pragma once

#include "tests/simulator/XmlTree.h"

#include <string>
#include <vector>

namespace orvsim {

/// Whether the order of such a node (GenApi 1.1) is known here.
bool IsNodeTag(const std::string &tag);

/// What stands in the wrong place, twice, or is missing among the children of a node; empty when the schema's order is
/// kept. Consumers that check the schema refuse the whole file otherwise.
std::vector<std::string> OrderProblems(const XmlElement &node);

/// A text that the schema does not list for that element, as "Visibility" Everybody.
std::vector<std::string> SpellingProblems(const XmlElement &node);

} // namespace orvsim
