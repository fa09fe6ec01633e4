#pragma once

/// Status codes of the camera library, signed 32-bit; 0 is success.
enum OrvCamStatus : int {
    ORV_CAM_OK = 0,
    ORV_CAM_ERR_UNKNOWN = -40001,
    ORV_CAM_ERR_INVALID_PARAMETER = -40002,
    ORV_CAM_ERR_OUT_OF_MEMORY = -40003,
    ORV_CAM_ERR_NOT_IMPLEMENTED = -40004,
    ORV_CAM_ERR_TIMEOUT = -40005,
    ORV_CAM_ERR_ABORTED = -40006, ///< a wait was ended from outside
    ORV_CAM_ERR_IO = -40010,      ///< the camera answered with an error, or, by some drivers, not at all
    ORV_CAM_ERR_ACCESS_DENIED = -40011,
    ORV_CAM_ERR_BUSY = -40012, ///< held by another program
    ORV_CAM_ERR_DEVICE_LOST = -40013,
    ORV_CAM_ERR_NOT_FOUND = -40014,
    ORV_CAM_ERR_UNREACHABLE = -40015, ///< its address does not fit the interface that it was seen on
    ORV_CAM_ERR_NO_PRODUCER = -40020,
    ORV_CAM_ERR_PRODUCER = -40021, ///< the producer failed in a way that has no code of its own
    ORV_CAM_ERR_FILE = -40030,     ///< a file could not be read or written, or is no configuration file
    ORV_CAM_ERR_INVALID_STATE = -40051,
    ORV_CAM_ERR_BUFFER_TOO_SMALL = -40052,
    ORV_CAM_ERR_NO_STREAM = -40053,
    ORV_CAM_ERR_NO_PAYLOAD_SIZE = -40054,
    ORV_CAM_ERR_GENICAM = -40200,
    ORV_CAM_ERR_XML = -40201, ///< the camera's description is missing or unusable
    ORV_CAM_ERR_WRONG_TYPE = -40202,
    ORV_CAM_ERR_OUT_OF_RANGE = -40203,
    ORV_CAM_ERR_NOT_WRITABLE = -40204,
    ORV_CAM_ERR_FEATURE_NOT_PRESENT = -40205,
    ORV_CAM_ERR_NOT_AVAILABLE = -40206,
    ORV_CAM_ERR_NOT_READABLE = -40207
};

/// One sentence a person would read, without the number. Never null.
const char *OrvCam_StatusText(int status);
