#pragma once

#include "orvcam/FeatureArrayImp.h"
#include "orvcam/OrvCam.h"

#include <string>
#include <utility>
#include <vector>

namespace orv::cam {

/// A camera configuration file: UTF-8 XML with the camera it was saved from and one feature per line. Numbers are
/// written the same way under every locale.
class FeatureFile {
public:
    /// \return false with a sentence in `*error` for what is no such file, or one of a later format.
    bool Read(const std::string &path, std::string *error);

    /// "Nuvark Cam2 (SN 42)"
    std::string CameraName() const;
    /// Whether it was saved from that very camera; without a serial number, from one of the same make.
    bool IsOf(const OrvCam::DeviceDescription &device) const;
    /// Sets the features in the file's order, in up to three rounds: limits may depend on features further down.
    /// \return ORV_CAM_ERR_GENICAM when some could not be set; the log names them.
    int Apply(FeatureArrayImp &features) const;

private:
    std::string m_vendor;
    std::string m_model;
    std::string m_serial;
    std::string m_descriptionVersion;
    std::vector<std::pair<std::string, std::string>> m_features; ///< name and value
};

/// Writes all settings of a camera: what the description marks as streamable and no selector selects. A description
/// that marks nothing (early ones) is taken by its categories. The file is complete or as it was before.
/// \return ORV_CAM_ERR_FILE, or ORV_CAM_ERR_GENICAM when the camera did not answer.
int SaveFeatureFile(const std::string &path, FeatureArrayImp &features, const OrvCam::DeviceDescription &device);

} // namespace orv::cam
