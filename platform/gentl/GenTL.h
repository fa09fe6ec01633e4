#pragma once

#include <stddef.h>
#include <stdint.h>

/// The GenICam GenTL 1.6 C interface: types, constants, structures and functions, with the standard's own names.
///
/// Both sides include it. A consumer takes types and constants and fills a table of function pointers from
/// GENTL_FUNCTIONS (gentl/Library.h does); it must never link against a producer or export these names. A producer
/// defines GENTL_DECLARE_FUNCTIONS before the include and gets the prototypes of its exports.
///
/// Enumerations travel as int32_t, whatever the compiler would choose for an enum. Structures are byte-packed.

#if defined(__i386__) && !defined(_WIN32)
#define GC_CALLTYPE __attribute__((stdcall))
#else
#define GC_CALLTYPE
#endif

#if defined(_WIN32)
#define GENTL_EXPORT __declspec(dllexport)
#else
#define GENTL_EXPORT __attribute__((visibility("default")))
#endif

typedef int32_t GC_ERROR;
typedef uint8_t bool8_t; ///< 0 is false, anything else true

typedef void *TL_HANDLE;
typedef void *IF_HANDLE;
typedef void *DEV_HANDLE;
typedef void *DS_HANDLE;
typedef void *BUFFER_HANDLE;
typedef void *EVENT_HANDLE;
typedef void *PORT_HANDLE;     ///< a module's handle, the remote port's, or a buffer's
typedef void *EVENTSRC_HANDLE; ///< a module's or a buffer's handle

#define GENTL_INVALID_HANDLE NULL
#define GENTL_INFINITE 0xFFFFFFFFFFFFFFFFULL

enum {
    GC_ERR_SUCCESS = 0,
    GC_ERR_ERROR = -1001,
    GC_ERR_NOT_INITIALIZED = -1002,
    GC_ERR_NOT_IMPLEMENTED = -1003,
    GC_ERR_RESOURCE_IN_USE = -1004,
    GC_ERR_ACCESS_DENIED = -1005,
    GC_ERR_INVALID_HANDLE = -1006,
    GC_ERR_INVALID_ID = -1007,
    GC_ERR_NO_DATA = -1008,
    GC_ERR_INVALID_PARAMETER = -1009,
    GC_ERR_IO = -1010,
    GC_ERR_TIMEOUT = -1011,
    GC_ERR_ABORT = -1012,
    GC_ERR_INVALID_BUFFER = -1013,
    GC_ERR_NOT_AVAILABLE = -1014,
    GC_ERR_INVALID_ADDRESS = -1015,
    GC_ERR_BUFFER_TOO_SMALL = -1016,
    GC_ERR_INVALID_INDEX = -1017,
    GC_ERR_PARSING_CHUNK_DATA = -1018,
    GC_ERR_INVALID_VALUE = -1019,
    GC_ERR_RESOURCE_EXHAUSTED = -1020,
    GC_ERR_OUT_OF_MEMORY = -1021,
    GC_ERR_BUSY = -1022,
    GC_ERR_AMBIGUOUS = -1023,
    GC_ERR_CUSTOM_ID = -10000 ///< this and everything below belongs to the producer
};

typedef int32_t INFO_DATATYPE;
enum {
    INFO_DATATYPE_UNKNOWN = 0,
    INFO_DATATYPE_STRING = 1,
    INFO_DATATYPE_STRINGLIST = 2,
    INFO_DATATYPE_INT16 = 3,
    INFO_DATATYPE_UINT16 = 4,
    INFO_DATATYPE_INT32 = 5,
    INFO_DATATYPE_UINT32 = 6,
    INFO_DATATYPE_INT64 = 7,
    INFO_DATATYPE_UINT64 = 8,
    INFO_DATATYPE_FLOAT64 = 9,
    INFO_DATATYPE_PTR = 10,
    INFO_DATATYPE_BOOL8 = 11,
    INFO_DATATYPE_SIZET = 12,
    INFO_DATATYPE_BUFFER = 13,
    INFO_DATATYPE_PTRDIFF = 14,
    INFO_DATATYPE_CUSTOM_ID = 1000
};

typedef int32_t TL_CHAR_ENCODING;
enum { TL_CHAR_ENCODING_ASCII = 0, TL_CHAR_ENCODING_UTF8 = 1 };

