#include <arv.h>

#include "tests/simulator/GenApiBridge.h"

#include "simulator/features/NumberText.h"

#include <algorithm>
#include <set>

/// A device of the library's kind that is nothing but memory.
G_DECLARE_FINAL_TYPE(OrvSimMemory, orv_sim_memory, ORV, SIM_MEMORY, ArvDevice)
struct _OrvSimMemory {
    ArvDevice parent_instance;
    const orvsim::GenApiBridge::Read *read; ///< plain pointers: GObject runs no constructors
    const orvsim::GenApiBridge::Write *write;
};
G_DEFINE_TYPE(OrvSimMemory, orv_sim_memory, ARV_TYPE_DEVICE)

namespace {

template <class Access, class Byte>
gboolean Do(const Access &access, guint64 address, guint32 size, Byte *bytes, GError **error)
{
    if (address <= 0xffffffff && access(static_cast<std::uint32_t>(address), size, bytes) == orvsim::Outcome::Ok)
        return TRUE;
    g_set_error(error, ARV_DEVICE_ERROR, ARV_DEVICE_ERROR_TRANSFER_ERROR, "0x%llx is refused",
                static_cast<unsigned long long>(address));
    return FALSE;
}

gboolean ReadMemory(ArvDevice *device, guint64 address, guint32 size, void *data, GError **error)
{
    return Do(*ORV_SIM_MEMORY(device)->read, address, size, static_cast<std::uint8_t *>(data), error);
}

gboolean WriteMemory(ArvDevice *device, guint64 address, guint32 size, void *data, GError **error)
{
    return Do(*ORV_SIM_MEMORY(device)->write, address, size, static_cast<const std::uint8_t *>(data), error);
}

} // namespace

static void orv_sim_memory_init(OrvSimMemory *) {}

static void orv_sim_memory_class_init(OrvSimMemoryClass *objectClass)
{
    ARV_DEVICE_CLASS(objectClass)->read_memory = ReadMemory;
    ARV_DEVICE_CLASS(objectClass)->write_memory = WriteMemory;
}

namespace orvsim {

namespace {

const char *KindOfNode(ArvGcNode *node)
{
    // The most specific first: an enumeration answers to Integer and String as well.
    if (node == nullptr)
        return "";
    if (ARV_IS_GC_CATEGORY(node))
        return "Category";
    if (ARV_IS_GC_COMMAND(node))
        return "Command";
    if (ARV_IS_GC_ENUMERATION(node))
        return "Enumeration";
    if (ARV_IS_GC_BOOLEAN(node))
        return "Boolean";
    if (ARV_IS_GC_STRING(node))
        return "String";
    if (ARV_IS_GC_FLOAT(node))
        return "Float";
    return ARV_IS_GC_INTEGER(node) ? "Integer" : "Other";
}

std::string OrEmpty(const char *text)
{
    return text != nullptr ? text : "";
}

std::string TextOfNode(ArvGcNode *node, GError **error)
{
    const std::string kind = KindOfNode(node);
    if (kind == "Integer")
        return TextOf(std::int64_t{arv_gc_integer_get_value(ARV_GC_INTEGER(node), error)});
    if (kind == "Float")
        return TextOf(arv_gc_float_get_value(ARV_GC_FLOAT(node), error));
    if (kind == "Enumeration")
        return OrEmpty(arv_gc_enumeration_get_string_value(ARV_GC_ENUMERATION(node), error));
    if (kind == "Boolean")
        return arv_gc_boolean_get_value(ARV_GC_BOOLEAN(node), error) ? "1" : "0";
    return kind == "String" ? OrEmpty(arv_gc_string_get_value(ARV_GC_STRING(node), error)) : "";
}

void SetNode(ArvGcNode *node, const std::string &text, GError **error)
{
    const std::string kind = KindOfNode(node);
    if (kind == "Integer")
        arv_gc_integer_set_value(ARV_GC_INTEGER(node), IntegerFrom(text).value_or(0), error);
    else if (kind == "Float")
        arv_gc_float_set_value(ARV_GC_FLOAT(node), FloatFrom(text).value_or(0), error);
    else if (kind == "Enumeration")
        arv_gc_enumeration_set_string_value(ARV_GC_ENUMERATION(node), text.c_str(), error);
    else if (kind == "Boolean")
        arv_gc_boolean_set_value(ARV_GC_BOOLEAN(node), text == "1", error);
    else if (kind == "String")
        arv_gc_string_set_value(ARV_GC_STRING(node), text.c_str(), error);
    else if (kind == "Command")
        arv_gc_command_execute(ARV_GC_COMMAND(node), error);
    else
        g_set_error(error, ARV_DEVICE_ERROR, ARV_DEVICE_ERROR_TRANSFER_ERROR, "there is no such feature");
}

} // namespace

struct GenApiBridge::Parts {
    Read read;
    Write write;
    OrvSimMemory *device = nullptr;
    ArvGc *nodes = nullptr;
    std::string error;

    ArvGcNode *Node(const std::string &name) const { return arv_gc_get_node(nodes, name.c_str()); }

