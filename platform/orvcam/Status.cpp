#include "orvcam/OrvStatus.h"

namespace {

struct StatusText {
    int status;
    const char *text;
};

constexpr StatusText kStatusTexts[] = {
    {ORV_CAM_OK, "Done."},
    {ORV_CAM_ERR_UNKNOWN, "Unknown error."},
    {ORV_CAM_ERR_INVALID_PARAMETER, "The call was made with an invalid argument."},
    {ORV_CAM_ERR_OUT_OF_MEMORY, "There is not enough memory, or another resource of the system is used up."},
    {ORV_CAM_ERR_NOT_IMPLEMENTED, "The camera or its driver does not offer this."},
    {ORV_CAM_ERR_TIMEOUT, "Nothing came within the time allowed."},
    {ORV_CAM_ERR_ABORTED, "The wait was ended by the program."},
    {ORV_CAM_ERR_IO, "The camera did not answer or answered with an error."},
    {ORV_CAM_ERR_ACCESS_DENIED, "The camera does not allow this now."},
    {ORV_CAM_ERR_BUSY, "The camera is in use by another program."},
    {ORV_CAM_ERR_DEVICE_LOST, "The connection to the camera was lost."},
    {ORV_CAM_ERR_NOT_FOUND, "No such camera was found."},
    {ORV_CAM_ERR_UNREACHABLE, "The camera's address does not fit the network interface."},
    {ORV_CAM_ERR_NO_PRODUCER, "No camera driver (GenTL producer) could be loaded."},
    {ORV_CAM_ERR_PRODUCER, "The camera driver (GenTL producer) failed."},
    {ORV_CAM_ERR_FILE, "The file could not be read or written, or is no camera configuration."},
    {ORV_CAM_ERR_INVALID_STATE, "This is not possible in the present state."},
    {ORV_CAM_ERR_BUFFER_TOO_SMALL, "The buffers are too small for the camera's images."},
    {ORV_CAM_ERR_NO_STREAM, "The camera has no image stream."},
    {ORV_CAM_ERR_NO_PAYLOAD_SIZE, "The camera does not tell the size of its images."},
    {ORV_CAM_ERR_GENICAM, "The camera's features could not be set or read."},
    {ORV_CAM_ERR_XML, "The camera's description is missing or unusable."},
    {ORV_CAM_ERR_WRONG_TYPE, "The feature is of another kind."},
    {ORV_CAM_ERR_OUT_OF_RANGE, "The value is outside of the feature's range."},
    {ORV_CAM_ERR_NOT_WRITABLE, "The feature cannot be written now."},
    {ORV_CAM_ERR_FEATURE_NOT_PRESENT, "The camera has no such feature."},
    {ORV_CAM_ERR_NOT_AVAILABLE, "The feature is not available now."},
    {ORV_CAM_ERR_NOT_READABLE, "The feature cannot be read."},
};

} // namespace

const char *OrvCam_StatusText(int status)
{
    for (const StatusText &row : kStatusTexts) {
        if (row.status == status)
            return row.text;
    }
    return "Unknown error.";
}
