#include "orvcam/FeatureNodes.h"

#include "orvcam/OrvStatus.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace orv::cam {

namespace {

/// Ends a getter: stores the status where asked for, and gives the empty value after a failure.
template <class Value> Value Answer(int status, Value value, int *err)
{
    if (err != nullptr)
        *err = status;
    return status == ORV_CAM_OK ? value : Value();
}

bool IsOnStep(std::int64_t value, const IntegerRange &range)
{
    const auto distance = static_cast<std::uint64_t>(value) - static_cast<std::uint64_t>(range.minimum);
    return distance % static_cast<std::uint64_t>(range.increment) == 0;
}

double NearestStep(double value, const FloatRange &range)
{
    if (range.increment <= 0)
        return value;
    // Without a minimum of its own, steps count from 0.
    const double first = range.minimum == std::numeric_limits<double>::lowest() ? 0 : range.minimum;
    // 0.3 is three steps of 0.1, though not in the last digit.
    constexpr double kStepNoise = 1e-9;
    const double most = std::floor((range.maximum - first) / range.increment + kStepNoise);
    const double steps = std::min(std::round((value - first) / range.increment), most);
    if (!std::isfinite(steps))
        return value; // steps too fine to tell apart
    return std::clamp(first + steps * range.increment, range.minimum, range.maximum);
}

} // namespace

OrvCam::Access FeatureBase::CurrentAccess()
{
    const NodeLock lock(m_map.mutex);
    OrvCam::Access access;
    if (m_map.GetAccess(m_facts, &access) == ORV_CAM_OK)
        m_lastAccess = access;
    return m_lastAccess;
}

bool IntegerNodeImp::Covers(NodeKind kind)
{
    return kind == NodeKind::Integer || kind == NodeKind::IntReg || kind == NodeKind::MaskedIntReg ||
           kind == NodeKind::StructEntry || kind == NodeKind::IntConverter || kind == NodeKind::IntSwissKnife;
}

std::int64_t IntegerNodeImp::GetValue(int *err)
{
    const NodeLock lock(m_map.mutex);
    std::int64_t value = 0;
    int status = m_map.CheckReadable(m_facts);
    if (status == ORV_CAM_OK)
        status = m_map.Api().GetInteger(m_node, &value);
    return Answer(status, value, err);
}

int IntegerNodeImp::SetValue(std::int64_t value)
{
    const NodeLock lock(m_map.mutex);
    IntegerRange range;
    int status = m_map.CheckWritable(m_facts);
    if (status == ORV_CAM_OK)
        status = m_map.Api().GetIntegerRange(m_node, &range);
    if (status != ORV_CAM_OK)
        return status;
    if (value < range.minimum || value > range.maximum || !IsOnStep(value, range))
        return ORV_CAM_ERR_OUT_OF_RANGE;
    return m_map.Api().SetInteger(m_node, value);
}

IntegerRange IntegerNodeImp::Range(int *err)
{
    const NodeLock lock(m_map.mutex);
    IntegerRange range;
    int status = m_map.CheckPresent(m_facts);
    if (status == ORV_CAM_OK)
        status = m_map.Api().GetIntegerRange(m_node, &range);
    return Answer(status, range, err);
}

std::int64_t IntegerNodeImp::GetIncrement(int *err)
{
    int status = ORV_CAM_OK;
    const std::int64_t increment = Range(&status).increment;
    return Answer(status, increment, err);
}

bool FloatNodeImp::Covers(NodeKind kind)
{
    return kind == NodeKind::Float || kind == NodeKind::FloatReg || kind == NodeKind::Converter ||
           kind == NodeKind::SwissKnife;
}

double FloatNodeImp::GetValue(int *err)
{
    const NodeLock lock(m_map.mutex);
    double value = 0;
    int status = m_map.CheckReadable(m_facts);
    if (status == ORV_CAM_OK)
        status = m_map.Api().GetFloat(m_node, &value);
    return Answer(status, value, err);
}

