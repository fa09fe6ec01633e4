#include <arv.h>

#include "base/Mutex.h"
#include "orvcam/GenApi.h"
#include "orvcam/Log.h"
#include "orvcam/OrvStatus.h"
#include "orvcam/Text.h"

#include <algorithm>
#include <exception>
#include <limits>
#include <mutex>
#include <set>

namespace orv::cam {

namespace {

/// Bounds what the library keeps of registers: it allots a block for each address and length that a register ever had,
/// before it reads, and frees none. Addresses and lengths may hang on what the camera answers, so once the bound is
/// reached nothing can be read any more: only then can no register move any further.
class RegisterBudget {
public:
    bool Admits(std::uint64_t address, std::size_t bytes)
    {
        if (m_bytes <= kMostBytes && m_known.emplace(address, bytes).second) {
            m_bytes += bytes + kBlockBytes;
            if (m_bytes > kMostBytes)
                LogWarning("The camera's registers take too much memory. Its features cannot be used any more.");
        }
        return m_bytes <= kMostBytes;
    }

private:
    static constexpr std::size_t kMostBytes = 64u << 20; ///< real cameras stay below 1 MiB
    static constexpr std::size_t kBlockBytes = 64;       ///< of the library's own, beside each block

    std::set<std::pair<std::uint64_t, std::size_t>> m_known;
    std::size_t m_bytes = 0;
};

/// What the library's device object points to. GObject runs no constructors, so it holds a pointer only.
struct PortLink {
    PortIo *io = nullptr;
    int status = ORV_CAM_OK; ///< of the first access that failed during the present call
    RegisterBudget budget;
};

} // namespace

} // namespace orv::cam

// The library wants a device; this one has nothing but memory, and that is a port's.
G_DECLARE_FINAL_TYPE(OrvGenApiPort, orv_gen_api_port, ORV, GEN_API_PORT, ArvDevice)
struct _OrvGenApiPort {
    ArvDevice parent_instance;
    orv::cam::PortLink *link; ///< borrowed from GenApi::Impl, which goes after the device
};
G_DEFINE_TYPE(OrvGenApiPort, orv_gen_api_port, ARV_TYPE_DEVICE)