typedef int32_t TL_INFO_CMD;
enum {
    TL_INFO_ID = 0,
    TL_INFO_VENDOR = 1,
    TL_INFO_MODEL = 2,
    TL_INFO_VERSION = 3,
    TL_INFO_TLTYPE = 4,
    TL_INFO_NAME = 5,
    TL_INFO_PATHNAME = 6,
    TL_INFO_DISPLAYNAME = 7,
    TL_INFO_CHAR_ENCODING = 8,
    TL_INFO_GENTL_VER_MAJOR = 9,
    TL_INFO_GENTL_VER_MINOR = 10,
    TL_INFO_CUSTOM_ID = 1000
};

typedef int32_t INTERFACE_INFO_CMD;
enum {
    INTERFACE_INFO_ID = 0,
    INTERFACE_INFO_DISPLAYNAME = 1,
    INTERFACE_INFO_TLTYPE = 2,
    INTERFACE_INFO_CUSTOM_ID = 1000
};

typedef int32_t DEVICE_INFO_CMD;
enum {
    DEVICE_INFO_ID = 0,
    DEVICE_INFO_VENDOR = 1,
    DEVICE_INFO_MODEL = 2,
    DEVICE_INFO_TLTYPE = 3,
    DEVICE_INFO_DISPLAYNAME = 4,
    DEVICE_INFO_ACCESS_STATUS = 5,
    DEVICE_INFO_USER_DEFINED_NAME = 6,
    DEVICE_INFO_SERIAL_NUMBER = 7,
    DEVICE_INFO_VERSION = 8,
    DEVICE_INFO_TIMESTAMP_FREQUENCY = 9,
    DEVICE_INFO_CUSTOM_ID = 1000
};

typedef int32_t DEVICE_ACCESS_FLAGS;
enum {
    DEVICE_ACCESS_UNKNOWN = 0,
    DEVICE_ACCESS_NONE = 1,
    DEVICE_ACCESS_READONLY = 2,
    DEVICE_ACCESS_CONTROL = 3,
    DEVICE_ACCESS_EXCLUSIVE = 4,
    DEVICE_ACCESS_CUSTOM_ID = 1000
};

typedef int32_t DEVICE_ACCESS_STATUS;
enum {
    DEVICE_ACCESS_STATUS_UNKNOWN = 0,
    DEVICE_ACCESS_STATUS_READWRITE = 1,
    DEVICE_ACCESS_STATUS_READONLY = 2,
    DEVICE_ACCESS_STATUS_NOACCESS = 3,
    DEVICE_ACCESS_STATUS_BUSY = 4,
    DEVICE_ACCESS_STATUS_OPEN_READWRITE = 5,
    DEVICE_ACCESS_STATUS_OPEN_READONLY = 6,
    DEVICE_ACCESS_STATUS_CUSTOM_ID = 1000
};

typedef int32_t ACQ_START_FLAGS;
enum { ACQ_START_FLAGS_DEFAULT = 0, ACQ_START_FLAGS_CUSTOM_ID = 1000 };

typedef int32_t ACQ_STOP_FLAGS;
enum { ACQ_STOP_FLAGS_DEFAULT = 0, ACQ_STOP_FLAGS_KILL = 1, ACQ_STOP_FLAGS_CUSTOM_ID = 1000 };

typedef int32_t ACQ_QUEUE_TYPE;
enum {
    ACQ_QUEUE_INPUT_TO_OUTPUT = 0,
    ACQ_QUEUE_OUTPUT_DISCARD = 1,
    ACQ_QUEUE_ALL_TO_INPUT = 2,
    ACQ_QUEUE_UNQUEUED_TO_INPUT = 3,
    ACQ_QUEUE_ALL_DISCARD = 4,
    ACQ_QUEUE_CUSTOM_ID = 1000
};

typedef int32_t STREAM_INFO_CMD;
enum {
    STREAM_INFO_ID = 0,
    STREAM_INFO_NUM_DELIVERED = 1,
    STREAM_INFO_NUM_UNDERRUN = 2,
    STREAM_INFO_NUM_ANNOUNCED = 3,
    STREAM_INFO_NUM_QUEUED = 4,
    STREAM_INFO_NUM_AWAIT_DELIVERY = 5,
    STREAM_INFO_NUM_STARTED = 6,
    STREAM_INFO_PAYLOAD_SIZE = 7,
    STREAM_INFO_IS_GRABBING = 8,
    STREAM_INFO_DEFINES_PAYLOADSIZE = 9,
    STREAM_INFO_TLTYPE = 10,
    STREAM_INFO_NUM_CHUNKS_MAX = 11,
    STREAM_INFO_BUF_ANNOUNCE_MIN = 12,
    STREAM_INFO_BUF_ALIGNMENT = 13,
    STREAM_INFO_FLOW_TABLE = 14,
    STREAM_INFO_GENDC_PREFETCH_DESCRIPTOR = 15,
    STREAM_INFO_CUSTOM_ID = 1000
};