int FloatNodeImp::SetValue(double value)
{
    const NodeLock lock(m_map.mutex);
    FloatRange range;
    int status = m_map.CheckWritable(m_facts);
    if (status == ORV_CAM_OK)
        status = m_map.Api().GetFloatRange(m_node, &range);
    if (status != ORV_CAM_OK)
        return status;
    if (!(value >= range.minimum && value <= range.maximum)) // so written, a NaN is out of range
        return ORV_CAM_ERR_OUT_OF_RANGE;
    return m_map.Api().SetFloat(m_node, NearestStep(value, range));
}

FloatRange FloatNodeImp::Range(int *err)
{
    const NodeLock lock(m_map.mutex);
    FloatRange range;
    int status = m_map.CheckPresent(m_facts);
    if (status == ORV_CAM_OK)
        status = m_map.Api().GetFloatRange(m_node, &range);
    return Answer(status, range, err);
}

bool BooleanNodeImp::GetValue(int *err)
{
    const NodeLock lock(m_map.mutex);
    bool value = false;
    int status = m_map.CheckReadable(m_facts);
    if (status == ORV_CAM_OK)
        status = m_map.Api().GetBoolean(m_node, &value);
    return Answer(status, value, err);
}

int BooleanNodeImp::SetValue(bool value)
{
    const NodeLock lock(m_map.mutex);
    const int status = m_map.CheckWritable(m_facts);
    return status == ORV_CAM_OK ? m_map.Api().SetBoolean(m_node, value) : status;
}

std::string StringNodeImp::GetValue(int *err)
{
    const NodeLock lock(m_map.mutex);
    std::string value;
    int status = m_map.CheckReadable(m_facts);
    if (status == ORV_CAM_OK)
        status = m_map.Api().GetString(m_node, &value);
    return Answer(status, value, err);
}

int StringNodeImp::SetValue(const std::string &value)
{
    const NodeLock lock(m_map.mutex);
    std::int64_t maximum = 0;
    int status = m_map.CheckWritable(m_facts);
    if (status == ORV_CAM_OK)
        status = m_map.Api().GetStringMaximum(m_node, &maximum);
    if (status != ORV_CAM_OK)
        return status;
    const bool holdsNul = value.find('\0') != std::string::npos;
    if (holdsNul || static_cast<std::uint64_t>(value.size()) > static_cast<std::uint64_t>(maximum))
        return ORV_CAM_ERR_OUT_OF_RANGE;
    return m_map.Api().SetString(m_node, value);
}

std::string EnumerationNodeImp::GetValue(int *err)
{
    const NodeLock lock(m_map.mutex);
    std::string entry;
    int status = m_map.CheckReadable(m_facts);
    if (status == ORV_CAM_OK)
        status = m_map.Api().GetEntry(m_node, &entry);
    return Answer(status, entry, err);
}

std::int64_t EnumerationNodeImp::GetIntValue(int *err)
{
    const NodeLock lock(m_map.mutex);
    std::int64_t value = 0;
    int status = m_map.CheckReadable(m_facts);
    if (status == ORV_CAM_OK)
        status = m_map.Api().GetEntryValue(m_node, &value);
    return Answer(status, value, err);
}

int EnumerationNodeImp::SetValue(const std::string &entry)
{
    const NodeLock lock(m_map.mutex);
    const int status = m_map.CheckWritable(m_facts);
    return status == ORV_CAM_OK ? m_map.Api().SetEntry(m_node, entry) : status;
}

int EnumerationNodeImp::SetIntValue(std::int64_t value)
{
    const NodeLock lock(m_map.mutex);
    const int status = m_map.CheckWritable(m_facts);
    return status == ORV_CAM_OK ? m_map.Api().SetEntryValue(m_node, value) : status;
}

std::vector<std::string> EnumerationNodeImp::GetEntries(int *err)
{
    const NodeLock lock(m_map.mutex);
    std::vector<std::string> names;
    int status = m_map.CheckPresent(m_facts);
    if (status == ORV_CAM_OK)
        status = m_map.Api().GetEntries(m_node, &names);
    return Answer(status, names, err);
}

} // namespace orv::cam
