// Calls of the producer's exported functions, in any order and with any arguments, and what cameras do meanwhile.
//
// Input: how much is opened beforehand (a byte), then steps: a byte that is the number of a function in the order of
// GENTL_FUNCTIONS, or from kCameraSteps on something that the camera does; then what belongs to it.
#define GENTL_DECLARE_FUNCTIONS
#include "fuzz/GentlFuzz.h"

#include "fuzz/GentlArguments.h"
#include "fuzz/Target.h"
#include "fuzz/ToyTransport.h"
#include "gentl/GenTL.h"

#include <tuple>

namespace {

using namespace orv::fuzz;
using namespace gentlinput;

template <class... A> GC_ERROR Invoke(GC_ERROR (*function)(A...), Arguments &arguments)
{
    const std::tuple<A...> values{arguments.Next<A>()...};
    return std::apply(function, values);
}

struct Call {
    const char *parameters;
    GC_ERROR (*invoke)(Arguments &);
};
#define FUZZ_CALL(since, name, parameters, arguments)                                                                  \
    {#parameters, [](Arguments &next) { return Invoke(&name, next); }},
constexpr Call kCalls[] = {GENTL_FUNCTIONS(FUZZ_CALL)};
static_assert(std::size(kCalls) <= kCameraSteps, "functions and the camera's steps have numbers of their own");

/// The usual way from the library to a running stream, as far as it is wanted. Handles come in a fixed order, so that
/// inputs can name them.
class Opened {
public:
    Opened(HandlePool &handles, std::uint8_t level) : m_handles(handles)
    {
        if (level >= kLibrary)
            Must(GCInitLib());
        if (level >= kSystem)
            Must(TLOpen(&m_system), m_system);
        if (level >= kInterface)
            Must(TLOpenInterface(m_system, "toy:0", &m_interface), m_interface);
        if (level >= kDevice)
            OpenDevice();
        if (level >= kStream)
            OpenStream();
        if (level >= kRunning)
            Must(DSStartAcquisition(m_stream, ACQ_START_FLAGS_DEFAULT, GENTL_INFINITE));
    }

private:
    void OpenDevice()
    {
        bool8_t changed = 0;
        Must(IFUpdateDeviceList(m_interface, &changed, 1));
        Must(IFOpenDevice(m_interface, "cam:1", DEVICE_ACCESS_CONTROL, &m_device), m_device);
        void *port = nullptr;
        Must(DevGetPort(m_device, &port), port);
        Register(m_device, EVENT_REMOTE_DEVICE);
        Register(m_device, EVENT_ERROR);
    }
    void OpenStream()
    {
        constexpr std::size_t kBufferSize = 1000;
        Must(DevOpenDataStream(m_device, "cam:1/stream0", &m_stream), m_stream);
        Register(m_stream, EVENT_NEW_BUFFER);
        for (int i = 0; i < 2; ++i) {
            void *buffer = nullptr;
            Must(DSAllocAndAnnounceBuffer(m_stream, kBufferSize, nullptr, &buffer), buffer);
            Must(DSQueueBuffer(m_stream, buffer));
        }
    }
    void Register(void *module, EVENT_TYPE type)
    {
        void *event = nullptr;
        Must(GCRegisterEvent(module, type, &event), event);
    }
    static void Must(GC_ERROR result) { Require(result == GC_ERR_SUCCESS, "the usual way leads to a running stream"); }
    void Must(GC_ERROR result, void *&handle)
    {
        Must(result);
        m_handles.Add(handle);
    }

    HandlePool &m_handles;
    void *m_system = nullptr;
    void *m_interface = nullptr;
    void *m_device = nullptr;
    void *m_stream = nullptr;
};

void CameraDoes(std::uint8_t step, orv::ByteReader &in)
{
    switch (step % 8) {
    case kFrame % 8:
        toy::SendFrame(in);
        break;
    case kEvent % 8:
        toy::SendEvent(SpanOf(TakePiece(in)));
        break;
    case kLoss % 8:
        toy::LoseCamera();
        break;
    case kInvalidFeature % 8:
        toy::InvalidateFeature();
        break;
    case kFails % 8:
        toy::SetFailing(true);
        break;
    default:
        toy::SetFailing(false);
        break;
    }
}

void CloseEverything()
{
    toy::SetFailing(false);
    const GC_ERROR closed = GCCloseLib();
    Require(closed == GC_ERR_SUCCESS || closed == GC_ERR_NOT_INITIALIZED, "the library can be closed at any time");
    Require(toy::CountOpen() == 0, "with the library all cameras and streams are closed");
    std::uint32_t count = 0;
    Require(TLGetNumInterfaces(nullptr, &count) == GC_ERR_NOT_INITIALIZED, "a closed library says that it is");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    orv::ByteReader in({data, size});
    std::vector<std::unique_ptr<Room>> rooms; // longer than the buffers that are announced of it
    HandlePool handles;
    Opened opened(handles, in.U8() % (kRunning + 1));
    while (in.Rest().size != 0) {
        const std::uint8_t step = in.U8();
        if (step >= kCameraSteps) {
            CameraDoes(step, in);
        } else {
            const Call &call = kCalls[step % std::size(kCalls)];
            Arguments arguments(call.parameters, in, handles, rooms);
            arguments.Check(call.invoke(arguments));
        }
    }
    CloseEverything();
    for (const auto &room : rooms)
        Require(room->IsIntact(), "nothing is written beside what the caller has");
    return 0;
}