typedef int32_t BUFFER_INFO_CMD;
enum {
    BUFFER_INFO_BASE = 0,
    BUFFER_INFO_SIZE = 1,
    BUFFER_INFO_USER_PTR = 2,
    BUFFER_INFO_TIMESTAMP = 3,
    BUFFER_INFO_NEW_DATA = 4,
    BUFFER_INFO_IS_QUEUED = 5,
    BUFFER_INFO_IS_ACQUIRING = 6,
    BUFFER_INFO_IS_INCOMPLETE = 7,
    BUFFER_INFO_TLTYPE = 8,
    BUFFER_INFO_SIZE_FILLED = 9,
    BUFFER_INFO_WIDTH = 10,
    BUFFER_INFO_HEIGHT = 11,
    BUFFER_INFO_XOFFSET = 12,
    BUFFER_INFO_YOFFSET = 13,
    BUFFER_INFO_XPADDING = 14,
    BUFFER_INFO_YPADDING = 15,
    BUFFER_INFO_FRAMEID = 16,
    BUFFER_INFO_IMAGEPRESENT = 17,
    BUFFER_INFO_IMAGEOFFSET = 18,
    BUFFER_INFO_PAYLOADTYPE = 19,
    BUFFER_INFO_PIXELFORMAT = 20,
    BUFFER_INFO_PIXELFORMAT_NAMESPACE = 21,
    BUFFER_INFO_DELIVERED_IMAGEHEIGHT = 22,
    BUFFER_INFO_DELIVERED_CHUNKPAYLOADSIZE = 23,
    BUFFER_INFO_CHUNKLAYOUTID = 24,
    BUFFER_INFO_FILENAME = 25,
    BUFFER_INFO_PIXEL_ENDIANNESS = 26,
    BUFFER_INFO_DATA_SIZE = 27,
    BUFFER_INFO_TIMESTAMP_NS = 28,
    BUFFER_INFO_DATA_LARGER_THAN_BUFFER = 29,
    BUFFER_INFO_CONTAINS_CHUNKDATA = 30,
    BUFFER_INFO_IS_COMPOSITE = 31,
    BUFFER_INFO_CUSTOM_ID = 1000
};

typedef int32_t BUFFER_PART_INFO_CMD;
enum {
    BUFFER_PART_INFO_BASE = 0,
    BUFFER_PART_INFO_DATA_SIZE = 1,
    BUFFER_PART_INFO_DATA_TYPE = 2,
    BUFFER_PART_INFO_DATA_FORMAT = 3,
    BUFFER_PART_INFO_DATA_FORMAT_NAMESPACE = 4,
    BUFFER_PART_INFO_WIDTH = 5,
    BUFFER_PART_INFO_HEIGHT = 6,
    BUFFER_PART_INFO_XOFFSET = 7,
    BUFFER_PART_INFO_YOFFSET = 8,
    BUFFER_PART_INFO_XPADDING = 9,
    BUFFER_PART_INFO_SOURCE_ID = 10,
    BUFFER_PART_INFO_DELIVERED_IMAGEHEIGHT = 11,
    BUFFER_PART_INFO_REGION_ID = 12,
    BUFFER_PART_INFO_DATA_PURPOSE_ID = 13,
    BUFFER_PART_INFO_CUSTOM_ID = 1000
};

typedef int32_t PAYLOADTYPE_INFO_ID;
enum {
    PAYLOAD_TYPE_UNKNOWN = 0,
    PAYLOAD_TYPE_IMAGE = 1,
    PAYLOAD_TYPE_RAW_DATA = 2,
    PAYLOAD_TYPE_FILE = 3,
    PAYLOAD_TYPE_CHUNK_DATA = 4, ///< given up in 1.5: any type may carry chunks
    PAYLOAD_TYPE_JPEG = 5,
    PAYLOAD_TYPE_JPEG2000 = 6,
    PAYLOAD_TYPE_H264 = 7,
    PAYLOAD_TYPE_CHUNK_ONLY = 8,
    PAYLOAD_TYPE_DEVICE_SPECIFIC = 9,
    PAYLOAD_TYPE_MULTI_PART = 10,
    PAYLOAD_TYPE_GENDC = 11,
    PAYLOAD_TYPE_CUSTOM_ID = 1000
};

