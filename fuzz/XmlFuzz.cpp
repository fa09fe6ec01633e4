// Camera descriptions: our check of them, the GenApi tree made of what passed, and its features read and set.
//
// Input: the description itself. The camera's registers hold their own addresses.
#include "fuzz/Target.h"
#include "orvcam/Description.h"
#include "orvcam/FeatureArrayImp.h"
#include "orvcam/OrvStatus.h"

#include <string>

namespace {

using namespace orv::fuzz;

constexpr std::size_t kMostFeatures = 40;
constexpr std::size_t kMostRead = 16 << 20;

/// Registers at every address.
class AnyPort final : public orv::cam::PortIo {
public:
    int Read(std::uint64_t address, void *data, std::size_t bytes, std::string *) override
    {
        Require(bytes <= kMostRead, "no register is larger than memory allows");
        for (std::size_t i = 0; i < bytes; ++i)
            static_cast<std::uint8_t *>(data)[i] = static_cast<std::uint8_t>(address + i);
        return ORV_CAM_OK;
    }
    int Write(std::uint64_t, const void *data, std::size_t bytes, std::string *) override
    {
        volatile std::uint8_t sum = 0; // so that every byte is looked at
        for (std::size_t i = 0; i < bytes; ++i)
            sum = static_cast<std::uint8_t>(sum + static_cast<const std::uint8_t *>(data)[i]);
        return ORV_CAM_OK;
    }
};

void UseInteger(orv::cam::FeatureArrayImp &features, const char *name)
{
    OrvCam::IntegerNode *node = features.GetInt(name);
    if (node == nullptr)
        return;
    (void)node->GetMin();
    (void)node->GetMax();
    (void)node->GetIncrement();
    (void)node->SetValue(node->GetValue());
    (void)node->SetValue(INT64_MIN);
}

void UseFloat(orv::cam::FeatureArrayImp &features, const char *name)
{
    OrvCam::FloatNode *node = features.GetFloat(name);
    if (node == nullptr)
        return;
    (void)node->GetMin();
    (void)node->GetMax();
    (void)node->SetValue(node->GetValue());
}

void UseChoice(orv::cam::FeatureArrayImp &features, const char *name)
{
    OrvCam::EnumerationNode *node = features.GetEnum(name);
    if (node == nullptr)
        return;
    (void)node->GetIntValue();
    (void)node->SetValue(node->GetValue());
    for (const std::string &entry : node->GetEntries())
        (void)node->SetValue(entry);
}

/// All but commands, whose end would be waited for.
void Use(orv::cam::FeatureArrayImp &features, const OrvCam::FeatureInfo &info)
{
    const char *name = info.name.c_str();
    (void)features.GetAccess(name);
    UseInteger(features, name);
    UseFloat(features, name);
    UseChoice(features, name);
    if (OrvCam::BooleanNode *node = features.GetBool(name))
        (void)node->SetValue(!node->GetValue());
    if (OrvCam::StringNode *node = features.GetString(name))
        (void)node->SetValue(node->GetValue());
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    const std::string xml(data, data + size);
    orv::cam::Description description;
    std::string cleaned;
    std::string error;
    if (!orv::cam::ReadDescription(xml, &description, &cleaned, &error)) {
        Require(!error.empty(), "a reason for what is not read");
        return 0;
    }
    // What passed the check is read the same way again, with nothing left to take out.
    orv::cam::Description again;
    std::string cleanedAgain;
    Require(orv::cam::ReadDescription(cleaned, &again, &cleanedAgain, &error), "what was cleaned can be read");

    AnyPort port;
    const auto features = orv::cam::FeatureArrayImp::Create(xml, port, &error);
    if (features == nullptr)
        return 0;
    std::size_t left = kMostFeatures;
    for (const OrvCam::FeatureInfo &info : features->FeatureTree()) {
        if (left-- == 0)
            break;
        Use(*features, info);
    }
    return 0;
}
