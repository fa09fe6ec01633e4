#pragma once

#include "base/Bytes.h"
#include "producer/Transport.h"

#include <optional>
#include <string>

namespace nuvark::gige {

/// Makes sense of a URL register, with the tolerance that cameras in the field need: any case, slashes after the
/// scheme, blanks, 0x, a ?SchemaVersion tail. Nothing when it is empty, of another scheme or of an implausible size.
std::optional<DescriptionUrl> ParseDescriptionUrl(const std::string &text);

/// The schema version that the head of a description states; `bytes` may be plain XML or the start of a zip archive.
struct SchemaVersion {
    int major = 0;
    int minor = 0;
};
std::optional<SchemaVersion> FindSchemaVersion(orv::ByteSpan bytes);

} // namespace nuvark::gige
