#include <arv.h>

#include "tests/simulator/MemoryDevice.h"

namespace orvsim {

namespace {

const char *NameOf(Outcome outcome)
{
    static const char *const kNames[] = {"Ok",        "NoSuchAddress", "BadAlignment", "ReadOnly",
                                         "WriteOnly", "InvalidValue",  "Busy",         "Refused"};
    return kNames[static_cast<std::size_t>(outcome)];
}

gboolean Finish(Outcome outcome, const char *what, guint64 address, GError **error)
{
    if (outcome == Outcome::Ok)
        return TRUE;
    g_set_error(error, ARV_DEVICE_ERROR, ARV_DEVICE_ERROR_TRANSFER_ERROR, "%s of 0x%llx: %s", what,
                static_cast<unsigned long long>(address), NameOf(outcome));
    return FALSE;
}

} // namespace

} // namespace orvsim

G_DECLARE_FINAL_TYPE(OrvSimMemory, orv_sim_memory, ORV, SIM_MEMORY, ArvDevice)
struct _OrvSimMemory {
    ArvDevice parent_instance;
    orvsim::DeviceMemory *memory; ///< plain pointer: GObject runs no constructors
};
G_DEFINE_TYPE(OrvSimMemory, orv_sim_memory, ARV_TYPE_DEVICE)

namespace {

using orvsim::DeviceMemory;
using orvsim::Outcome;

gboolean ReadMemory(ArvDevice *device, guint64 address, guint32 size, void *data, GError **error)
{
    DeviceMemory &memory = *ORV_SIM_MEMORY(device)->memory;
    auto *bytes = static_cast<std::uint8_t *>(data);
    Outcome outcome = Outcome::NoSuchAddress;
    if (orvsim::DataWindows::Contains(address))
        outcome = memory.windows.Read(address, size, bytes);
    else if (address <= 0xffffffff)
        outcome = memory.read(static_cast<std::uint32_t>(address), size, bytes);
    return orvsim::Finish(outcome, "read", address, error);
}

gboolean WriteMemory(ArvDevice *device, guint64 address, guint32 size, void *data, GError **error)
{
    DeviceMemory &memory = *ORV_SIM_MEMORY(device)->memory;
    const auto *bytes = static_cast<const std::uint8_t *>(data);
    const Outcome outcome =
        address <= 0xffffffff ? memory.write(static_cast<std::uint32_t>(address), size, bytes) : Outcome::NoSuchAddress;
    return orvsim::Finish(outcome, "write", address, error);
}

gboolean ReadRegister(ArvDevice *device, guint64 address, guint32 *value, GError **error)
{
    return ReadMemory(device, address, sizeof *value, value, error);
}

gboolean WriteRegister(ArvDevice *device, guint64 address, guint32 value, GError **error)
{
    return WriteMemory(device, address, sizeof value, &value, error);
}

} // namespace

static void orv_sim_memory_init(OrvSimMemory *) {}

static void orv_sim_memory_class_init(OrvSimMemoryClass *objectClass)
{
    ArvDeviceClass *device = ARV_DEVICE_CLASS(objectClass);
    device->read_memory = ReadMemory;
    device->write_memory = WriteMemory;
    device->read_register = ReadRegister;
    device->write_register = WriteRegister;
}

namespace orvsim {

ArvDevice *NewMemoryDevice(DeviceMemory *memory)
{
    auto *device = ORV_SIM_MEMORY(g_object_new(orv_sim_memory_get_type(), nullptr));
    device->memory = memory;
    return ARV_DEVICE(device);
}

} // namespace orvsim
