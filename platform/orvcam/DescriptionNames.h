#pragma once

#include "orvcam/Description.h"

#include <string>

/// The element names of GenICam descriptions.
namespace orv::cam {

/// NodeKind::Other for elements that are no nodes, and for kinds that the GenApi library does not know.
NodeKind KindOf(const std::string &tag);
/// What a reference element stands for; null for other elements.
const Link *FindLink(const std::string &tag);
bool IsRegister(NodeKind kind);
/// The first of the values for anything unknown, too.
OrvCam::Visibility VisibilityOf(const std::string &text);
OrvCam::Representation RepresentationOf(const std::string &text);

} // namespace orv::cam