typedef int32_t PIXELFORMAT_NAMESPACE_ID;
enum {
    PIXELFORMAT_NAMESPACE_UNKNOWN = 0,
    PIXELFORMAT_NAMESPACE_GEV = 1,
    PIXELFORMAT_NAMESPACE_IIDC = 2,
    PIXELFORMAT_NAMESPACE_PFNC_16BIT = 3,
    PIXELFORMAT_NAMESPACE_PFNC_32BIT = 4,
    PIXELFORMAT_NAMESPACE_CUSTOM_ID = 1000
};

typedef int32_t PIXELENDIANNESS_ID;
enum { PIXELENDIANNESS_UNKNOWN = 0, PIXELENDIANNESS_LITTLE = 1, PIXELENDIANNESS_BIG = 2 };

typedef int32_t PARTDATATYPE_ID;
enum {
    PART_DATATYPE_UNKNOWN = 0,
    PART_DATATYPE_2D_IMAGE = 1,
    PART_DATATYPE_2D_PLANE_BIPLANAR = 2,
    PART_DATATYPE_2D_PLANE_TRIPLANAR = 3,
    PART_DATATYPE_2D_PLANE_QUADPLANAR = 4,
    PART_DATATYPE_3D_IMAGE = 5,
    PART_DATATYPE_3D_PLANE_BIPLANAR = 6,
    PART_DATATYPE_3D_PLANE_TRIPLANAR = 7,
    PART_DATATYPE_3D_PLANE_QUADPLANAR = 8,
    PART_DATATYPE_CONFIDENCE_MAP = 9,
    PART_DATATYPE_JPEG = 10,
    PART_DATATYPE_JPEG2000 = 11,
    PART_DATATYPE_CUSTOM_ID = 1000
};

typedef int32_t PORT_INFO_CMD;
enum {
    PORT_INFO_ID = 0,
    PORT_INFO_VENDOR = 1,
    PORT_INFO_MODEL = 2,
    PORT_INFO_TLTYPE = 3,
    PORT_INFO_MODULE = 4,
    PORT_INFO_LITTLE_ENDIAN = 5,
    PORT_INFO_BIG_ENDIAN = 6,
    PORT_INFO_ACCESS_READ = 7,
    PORT_INFO_ACCESS_WRITE = 8,
    PORT_INFO_ACCESS_NA = 9,
    PORT_INFO_ACCESS_NI = 10,
    PORT_INFO_VERSION = 11,
    PORT_INFO_PORTNAME = 12,
    PORT_INFO_CUSTOM_ID = 1000
};

typedef int32_t URL_INFO_CMD;
enum {
    URL_INFO_URL = 0,
    URL_INFO_SCHEMA_VER_MAJOR = 1,
    URL_INFO_SCHEMA_VER_MINOR = 2,
    URL_INFO_FILE_VER_MAJOR = 3,
    URL_INFO_FILE_VER_MINOR = 4,
    URL_INFO_FILE_VER_SUBMINOR = 5,
    URL_INFO_FILE_SHA1_HASH = 6,
    URL_INFO_FILE_REGISTER_ADDRESS = 7,
    URL_INFO_FILE_SIZE = 8,
    URL_INFO_SCHEME = 9,
    URL_INFO_FILENAME = 10,
    URL_INFO_CUSTOM_ID = 1000
};

typedef int32_t URL_SCHEME_ID;
enum { URL_SCHEME_LOCAL = 0, URL_SCHEME_HTTP = 1, URL_SCHEME_FILE = 2, URL_SCHEME_CUSTOM_ID = 1000 };

typedef int32_t EVENT_TYPE;
enum {
    EVENT_ERROR = 0,
    EVENT_NEW_BUFFER = 1,
    EVENT_FEATURE_INVALIDATE = 2,
    EVENT_FEATURE_CHANGE = 3,
    EVENT_REMOTE_DEVICE = 4,
    EVENT_MODULE = 5,
    EVENT_CUSTOM_ID = 1000
};

typedef int32_t EVENT_INFO_CMD;
enum {
    EVENT_EVENT_TYPE = 0,
    EVENT_NUM_IN_QUEUE = 1,
    EVENT_NUM_FIRED = 2,
    EVENT_SIZE_MAX = 3,
    EVENT_INFO_DATA_SIZE_MAX = 4,
    EVENT_INFO_CUSTOM_ID = 1000
};

typedef int32_t EVENT_DATA_INFO_CMD;
enum { EVENT_DATA_ID = 0, EVENT_DATA_VALUE = 1, EVENT_DATA_NUMID = 2, EVENT_DATA_CUSTOM_ID = 1000 };

