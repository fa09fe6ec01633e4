#include "base/FrameMemory.h"
#include "receive/Meter.h"

#include <arv.h>

#include <vector>

namespace receivebench {

Figures ReceiveWithAravis(const Stream &sent, AravisWay way)
{
    GError *error = nullptr;
    GInetAddress *host = g_inet_address_new_from_string("127.0.0.1");
    GInetAddress *camera = g_inet_address_new_from_string(kCameraText);
    ArvDevice *device = arv_gv_device_new(host, camera, &error);
    if (device == nullptr)
        Fail(error->message);
    arv_gv_device_set_stream_options(ARV_GV_DEVICE(device), way == AravisWay::PacketSocket
                                                                ? ARV_GV_STREAM_OPTION_NONE
                                                                : ARV_GV_STREAM_OPTION_PACKET_SOCKET_DISABLED);
    arv_gv_device_set_packet_size_adjustment(ARV_GV_DEVICE(device), ARV_GV_PACKET_SIZE_ADJUSTMENT_NEVER);
    arv_gv_device_set_packet_size(ARV_GV_DEVICE(device), static_cast<gint>(sent.packetSize), &error);
    ArvStream *stream = arv_device_create_stream(device, nullptr, nullptr, &error);
    if (stream == nullptr)
        Fail(error->message);
    g_object_set(stream, "socket-buffer", ARV_GV_STREAM_SOCKET_BUFFER_FIXED, "socket-buffer-size", sent.SocketBuffer(),
                 nullptr);
    std::vector<orv::FrameMemory> memory;
    for (int i = 0; i < kBuffers; ++i) {
        if (way == AravisWay::UdpOnOurs)
            memory.push_back(orv::AllocateFrame(sent.Payload()));
        arv_stream_push_buffer(stream, arv_buffer_new(sent.Payload(), memory.empty() ? nullptr : memory.back().get()));
    }
    Meter meter(sent.Payload());
    while (!meter.IsOver()) {
        ArvBuffer *buffer = arv_stream_timeout_pop_buffer(stream, 1000000);
        if (buffer == nullptr)
            continue;
        meter.Frame(arv_buffer_get_status(buffer) == ARV_BUFFER_STATUS_SUCCESS, arv_buffer_get_timestamp(buffer));
        arv_stream_push_buffer(stream, buffer);
    }
    Figures figures = meter.Result();
    guint64 resent = 0;
    guint64 missing = 0;
    arv_gv_stream_get_statistics(ARV_GV_STREAM(stream), &resent, &missing);
    figures.refilled = resent;
    g_object_unref(stream);
    g_object_unref(device);
    return figures;
}

} // namespace receivebench