    /// Runs one call of the library and keeps its error.
    template <class Call> auto Do(Call call)
    {
        GError *failure = nullptr;
        auto result = call(&failure);
        error = failure != nullptr ? failure->message : "";
        g_clear_error(&failure);
        return result;
    }

    void List(const std::string &category, std::vector<std::string> &names, std::set<std::string> &seen) const
    {
        ArvGcNode *node = Node(category);
        if (node == nullptr || !ARV_IS_GC_CATEGORY(node) || !seen.insert(category).second)
            return;
        std::vector<std::string> members; // copied: the library's list is gone with its next call
        for (const GSList *it = arv_gc_category_get_features(ARV_GC_CATEGORY(node)); it != nullptr; it = it->next)
            members.emplace_back(static_cast<const char *>(it->data));
        for (const std::string &member : members) {
            if (ARV_IS_GC_CATEGORY(Node(member)))
                List(member, names, seen);
            else if (seen.insert(member).second)
                names.push_back(member);
        }
    }
};

GenApiBridge::GenApiBridge(const std::string &xml, Read read, Write write) : m_parts(std::make_unique<Parts>())
{
    m_parts->read = std::move(read);
    m_parts->write = std::move(write);
    m_parts->device = ORV_SIM_MEMORY(g_object_new(orv_sim_memory_get_type(), nullptr));
    m_parts->device->read = &m_parts->read;
    m_parts->device->write = &m_parts->write;
    m_parts->nodes = arv_gc_new(ARV_DEVICE(m_parts->device), xml.data(), xml.size());
    if (m_parts->nodes == nullptr)
        return;
    arv_gc_set_range_check_policy(m_parts->nodes, ARV_RANGE_CHECK_POLICY_ENABLE);
    arv_gc_set_access_check_policy(m_parts->nodes, ARV_ACCESS_CHECK_POLICY_ENABLE);
}

void GenApiBridge::CacheRegisters()
{
    arv_gc_set_register_cache_policy(m_parts->nodes, ARV_REGISTER_CACHE_POLICY_ENABLE);
}

GenApiBridge::~GenApiBridge()
{
    g_clear_object(&m_parts->nodes);
    g_clear_object(&m_parts->device);
}

bool GenApiBridge::IsOpen() const
{
    return m_parts->nodes != nullptr && ARV_IS_GC_CATEGORY(m_parts->Node("Root"));
}

std::vector<std::string> GenApiBridge::Features() const
{
    std::vector<std::string> names;
    std::set<std::string> seen;
    m_parts->List("Root", names, seen);
    return names;
}

std::string GenApiBridge::KindOf(const std::string &name) const
{
    return KindOfNode(m_parts->Node(name));
}

std::string GenApiBridge::Get(const std::string &name)
{
    const std::string text = m_parts->Do([&](GError **error) { return TextOfNode(m_parts->Node(name), error); });
    return m_parts->error.empty() ? text : std::string();
}

bool GenApiBridge::Set(const std::string &name, const std::string &text)
{
    return m_parts->Do([&](GError **error) {
        SetNode(m_parts->Node(name), text, error);
        return *error == nullptr;
    });
}

IntegerRange GenApiBridge::IntegerRangeOf(const std::string &name)
{
    if (KindOf(name) != "Integer")
        return {};
    ArvGcInteger *node = ARV_GC_INTEGER(m_parts->Node(name));
    IntegerRange range;
    range.minimum = m_parts->Do([&](GError **error) { return arv_gc_integer_get_min(node, error); });
    range.maximum = m_parts->Do([&](GError **error) { return arv_gc_integer_get_max(node, error); });
    range.increment = m_parts->Do([&](GError **error) { return arv_gc_integer_get_inc(node, error); });
    return range;
}

FloatRange GenApiBridge::FloatRangeOf(const std::string &name)
{
    if (KindOf(name) != "Float")
        return {};
    ArvGcFloat *node = ARV_GC_FLOAT(m_parts->Node(name));
    FloatRange range;
    range.minimum = m_parts->Do([&](GError **error) { return arv_gc_float_get_min(node, error); });
    range.maximum = m_parts->Do([&](GError **error) { return arv_gc_float_get_max(node, error); });
    return range;
}

bool GenApiBridge::IsAvailable(const std::string &name)
{
    ArvGcNode *node = m_parts->Node(name);
    return node != nullptr && m_parts->Do([&](GError **error) {
        return arv_gc_feature_node_is_available(ARV_GC_FEATURE_NODE(node), error) != FALSE;
    });
}

bool GenApiBridge::IsLocked(const std::string &name)
{
    ArvGcNode *node = m_parts->Node(name);
    return node != nullptr && m_parts->Do([&](GError **error) {
        return arv_gc_feature_node_is_locked(ARV_GC_FEATURE_NODE(node), error) != FALSE;
    });
}

std::string GenApiBridge::AccessOf(const std::string &name)
{
    ArvGcNode *node = m_parts->Node(name);
    if (node == nullptr)
        return {};
    return arv_gc_access_mode_to_string(arv_gc_feature_node_get_actual_access_mode(ARV_GC_FEATURE_NODE(node)));
}

const std::string &GenApiBridge::Error() const
{
    return m_parts->error;
}

} // namespace orvsim