typedef int32_t FLOW_INFO_CMD;
enum { FLOW_INFO_SIZE = 0, FLOW_INFO_CUSTOM_ID = 1000 };

typedef int32_t SEGMENT_INFO_CMD;
enum {
    SEGMENT_INFO_BASE = 0,
    SEGMENT_INFO_SIZE = 1,
    SEGMENT_INFO_IS_INCOMPLETE = 2,
    SEGMENT_INFO_SIZE_FILLED = 3,
    SEGMENT_INFO_DATA_SIZE = 4,
    SEGMENT_INFO_CUSTOM_ID = 1000
};

// Values of the various ..._TLTYPE commands. Mixed only for a system whose interfaces differ.
#define TLTypeGEVName "GEV"
#define TLTypeU3VName "U3V"
#define TLTypeCLName "CL"
#define TLTypeCLHSName "CLHS"
#define TLTypeCXPName "CXP"
#define TLTypeIIDCName "IIDC"
#define TLTypeUVCName "UVC"
#define TLTypeEthernetName "Ethernet"
#define TLTypePCIName "PCI"
#define TLTypeCustomName "Custom"
#define TLTypeMixedName "Mixed"

#pragma pack(push, 1)

/// What EventGetData gives for EVENT_NEW_BUFFER.
typedef struct EVENT_NEW_BUFFER_DATA {
    BUFFER_HANDLE BufferHandle;
    void *pUserPointer;
} EVENT_NEW_BUFFER_DATA;

typedef struct PORT_REGISTER_STACK_ENTRY {
    uint64_t Address;
    void *pBuffer;
    size_t Size;
} PORT_REGISTER_STACK_ENTRY;

typedef struct SINGLE_CHUNK_DATA {
    uint64_t ChunkID;
    ptrdiff_t ChunkOffset; ///< from the buffer's base
    size_t ChunkLength;
} SINGLE_CHUNK_DATA;

/// 28 bytes on 64 bit: in an array every second element has unaligned pointers.
typedef struct DS_BUFFER_INFO_STACKED {
    BUFFER_INFO_CMD iInfoCmd;
    INFO_DATATYPE iType;
    void *pBuffer;
    size_t iSize;
    GC_ERROR iResult;
} DS_BUFFER_INFO_STACKED;

/// iResult before iType: that is the order in use, although the standard's text has them the other way round.
typedef struct DS_BUFFER_PART_INFO_STACKED {
    uint32_t iPartIndex;
    BUFFER_PART_INFO_CMD iInfoCmd;
    GC_ERROR iResult;
    INFO_DATATYPE iType;
    void *pBuffer;
    size_t iSize;
} DS_BUFFER_PART_INFO_STACKED;

#pragma pack(pop)

#ifdef __cplusplus
static_assert(sizeof(EVENT_NEW_BUFFER_DATA) == 2 * sizeof(void *), "packed");
static_assert(sizeof(PORT_REGISTER_STACK_ENTRY) == 8 + 2 * sizeof(void *), "packed");
static_assert(offsetof(PORT_REGISTER_STACK_ENTRY, Size) == 8 + sizeof(void *), "packed");
static_assert(sizeof(SINGLE_CHUNK_DATA) == 8 + 2 * sizeof(void *), "packed");
static_assert(offsetof(SINGLE_CHUNK_DATA, ChunkOffset) == 8, "packed");
static_assert(sizeof(DS_BUFFER_INFO_STACKED) == 12 + 2 * sizeof(void *), "packed");
static_assert(offsetof(DS_BUFFER_INFO_STACKED, pBuffer) == 8, "packed");
static_assert(offsetof(DS_BUFFER_INFO_STACKED, iResult) == 8 + 2 * sizeof(void *), "packed");
static_assert(sizeof(DS_BUFFER_PART_INFO_STACKED) == 16 + 2 * sizeof(void *), "packed");
static_assert(offsetof(DS_BUFFER_PART_INFO_STACKED, iResult) == 8, "packed");
static_assert(offsetof(DS_BUFFER_PART_INFO_STACKED, iType) == 12, "packed");
static_assert(offsetof(DS_BUFFER_PART_INFO_STACKED, pBuffer) == 16, "packed");
#endif