namespace {

using orv::cam::PortLink;

gboolean Finish(PortLink *link, int status, const std::string &why, GError **error)
{
    if (status == ORV_CAM_OK)
        return TRUE;
    if (link->status == ORV_CAM_OK)
        link->status = status;
    g_set_error(error, ARV_DEVICE_ERROR, ARV_DEVICE_ERROR_TRANSFER_ERROR, "%s", why.c_str());
    return FALSE;
}

/// Runs one port access; no exception may pass the library's C code.
template <class Access>
gboolean Guarded(ArvDevice *device, guint64 address, guint32 bytes, GError **error, Access access)
{
    PortLink *link = ORV_GEN_API_PORT(device)->link;
    try {
        if (!link->budget.Admits(address, bytes))
            return Finish(link, ORV_CAM_ERR_GENICAM, "the camera's registers take too much memory", error);
        std::string why;
        const int status = access(*link->io, &why);
        return Finish(link, status, why, error);
    } catch (const std::exception &exception) {
        return Finish(link, ORV_CAM_ERR_UNKNOWN, exception.what(), error);
    }
}

gboolean ReadMemory(ArvDevice *device, guint64 address, guint32 bytes, void *data, GError **error)
{
    return Guarded(device, address, bytes, error,
                   [&](orv::cam::PortIo &io, std::string *why) { return io.Read(address, data, bytes, why); });
}

gboolean WriteMemory(ArvDevice *device, guint64 address, guint32 bytes, void *data, GError **error)
{
    return Guarded(device, address, bytes, error,
                   [&](orv::cam::PortIo &io, std::string *why) { return io.Write(address, data, bytes, why); });
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

static void orv_gen_api_port_init(OrvGenApiPort *) {}

static void orv_gen_api_port_class_init(OrvGenApiPortClass *klass)
{
    ArvDeviceClass *device = ARV_DEVICE_CLASS(klass);
    device->read_memory = ReadMemory;
    device->write_memory = WriteMemory;
    device->read_register = ReadRegister;
    device->write_register = WriteRegister;
}

namespace orv::cam {

namespace {

/// The library's parsers keep state of their own that all node maps share.
Mutex &ParseMutex()
{
    static Mutex *mutex = new Mutex;
    return *mutex;
}

void ForwardLog(const char *domain, GLogLevelFlags level, const char *text, void *)
{
    const bool harmless = (level & (G_LOG_LEVEL_INFO | G_LOG_LEVEL_DEBUG | G_LOG_LEVEL_MESSAGE)) != 0;
    Log(harmless ? OrvCam::LogLevel::Debug : OrvCam::LogLevel::Warning,
        std::string(domain != nullptr ? domain : "GLib") + ": " + (text != nullptr ? text : ""));
}

/// Keeps the library's complaints about odd descriptions off the standard error stream.
void RouteLibraryLog()
{
    static std::once_flag once;
    std::call_once(once, [] {
        const auto all = static_cast<GLogLevelFlags>(G_LOG_LEVEL_MASK | G_LOG_FLAG_RECURSION);
        // Some of its messages come without a domain, and those of its XML parser under one of their own.
        for (const char *domain : {static_cast<const char *>(nullptr), "Aravis", "XML", "GLib-GObject", "GLib"})
            g_log_set_handler(domain, all, ForwardLog, nullptr);
    });
}

int StatusOf(const GError &error)
{
    if (error.domain != ARV_GC_ERROR)
        return ORV_CAM_ERR_GENICAM;
    switch (error.code) {
    case ARV_GC_ERROR_OUT_OF_RANGE:
    case ARV_GC_ERROR_INVALID_LENGTH:
    case ARV_GC_ERROR_ENUM_ENTRY_NOT_FOUND:
        return ORV_CAM_ERR_OUT_OF_RANGE;
    case ARV_GC_ERROR_READ_ONLY:
        return ORV_CAM_ERR_NOT_WRITABLE;
    default:
        return ORV_CAM_ERR_GENICAM;
    }
}

/// One call into the library: takes its error and turns it into a status.
class Call {
public:
    explicit Call(PortLink &link) : m_link(link) { m_link.status = ORV_CAM_OK; }
    ~Call() { g_clear_error(&m_error); }
    Call(const Call &) = delete;
    Call &operator=(const Call &) = delete;

    GError **Error() { return &m_error; }
    /// What the port said counts more than what the library made of it.
    int Status() const
    {
        if (m_link.status != ORV_CAM_OK)
            return m_link.status;
        return m_error == nullptr ? ORV_CAM_OK : StatusOf(*m_error);
    }
    /// For limits: a node that has none sets an error too, and its answer is still the right default.
    int PortStatus() const { return m_link.status; }

private:
    PortLink &m_link;
    GError *m_error = nullptr;
};

ArvGcFeatureNode *Feature(GenApiNode *node)
{
    return ARV_GC_FEATURE_NODE(node);
}

} // namespace

struct GenApi::Impl {
    PortLink link;
    ArvDevice *device = nullptr;
    ArvGc *tree = nullptr;

    ~Impl()
    {
        // The tree does not hold the device, so the device goes last.
        g_clear_object(&tree);
        g_clear_object(&device);
    }
};

GenApi::GenApi(std::unique_ptr<Impl> impl) : m_impl(std::move(impl)) {}

GenApi::~GenApi() = default;

std::unique_ptr<GenApi> GenApi::Create(const std::string &xml, PortIo &port, std::string *error)
{
    RouteLibraryLog();
    auto impl = std::make_unique<Impl>();
    impl->link.io = &port;
    auto *device = ORV_GEN_API_PORT(g_object_new(orv_gen_api_port_get_type(), nullptr));
    device->link = &impl->link;
    impl->device = ARV_DEVICE(device);
    {
        MutexLock lock(ParseMutex());
        impl->tree = arv_gc_new(impl->device, xml.data(), xml.size());
    }
    if (impl->tree == nullptr) {
        *error = "the camera's description cannot be used";
        return nullptr;
    }
    // The library's register cache confuses addresses behind indices, so it stays off.
    arv_gc_set_register_cache_policy(impl->tree, ARV_REGISTER_CACHE_POLICY_DISABLE);
    arv_gc_set_range_check_policy(impl->tree, ARV_RANGE_CHECK_POLICY_ENABLE);
    arv_gc_set_access_check_policy(impl->tree, ARV_ACCESS_CHECK_POLICY_ENABLE);
    return std::unique_ptr<GenApi>(new GenApi(std::move(impl)));
}

GenApiNode *GenApi::Find(const std::string &name) const
{
    ArvGcNode *node = arv_gc_get_node(m_impl->tree, name.c_str());
    return ARV_IS_GC_FEATURE_NODE(node) ? reinterpret_cast<GenApiNode *>(node) : nullptr;
}

int GenApi::IsImplemented(GenApiNode *node, bool *yes)
{
    Call call(m_impl->link);
    *yes = arv_gc_feature_node_is_implemented(Feature(node), call.Error()) != FALSE;
    return call.Status();
}

int GenApi::IsAvailable(GenApiNode *node, bool *yes)
{
    Call call(m_impl->link);
    *yes = arv_gc_feature_node_is_available(Feature(node), call.Error()) != FALSE;
    return call.Status();
}

int GenApi::IsLocked(GenApiNode *node, bool *yes)
{
    Call call(m_impl->link);
    *yes = arv_gc_feature_node_is_locked(Feature(node), call.Error()) != FALSE;
    return call.Status();
}

GenApiAccess GenApi::AccessMode(GenApiNode *node)
{
    switch (arv_gc_feature_node_get_actual_access_mode(Feature(node))) {
    case ARV_GC_ACCESS_MODE_RO:
        return GenApiAccess::ReadOnly;
    case ARV_GC_ACCESS_MODE_WO:
        return GenApiAccess::WriteOnly;
    case ARV_GC_ACCESS_MODE_RW:
        return GenApiAccess::ReadWrite;
    default:
        return GenApiAccess::Undefined;
    }
}

int GenApi::GetInteger(GenApiNode *node, std::int64_t *value)
{
    if (!ARV_IS_GC_INTEGER(node))
        return ORV_CAM_ERR_WRONG_TYPE;
    Call call(m_impl->link);
    *value = arv_gc_integer_get_value(ARV_GC_INTEGER(node), call.Error());
    return call.Status();
}

int GenApi::SetInteger(GenApiNode *node, std::int64_t value)
{
    if (!ARV_IS_GC_INTEGER(node))
        return ORV_CAM_ERR_WRONG_TYPE;
    Call call(m_impl->link);
    arv_gc_integer_set_value(ARV_GC_INTEGER(node), value, call.Error());
    return call.Status();
}

int GenApi::GetIntegerRange(GenApiNode *node, IntegerRange *range)
{
    if (!ARV_IS_GC_INTEGER(node))
        return ORV_CAM_ERR_WRONG_TYPE;
    ArvGcInteger *integer = ARV_GC_INTEGER(node);
    Call minimum(m_impl->link);
    range->minimum = arv_gc_integer_get_min(integer, minimum.Error());
    if (minimum.PortStatus() != ORV_CAM_OK)
        return minimum.PortStatus();
    Call maximum(m_impl->link);
    range->maximum = arv_gc_integer_get_max(integer, maximum.Error());
    if (maximum.PortStatus() != ORV_CAM_OK)
        return maximum.PortStatus();
    Call increment(m_impl->link);
    range->increment = std::max<std::int64_t>(1, arv_gc_integer_get_inc(integer, increment.Error()));
    if (increment.PortStatus() != ORV_CAM_OK)
        return increment.PortStatus();
    const ArvGcRepresentation representation = arv_gc_integer_get_representation(integer);
    const bool isIp = representation == ARV_GC_REPRESENTATION_IPV4_ADDRESS;
    if (isIp || representation == ARV_GC_REPRESENTATION_MAC_ADDRESS) {
        const std::int64_t widest = (std::int64_t{1} << (isIp ? 32 : 48)) - 1;
        range->minimum = std::max<std::int64_t>(range->minimum, 0);
        range->maximum = std::min(range->maximum, widest);
    }
    return ORV_CAM_OK;
}

int GenApi::GetFloat(GenApiNode *node, double *value)
{
    if (!ARV_IS_GC_FLOAT(node))
        return ORV_CAM_ERR_WRONG_TYPE;
    Call call(m_impl->link);
    *value = arv_gc_float_get_value(ARV_GC_FLOAT(node), call.Error());
    return call.Status();
}

int GenApi::SetFloat(GenApiNode *node, double value)
{
    if (!ARV_IS_GC_FLOAT(node))
        return ORV_CAM_ERR_WRONG_TYPE;
    Call call(m_impl->link);
    arv_gc_float_set_value(ARV_GC_FLOAT(node), value, call.Error());
    return call.Status();
}

int GenApi::GetFloatRange(GenApiNode *node, FloatRange *range)
{
    if (!ARV_IS_GC_FLOAT(node))
        return ORV_CAM_ERR_WRONG_TYPE;
    ArvGcFloat *number = ARV_GC_FLOAT(node);
    Call minimum(m_impl->link);
    range->minimum = arv_gc_float_get_min(number, minimum.Error());
    if (minimum.PortStatus() != ORV_CAM_OK)
        return minimum.PortStatus();
    Call maximum(m_impl->link);
    range->maximum = arv_gc_float_get_max(number, maximum.Error());
    if (maximum.PortStatus() != ORV_CAM_OK)
        return maximum.PortStatus();
    Call increment(m_impl->link);
    range->increment = arv_gc_float_get_inc(number, increment.Error());
    // The smallest number there is stands for "no increment".
    if (!(range->increment > std::numeric_limits<double>::min()))
        range->increment = 0;
    return increment.PortStatus();
}

int GenApi::GetBoolean(GenApiNode *node, bool *value)
{
    if (!ARV_IS_GC_BOOLEAN(node))
        return ORV_CAM_ERR_WRONG_TYPE;
    Call call(m_impl->link);
    *value = arv_gc_boolean_get_value(ARV_GC_BOOLEAN(node), call.Error()) != FALSE;
    return call.Status();
}

int GenApi::SetBoolean(GenApiNode *node, bool value)
{
    if (!ARV_IS_GC_BOOLEAN(node))
        return ORV_CAM_ERR_WRONG_TYPE;
    Call call(m_impl->link);
    arv_gc_boolean_set_value(ARV_GC_BOOLEAN(node), value ? TRUE : FALSE, call.Error());
    return call.Status();
}

int GenApi::GetString(GenApiNode *node, std::string *value)
{
    if (!ARV_IS_GC_STRING(node))
        return ORV_CAM_ERR_WRONG_TYPE;
    Call call(m_impl->link);
    const char *text = arv_gc_string_get_value(ARV_GC_STRING(node), call.Error());
    if (call.Status() == ORV_CAM_OK && text != nullptr) // after a failure the text may never have been filled in
        *value = ToUtf8(text);
    return call.Status();
}

int GenApi::SetString(GenApiNode *node, const std::string &value)
{
    if (!ARV_IS_GC_STRING(node))
        return ORV_CAM_ERR_WRONG_TYPE;
    Call call(m_impl->link);
    arv_gc_string_set_value(ARV_GC_STRING(node), value.c_str(), call.Error());
    return call.Status();
}

int GenApi::GetStringMaximum(GenApiNode *node, std::int64_t *bytes)
{
    if (!ARV_IS_GC_STRING(node))
        return ORV_CAM_ERR_WRONG_TYPE;
    Call call(m_impl->link);
    *bytes = arv_gc_string_get_max_length(ARV_GC_STRING(node), call.Error());
    return call.Status();
}

int GenApi::GetEntry(GenApiNode *node, std::string *name)
{
    if (!ARV_IS_GC_ENUMERATION(node))
        return ORV_CAM_ERR_WRONG_TYPE;
    Call call(m_impl->link);
    const char *entry = arv_gc_enumeration_get_string_value(ARV_GC_ENUMERATION(node), call.Error());
    if (call.Status() == ORV_CAM_OK)
        *name = entry != nullptr ? entry : "";
    return call.Status();
}

int GenApi::GetEntryValue(GenApiNode *node, std::int64_t *value)
{
    if (!ARV_IS_GC_ENUMERATION(node))
        return ORV_CAM_ERR_WRONG_TYPE;
    Call call(m_impl->link);
    *value = arv_gc_enumeration_get_int_value(ARV_GC_ENUMERATION(node), call.Error());
    return call.Status();
}

int GenApi::SetEntry(GenApiNode *node, const std::string &name)
{
    if (!ARV_IS_GC_ENUMERATION(node))
        return ORV_CAM_ERR_WRONG_TYPE;
    Call call(m_impl->link);
    arv_gc_enumeration_set_string_value(ARV_GC_ENUMERATION(node), name.c_str(), call.Error());
    return call.Status();
}

int GenApi::SetEntryValue(GenApiNode *node, std::int64_t value)
{
    if (!ARV_IS_GC_ENUMERATION(node))
        return ORV_CAM_ERR_WRONG_TYPE;
    Call call(m_impl->link);
    arv_gc_enumeration_set_int_value(ARV_GC_ENUMERATION(node), value, call.Error());
    return call.Status();
}

int GenApi::GetEntries(GenApiNode *node, std::vector<std::string> *names)
{
    if (!ARV_IS_GC_ENUMERATION(node))
        return ORV_CAM_ERR_WRONG_TYPE;
    Call call(m_impl->link);
    guint count = 0;
    const char **entries =
        arv_gc_enumeration_dup_available_string_values(ARV_GC_ENUMERATION(node), &count, call.Error());
    const int status = call.Status();
    if (status == ORV_CAM_OK && entries != nullptr)
        names->assign(entries, entries + count);
    g_free(entries);
    return status;
}

int GenApi::Execute(GenApiNode *node)
{
    if (!ARV_IS_GC_COMMAND(node))
        return ORV_CAM_ERR_WRONG_TYPE;
    Call call(m_impl->link);
    arv_gc_command_execute(ARV_GC_COMMAND(node), call.Error());
    return call.Status();
}

} // namespace orv::cam
