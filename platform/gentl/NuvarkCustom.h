#pragma once

#include "gentl/GenTL.h"

/// What our producer (Nuvark.cti, vendor "Nuvark") offers beyond the standard.
///
/// Ask for these only after TL_INFO_VENDOR and TL_INFO_MODEL have shown whose producer it is: the same numbers mean
/// something else in another maker's.

#define NUVARK_VENDOR "Nuvark"
#define NUVARK_MODEL "Nuvark"

/// DEVICE_INFO_CMD values, for IFGetDeviceInfo and DevGetInfo.
enum {
    NUVARK_DEVICE_INFO_IP_ADDRESS = DEVICE_INFO_CUSTOM_ID + 0,  ///< STRING "192.168.10.20", the camera's address
    NUVARK_DEVICE_INFO_MAC_ADDRESS = DEVICE_INFO_CUSTOM_ID + 1, ///< STRING "02:00:00:ab:cd:ef"
    NUVARK_DEVICE_INFO_SUBNET_MASK = DEVICE_INFO_CUSTOM_ID + 2, ///< STRING "255.255.255.0", the camera's mask
    NUVARK_DEVICE_INFO_HOLDER = DEVICE_INFO_CUSTOM_ID + 3       ///< STRING "192.168.10.1:50123", who controls the
                                                                ///< camera; "" when free or when it does not tell
};

/// STREAM_INFO_CMD values.
enum {
    NUVARK_STREAM_INFO_RECEIVE_BUFFER = STREAM_INFO_CUSTOM_ID + 0, ///< SIZET, bytes the kernel granted the socket
    NUVARK_STREAM_INFO_KERNEL_DROPS = STREAM_INFO_CUSTOM_ID + 1,   ///< UINT64, messages the kernel dropped since start;
                                                                   ///< one may hold many packets
    NUVARK_STREAM_INFO_PACKET_SIZE = STREAM_INFO_CUSTOM_ID + 2,    ///< SIZET, IP packet size in use
    NUVARK_STREAM_INFO_NUM_INCOMPLETE = STREAM_INFO_CUSTOM_ID + 3, ///< UINT64, of the delivered frames, those with
                                                                   ///< holes
    NUVARK_STREAM_INFO_NUM_PACKETS = STREAM_INFO_CUSTOM_ID + 4,    ///< UINT64, stream packets received since start
    NUVARK_STREAM_INFO_NUM_MISSING = STREAM_INFO_CUSTOM_ID + 5,    ///< UINT64, packets that never came since start
    NUVARK_STREAM_INFO_NUM_OVERSIZED =
        STREAM_INFO_CUSTOM_ID + 6, ///< UINT64, packets dropped for their length since start
    NUVARK_STREAM_INFO_NUM_REQUESTED = STREAM_INFO_CUSTOM_ID + 7,  ///< UINT64, packets asked for again since start
    NUVARK_STREAM_INFO_NUM_RESENT = STREAM_INFO_CUSTOM_ID + 8,     ///< UINT64, of those, packets that came
    NUVARK_STREAM_INFO_NUM_DUPLICATES = STREAM_INFO_CUSTOM_ID + 9, ///< UINT64
    NUVARK_STREAM_INFO_NUM_LATE = STREAM_INFO_CUSTOM_ID + 10,      ///< UINT64, of frames that were through already
    NUVARK_STREAM_INFO_NUM_REFUSED = STREAM_INFO_CUSTOM_ID + 11,   ///< UINT64, that the camera cannot send
    NUVARK_STREAM_INFO_NUM_UNUSABLE = STREAM_INFO_CUSTOM_ID + 12,  ///< UINT64, malformed or foreign
    NUVARK_STREAM_INFO_WANTED_BUFFER = STREAM_INFO_CUSTOM_ID + 13, ///< SIZET, bytes asked of the kernel for the socket
    NUVARK_STREAM_INFO_NUM_FULL = STREAM_INFO_CUSTOM_ID + 14, ///< UINT64, payload packets of full length since start
    NUVARK_STREAM_INFO_NUM_WITHOUT_BUFFER =
        STREAM_INFO_CUSTOM_ID + 15, ///< UINT64, packets of frames that had no buffer since start
    NUVARK_STREAM_INFO_NUM_DROPPED_BY_CAMERA =
        STREAM_INFO_CUSTOM_ID + 16, ///< UINT64, frames that the camera says it could not send, whole or in part
    NUVARK_STREAM_INFO_NUM_MISSED = STREAM_INFO_CUSTOM_ID + 17 ///< UINT64, frames since start of which no packet came
};

/// EVENT_INFO_CMD values.
enum {
    NUVARK_EVENT_INFO_NUM_DROPPED = EVENT_INFO_CUSTOM_ID + 0 ///< UINT64, entries since registration that were dropped
                                                             ///< because nobody had fetched the ones before
};

/// EVENT_TYPE values of the device module. A type that is not built in answers NOT_IMPLEMENTED on registration.
enum {
    NUVARK_EVENT_CONTROL_TRAFFIC = EVENT_CUSTOM_ID + 0, ///< one control packet, raw bytes
    NUVARK_EVENT_STREAM_TRAFFIC = EVENT_CUSTOM_ID + 1,  ///< one stream packet, raw bytes
    NUVARK_EVENT_EVENT_TRAFFIC = EVENT_CUSTOM_ID + 2,   ///< one event-channel packet, raw bytes
    NUVARK_EVENT_DEVICE_LOST = EVENT_CUSTOM_ID + 4      ///< connection lost; data: the reason as text, zero-terminated.
                                                        ///< Once per opening; at once when registered after the loss
};