/// Every function of the interface: X(since, name, parameters, arguments).
///
/// `since` is the version that brought the function, times ten. 10 is the set that every producer has; the rest may be
/// missing in an older one. All return GC_ERROR. The producer's version script is made from the lines of this list
/// (platform/producer/CMakeLists.txt), so each function starts its own line.
// clang-format off
#define GENTL_FUNCTIONS(X) \
    X(10, GCInitLib, (void), ()) \
    X(10, GCCloseLib, (void), ()) \
    X(10, GCGetInfo, (TL_INFO_CMD iInfoCmd, INFO_DATATYPE *piType, void *pBuffer, size_t *piSize), (iInfoCmd, piType, pBuffer, piSize)) \
    X(10, GCGetLastError, (GC_ERROR *piErrorCode, char *sErrorText, size_t *piSize), (piErrorCode, sErrorText, piSize)) \
    X(10, GCReadPort, (PORT_HANDLE hPort, uint64_t iAddress, void *pBuffer, size_t *piSize), (hPort, iAddress, pBuffer, piSize)) \
    X(10, GCWritePort, (PORT_HANDLE hPort, uint64_t iAddress, const void *pBuffer, size_t *piSize), (hPort, iAddress, pBuffer, piSize)) \
    X(10, GCGetPortURL, (PORT_HANDLE hPort, char *sURL, size_t *piSize), (hPort, sURL, piSize)) \
    X(10, GCGetPortInfo, (PORT_HANDLE hPort, PORT_INFO_CMD iInfoCmd, INFO_DATATYPE *piType, void *pBuffer, size_t *piSize), (hPort, iInfoCmd, piType, pBuffer, piSize)) \
    X(10, GCRegisterEvent, (EVENTSRC_HANDLE hModule, EVENT_TYPE iEventID, EVENT_HANDLE *phEvent), (hModule, iEventID, phEvent)) \
    X(10, GCUnregisterEvent, (EVENTSRC_HANDLE hModule, EVENT_TYPE iEventID), (hModule, iEventID)) \
    X(10, EventGetData, (EVENT_HANDLE hEvent, void *pBuffer, size_t *piSize, uint64_t iTimeout), (hEvent, pBuffer, piSize, iTimeout)) \
    X(10, EventGetDataInfo, (EVENT_HANDLE hEvent, const void *pInBuffer, size_t iInSize, EVENT_DATA_INFO_CMD iInfoCmd, INFO_DATATYPE *piType, void *pOutBuffer, size_t *piOutSize), (hEvent, pInBuffer, iInSize, iInfoCmd, piType, pOutBuffer, piOutSize)) \
    X(10, EventGetInfo, (EVENT_HANDLE hEvent, EVENT_INFO_CMD iInfoCmd, INFO_DATATYPE *piType, void *pBuffer, size_t *piSize), (hEvent, iInfoCmd, piType, pBuffer, piSize)) \
    X(10, EventFlush, (EVENT_HANDLE hEvent), (hEvent)) \
    X(10, EventKill, (EVENT_HANDLE hEvent), (hEvent)) \
    X(10, TLOpen, (TL_HANDLE *phSystem), (phSystem)) \
    X(10, TLClose, (TL_HANDLE hSystem), (hSystem)) \
    X(10, TLGetInfo, (TL_HANDLE hSystem, TL_INFO_CMD iInfoCmd, INFO_DATATYPE *piType, void *pBuffer, size_t *piSize), (hSystem, iInfoCmd, piType, pBuffer, piSize)) \
    X(10, TLGetNumInterfaces, (TL_HANDLE hSystem, uint32_t *piNumIfaces), (hSystem, piNumIfaces)) \
    X(10, TLGetInterfaceID, (TL_HANDLE hSystem, uint32_t iIndex, char *sIfaceID, size_t *piSize), (hSystem, iIndex, sIfaceID, piSize)) \
    X(10, TLGetInterfaceInfo, (TL_HANDLE hSystem, const char *sIfaceID, INTERFACE_INFO_CMD iInfoCmd, INFO_DATATYPE *piType, void *pBuffer, size_t *piSize), (hSystem, sIfaceID, iInfoCmd, piType, pBuffer, piSize)) \
    X(10, TLOpenInterface, (TL_HANDLE hSystem, const char *sIfaceID, IF_HANDLE *phIface), (hSystem, sIfaceID, phIface)) \
    X(10, TLUpdateInterfaceList, (TL_HANDLE hSystem, bool8_t *pbChanged, uint64_t iTimeout), (hSystem, pbChanged, iTimeout)) \
    X(10, IFClose, (IF_HANDLE hIface), (hIface)) \
    X(10, IFGetInfo, (IF_HANDLE hIface, INTERFACE_INFO_CMD iInfoCmd, INFO_DATATYPE *piType, void *pBuffer, size_t *piSize), (hIface, iInfoCmd, piType, pBuffer, piSize)) \
    X(10, IFGetNumDevices, (IF_HANDLE hIface, uint32_t *piNumDevices), (hIface, piNumDevices)) \
    X(10, IFGetDeviceID, (IF_HANDLE hIface, uint32_t iIndex, char *sDeviceID, size_t *piSize), (hIface, iIndex, sDeviceID, piSize)) \
    X(10, IFUpdateDeviceList, (IF_HANDLE hIface, bool8_t *pbChanged, uint64_t iTimeout), (hIface, pbChanged, iTimeout)) \
    X(10, IFGetDeviceInfo, (IF_HANDLE hIface, const char *sDeviceID, DEVICE_INFO_CMD iInfoCmd, INFO_DATATYPE *piType, void *pBuffer, size_t *piSize), (hIface, sDeviceID, iInfoCmd, piType, pBuffer, piSize)) \
    X(10, IFOpenDevice, (IF_HANDLE hIface, const char *sDeviceID, DEVICE_ACCESS_FLAGS iOpenFlag, DEV_HANDLE *phDevice), (hIface, sDeviceID, iOpenFlag, phDevice)) \
    X(10, DevGetPort, (DEV_HANDLE hDevice, PORT_HANDLE *phRemoteDev), (hDevice, phRemoteDev)) \
    X(10, DevGetNumDataStreams, (DEV_HANDLE hDevice, uint32_t *piNumDataStreams), (hDevice, piNumDataStreams)) \
    X(10, DevGetDataStreamID, (DEV_HANDLE hDevice, uint32_t iIndex, char *sDataStreamID, size_t *piSize), (hDevice, iIndex, sDataStreamID, piSize)) \
    X(10, DevOpenDataStream, (DEV_HANDLE hDevice, const char *sDataStreamID, DS_HANDLE *phDataStream), (hDevice, sDataStreamID, phDataStream)) \
    X(10, DevGetInfo, (DEV_HANDLE hDevice, DEVICE_INFO_CMD iInfoCmd, INFO_DATATYPE *piType, void *pBuffer, size_t *piSize), (hDevice, iInfoCmd, piType, pBuffer, piSize)) \
    X(10, DevClose, (DEV_HANDLE hDevice), (hDevice)) \
    X(10, DSAnnounceBuffer, (DS_HANDLE hDataStream, void *pBuffer, size_t iSize, void *pPrivate, BUFFER_HANDLE *phBuffer), (hDataStream, pBuffer, iSize, pPrivate, phBuffer)) \
    X(10, DSAllocAndAnnounceBuffer, (DS_HANDLE hDataStream, size_t iBufferSize, void *pPrivate, BUFFER_HANDLE *phBuffer), (hDataStream, iBufferSize, pPrivate, phBuffer)) \
    X(10, DSFlushQueue, (DS_HANDLE hDataStream, ACQ_QUEUE_TYPE iOperation), (hDataStream, iOperation)) \
    X(10, DSStartAcquisition, (DS_HANDLE hDataStream, ACQ_START_FLAGS iStartFlags, uint64_t iNumToAcquire), (hDataStream, iStartFlags, iNumToAcquire)) \
    X(10, DSStopAcquisition, (DS_HANDLE hDataStream, ACQ_STOP_FLAGS iStopFlags), (hDataStream, iStopFlags)) \
    X(10, DSGetInfo, (DS_HANDLE hDataStream, STREAM_INFO_CMD iInfoCmd, INFO_DATATYPE *piType, void *pBuffer, size_t *piSize), (hDataStream, iInfoCmd, piType, pBuffer, piSize)) \
    X(10, DSGetBufferID, (DS_HANDLE hDataStream, uint32_t iIndex, BUFFER_HANDLE *phBuffer), (hDataStream, iIndex, phBuffer)) \
    X(10, DSClose, (DS_HANDLE hDataStream), (hDataStream)) \
    X(10, DSRevokeBuffer, (DS_HANDLE hDataStream, BUFFER_HANDLE hBuffer, void **ppBuffer, void **ppPrivate), (hDataStream, hBuffer, ppBuffer, ppPrivate)) \
    X(10, DSQueueBuffer, (DS_HANDLE hDataStream, BUFFER_HANDLE hBuffer), (hDataStream, hBuffer)) \
    X(10, DSGetBufferInfo, (DS_HANDLE hDataStream, BUFFER_HANDLE hBuffer, BUFFER_INFO_CMD iInfoCmd, INFO_DATATYPE *piType, void *pBuffer, size_t *piSize), (hDataStream, hBuffer, iInfoCmd, piType, pBuffer, piSize)) \
    X(11, GCGetNumPortURLs, (PORT_HANDLE hPort, uint32_t *piNumURLs), (hPort, piNumURLs)) \
    X(11, GCGetPortURLInfo, (PORT_HANDLE hPort, uint32_t iURLIndex, URL_INFO_CMD iInfoCmd, INFO_DATATYPE *piType, void *pBuffer, size_t *piSize), (hPort, iURLIndex, iInfoCmd, piType, pBuffer, piSize)) \
    X(11, GCReadPortStacked, (PORT_HANDLE hPort, PORT_REGISTER_STACK_ENTRY *pEntries, size_t *piNumEntries), (hPort, pEntries, piNumEntries)) \
    X(11, GCWritePortStacked, (PORT_HANDLE hPort, PORT_REGISTER_STACK_ENTRY *pEntries, size_t *piNumEntries), (hPort, pEntries, piNumEntries)) \
    X(13, DSGetBufferChunkData, (DS_HANDLE hDataStream, BUFFER_HANDLE hBuffer, SINGLE_CHUNK_DATA *pChunkData, size_t *piNumChunks), (hDataStream, hBuffer, pChunkData, piNumChunks)) \
    X(14, IFGetParentTL, (IF_HANDLE hIface, TL_HANDLE *phSystem), (hIface, phSystem)) \
    X(14, DevGetParentIF, (DEV_HANDLE hDevice, IF_HANDLE *phIface), (hDevice, phIface)) \
    X(14, DSGetParentDev, (DS_HANDLE hDataStream, DEV_HANDLE *phDevice), (hDataStream, phDevice)) \
    X(15, DSGetNumBufferParts, (DS_HANDLE hDataStream, BUFFER_HANDLE hBuffer, uint32_t *piNumParts), (hDataStream, hBuffer, piNumParts)) \
    X(15, DSGetBufferPartInfo, (DS_HANDLE hDataStream, BUFFER_HANDLE hBuffer, uint32_t iPartIndex, BUFFER_PART_INFO_CMD iInfoCmd, INFO_DATATYPE *piType, void *pBuffer, size_t *piSize), (hDataStream, hBuffer, iPartIndex, iInfoCmd, piType, pBuffer, piSize)) \
    X(16, DSAnnounceCompositeBuffer, (DS_HANDLE hDataStream, size_t iNumSegments, void **ppSegments, size_t *piSizes, void *pPrivate, BUFFER_HANDLE *phBuffer), (hDataStream, iNumSegments, ppSegments, piSizes, pPrivate, phBuffer)) \
    X(16, DSGetBufferInfoStacked, (DS_HANDLE hDataStream, BUFFER_HANDLE hBuffer, DS_BUFFER_INFO_STACKED *pInfoStacked, size_t iNumInfos), (hDataStream, hBuffer, pInfoStacked, iNumInfos)) \
    X(16, DSGetBufferPartInfoStacked, (DS_HANDLE hDataStream, BUFFER_HANDLE hBuffer, DS_BUFFER_PART_INFO_STACKED *pInfoStacked, size_t iNumInfos), (hDataStream, hBuffer, pInfoStacked, iNumInfos)) \
    X(16, DSGetNumFlows, (DS_HANDLE hDataStream, uint32_t *piNumFlows), (hDataStream, piNumFlows)) \
    X(16, DSGetFlowInfo, (DS_HANDLE hDataStream, uint32_t iFlowIndex, FLOW_INFO_CMD iInfoCmd, INFO_DATATYPE *piType, void *pBuffer, size_t *piSize), (hDataStream, iFlowIndex, iInfoCmd, piType, pBuffer, piSize)) \
    X(16, DSGetNumBufferSegments, (DS_HANDLE hDataStream, BUFFER_HANDLE hBuffer, uint32_t *piNumSegments), (hDataStream, hBuffer, piNumSegments)) \
    X(16, DSGetBufferSegmentInfo, (DS_HANDLE hDataStream, BUFFER_HANDLE hBuffer, uint32_t iSegmentIndex, SEGMENT_INFO_CMD iInfoCmd, INFO_DATATYPE *piType, void *pBuffer, size_t *piSize), (hDataStream, hBuffer, iSegmentIndex, iInfoCmd, piType, pBuffer, piSize))
// clang-format on

#if defined(__cplusplus) && defined(GENTL_DECLARE_FUNCTIONS)
extern "C" {
#define GENTL_DECLARE(since, name, parameters, arguments) GENTL_EXPORT GC_ERROR GC_CALLTYPE name parameters;
GENTL_FUNCTIONS(GENTL_DECLARE)
#undef GENTL_DECLARE
}
#endif
