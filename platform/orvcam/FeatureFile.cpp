#include "orvcam/FeatureFile.h"

#include "orvcam/FeatureNodes.h"
#include "orvcam/Log.h"
#include "orvcam/OrvStatus.h"
#include "orvcam/Text.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <expat.h>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <memory>
#include <unistd.h>
#include <unordered_set>

namespace orv::cam {

namespace {

constexpr char kRoot[] = "CameraConfiguration";
constexpr char kFormatVersion[] = "1";
constexpr std::uintmax_t kMaxFileBytes = 64u << 20;
constexpr int kRounds = 3;

/// A feature's value as text. \return ORV_CAM_ERR_WRONG_TYPE for kinds that have none.
int GetText(FeatureArrayImp &features, const NodeFacts &facts, std::string *text)
{
    int status = ORV_CAM_ERR_WRONG_TYPE;
    const char *name = facts.name.c_str();
    if (OrvCam::IntegerNode *integer = features.GetInt(name, &status)) {
        *text = std::to_string(integer->GetValue(&status));
    } else if (status != ORV_CAM_ERR_WRONG_TYPE) {
        return status;
    } else if (OrvCam::FloatNode *number = features.GetFloat(name, &status)) {
        *text = FormatDouble(number->GetValue(&status));
    } else if (OrvCam::BooleanNode *flag = features.GetBool(name, &status)) {
        *text = flag->GetValue(&status) ? "1" : "0";
    } else if (OrvCam::EnumerationNode *entry = features.GetEnum(name, &status)) {
        *text = entry->GetValue(&status);
    } else if (OrvCam::StringNode *string = features.GetString(name, &status)) {
        *text = string->GetValue(&status);
    }
    return status;
}

int SetText(FeatureArrayImp &features, const std::string &feature, const std::string &text)
{
    int status = ORV_CAM_OK;
    const char *name = feature.c_str();
    if (OrvCam::IntegerNode *integer = features.GetInt(name, &status)) {
        long long value = 0;
        return ParseInteger(text, &value) ? integer->SetValue(value) : ORV_CAM_ERR_OUT_OF_RANGE;
    }
    if (status != ORV_CAM_ERR_WRONG_TYPE)
        return status;
    if (OrvCam::FloatNode *number = features.GetFloat(name, &status)) {
        double value = 0;
        return ParseDouble(text, &value) ? number->SetValue(value) : ORV_CAM_ERR_OUT_OF_RANGE;
    }
    if (OrvCam::BooleanNode *flag = features.GetBool(name, &status))
        return text == "0" || text == "1" ? flag->SetValue(text == "1") : ORV_CAM_ERR_OUT_OF_RANGE;
    if (OrvCam::EnumerationNode *entry = features.GetEnum(name, &status))
        return entry->SetValue(text);
    if (OrvCam::StringNode *string = features.GetString(name, &status))
        return string->SetValue(text);
    return status;
}

bool HasText(NodeKind kind)
{
    return IntegerNodeImp::Covers(kind) || FloatNodeImp::Covers(kind) || BooleanNodeImp::Covers(kind) ||
           EnumerationNodeImp::Covers(kind) || StringNodeImp::Covers(kind);
}

/// Runs a bracket of commands around a job, for cameras that have them: some then check ranges only at the end.
class Bracket {
public:
    Bracket(FeatureArrayImp &features, const char *start, const char *end) : m_features(features), m_end(end)
    {
        m_features.ExecuteCommand(start);
    }
    ~Bracket() { m_features.ExecuteCommand(m_end); }
    Bracket(const Bracket &) = delete;
    Bracket &operator=(const Bracket &) = delete;

private:
    FeatureArrayImp &m_features;
    const char *m_end;
};

/// Features to be saved, in the order of the categories; what no category lists comes last.
std::vector<const NodeFacts *> Persistent(const Description &description)
{
    std::vector<const NodeFacts *> chosen;
    std::unordered_set<const NodeFacts *> seen;
    const auto add = [&](const NodeFacts &node) {
        const bool wanted = node.streamable || !description.marksStreamable;
        if (wanted && node.selectedBy.empty() && node.Usable() && seen.insert(&node).second)
            chosen.push_back(&node);
    };
    for (const std::string &name : description.FeatureNames())
        add(*description.Find(name));
    if (description.marksStreamable) {
        for (const NodeFacts &node : description.nodes) {
            if (node.streamable && description.Find(node.name) == &node)
                add(node);
        }
    }
    return chosen;
}

/// Writes beside the target and renames: a full disk or a crash leaves the old file.
bool WriteWhole(const std::string &target, const std::string &text, std::string *error)
{
    std::error_code ignored;
    const std::filesystem::path resolved = std::filesystem::weakly_canonical(target, ignored);
    const std::string path = ignored || resolved.empty() ? target : resolved.string();
    if (std::filesystem::exists(path, ignored) && !std::filesystem::is_regular_file(path, ignored)) {
        *error = "The configuration file " + target + " cannot be written: it is no file.";
        return false;
    }
    const std::string temporary = path + ".part" + std::to_string(getpid());
    const int file = open(temporary.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | O_NOFOLLOW, 0666);
    bool good = file >= 0;
    std::size_t done = 0;
    while (good && done < text.size()) {
        const ssize_t count = write(file, text.data() + done, text.size() - done);
        if (count > 0)
            done += static_cast<std::size_t>(count);
        else if (count == 0 || errno != EINTR)
            good = false;
    }
    good = good && fsync(file) == 0;
    int reason = errno;
    if (file >= 0 && close(file) != 0 && good) {
        reason = errno;
        good = false;
    }
    if (good && rename(temporary.c_str(), path.c_str()) == 0)
        return true;
    if (good)
        reason = errno;
    *error = "The configuration file " + target + " cannot be written: " + std::strerror(reason);
    if (file >= 0)
        unlink(temporary.c_str());
    return false;
}

bool IsControl(char c)
{
    return static_cast<unsigned char>(c) < 0x20;
}

/// Line ends and tabs would not survive in an attribute, and other control characters make no XML.
bool FitsAttribute(const std::string &value)
{
    return std::none_of(value.begin(), value.end(), IsControl);
}

/// A name as the file has it: what cameras call themselves may hold anything.
std::string NameInFile(const std::string &name)
{
    std::string text = ToUtf8(name);
    std::replace_if(text.begin(), text.end(), IsControl, ' ');
    return text;
}

std::string Attribute(const char *name, const std::string &value)
{
    return " " + std::string(name) + "=\"" + XmlEscaped(NameInFile(value)) + "\"";
}

/// Collects what the parser finds.
struct FileParse {
    XML_Parser parser = nullptr;
    int depth = 0;
    bool isOurs = false;
    std::string version;
    std::string vendor, model, serial, descriptionVersion;
    std::vector<std::pair<std::string, std::string>> features;

    void Start(const char *name, const char **attributes)
    {
        ++depth;
        std::string featureName, value;
        const struct {
            const char *element;
            const char *attribute;
            std::string *target;
        } kAttributes[] = {
            {kRoot, "formatVersion", &version},
            {kRoot, "vendor", &vendor},
            {kRoot, "model", &model},
            {kRoot, "serial", &serial},
            {"Feature", "name", &featureName},
            {"Feature", "value", &value},
            {kRoot, "descriptionVersion", &descriptionVersion},
        };
        for (const char **pair = attributes; pair[0] != nullptr; pair += 2) {
            for (const auto &row : kAttributes) {
                if (std::strcmp(name, row.element) == 0 && std::strcmp(pair[0], row.attribute) == 0)
                    *row.target = pair[1];
            }
        }
        if (depth == 1)
            isOurs = std::strcmp(name, kRoot) == 0;
        if (depth == 1 && !isOurs)
            XML_StopParser(parser, XML_FALSE);
        if (depth == 2 && std::strcmp(name, "Feature") == 0 && !featureName.empty())
            features.emplace_back(featureName, value);
    }
};

bool ReadWhole(const std::string &path, std::string *text)
{
    std::error_code error;
    if (!std::filesystem::is_regular_file(path, error) || std::filesystem::file_size(path, error) > kMaxFileBytes)
        return false;
    std::ifstream file(path, std::ios::binary);
    text->assign(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
    return file.good() || file.eof();
}

/// Adds the line of one feature to the file's text. What is not there, or never to be set, has none.
int AppendFeature(FeatureArrayImp &features, const NodeFacts &node, std::string *text)
{
    if (!HasText(node.kind))
        return ORV_CAM_OK;
    OrvCam::Access access = OrvCam::Access::NotImplemented;
    int status = features.GetUnlockedAccess(node, &access);
    if (status != ORV_CAM_OK || access != OrvCam::Access::ReadWrite)
        return status;
    std::string value;
    status = GetText(features, node, &value);
    if (status != ORV_CAM_OK)
        return status;
    if (!FitsAttribute(value))
        LogWarning("Configuration: " + node.name + " was left out, since its text holds control characters.");
    else if (EnumerationNodeImp::Covers(node.kind) && value.empty())
        LogWarning("Configuration: " + node.name + " was left out, since its value has no entry.");
    else
        *text += "  <Feature" + Attribute("name", node.name) + Attribute("value", value) + "/>\n";
    return ORV_CAM_OK;
}

using Entry = std::pair<std::string, std::string>; ///< name and value

/// One that is still to be set, and what the last try gave.
struct OpenEntry {
    const Entry *entry;
    int status;
};

int ApplyEntry(FeatureArrayImp &features, const Entry &entry)
{
    const NodeFacts *facts = features.Facts().Find(entry.first);
    std::string now;
    const bool isSet = facts != nullptr && GetText(features, *facts, &now) == ORV_CAM_OK && now == entry.second;
    return isSet ? ORV_CAM_OK : SetText(features, entry.first, entry.second);
}

void LogFailures(const std::vector<OpenEntry> &failed)
{
    constexpr std::size_t kMostLines = 100;
    for (std::size_t i = 0; i < std::min(failed.size(), kMostLines); ++i)
        LogWarning("Configuration: " + failed[i].entry->first + " could not be set to \"" + failed[i].entry->second +
                   "\". " + OrvCam_StatusText(failed[i].status));
    if (failed.size() > kMostLines)
        LogWarning("Configuration: " + std::to_string(failed.size() - kMostLines) + " more could not be set.");
}

} // namespace

bool FeatureFile::Read(const std::string &path, std::string *error)
{
    std::string text;
    if (!ReadWhole(path, &text)) {
        *error = "The configuration file " + path + " cannot be read.";
        return false;
    }
    FileParse parse;
    std::unique_ptr<std::remove_pointer<XML_Parser>::type, void (*)(XML_Parser)> parser(XML_ParserCreate(nullptr),
                                                                                        XML_ParserFree);
    parse.parser = parser.get();
    XML_SetUserData(parse.parser, &parse);
    XML_SetElementHandler(
        parse.parser,
        [](void *self, const XML_Char *name, const XML_Char **attributes) {
            static_cast<FileParse *>(self)->Start(name, attributes);
        },
        [](void *self, const XML_Char *) { --static_cast<FileParse *>(self)->depth; });
    XML_SetStartDoctypeDeclHandler(parse.parser,
                                   [](void *self, const XML_Char *, const XML_Char *, const XML_Char *, int) {
                                       XML_StopParser(static_cast<FileParse *>(self)->parser, XML_FALSE);
                                   });
    const XML_Status status = XML_Parse(parse.parser, text.data(), static_cast<int>(text.size()), XML_TRUE);
    if (status != XML_STATUS_OK || !parse.isOurs) {
        *error = "The file " + path + " is no camera configuration.";
        return false;
    }
    if (parse.version != kFormatVersion) {
        *error = "The configuration file " + path + " is of the unknown format \"" + parse.version + "\".";
        return false;
    }
    m_vendor = parse.vendor;
    m_model = parse.model;
    m_serial = parse.serial;
    m_descriptionVersion = parse.descriptionVersion;
    m_features = std::move(parse.features);
    return true;
}

std::string FeatureFile::CameraName() const
{
    return m_vendor + " " + m_model + (m_serial.empty() ? "" : " (SN " + m_serial + ")");
}

bool FeatureFile::IsOf(const OrvCam::DeviceDescription &device) const
{
    return NameInFile(device.vendor) == m_vendor && NameInFile(device.model) == m_model &&
           (m_serial.empty() || NameInFile(device.serial) == m_serial);
}

int FeatureFile::Apply(FeatureArrayImp &features) const
{
    if (NameInFile(features.Facts().version) != m_descriptionVersion)
        LogWarning("The configuration was saved with version " + m_descriptionVersion +
                   " of the camera's description; the camera has " + features.Facts().version + ".");
    const Bracket bracket(features, "DeviceRegistersStreamingStart", "DeviceRegistersStreamingEnd");
    std::vector<OpenEntry> open;
    for (const auto &entry : m_features)
        open.push_back({&entry, ORV_CAM_OK});
    for (int round = 0; round < kRounds && !open.empty(); ++round) {
        std::vector<OpenEntry> failed;
        for (const OpenEntry &item : open) {
            const int status = ApplyEntry(features, *item.entry);
            if (status == ORV_CAM_ERR_DEVICE_LOST)
                return status;
            if (status != ORV_CAM_OK)
                failed.push_back({item.entry, status});
        }
        if (failed.size() == open.size())
            round = kRounds; // no progress: another round would not help
        open = std::move(failed);
    }
    LogFailures(open);
    return open.empty() ? ORV_CAM_OK : ORV_CAM_ERR_GENICAM;
}

int SaveFeatureFile(const std::string &path, FeatureArrayImp &features, const OrvCam::DeviceDescription &device)
{
    std::string text = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<" + std::string(kRoot) +
                       Attribute("formatVersion", kFormatVersion) + Attribute("vendor", device.vendor) +
                       Attribute("model", device.model) + Attribute("serial", device.serial) +
                       Attribute("descriptionVersion", features.Facts().version) + ">\n";
    {
        const Bracket bracket(features, "DeviceFeaturePersistenceStart", "DeviceFeaturePersistenceEnd");
        for (const NodeFacts *node : Persistent(features.Facts())) {
            const int status = AppendFeature(features, *node, &text);
            if (status == ORV_CAM_ERR_DEVICE_LOST)
                return status;
            if (status != ORV_CAM_OK) {
                LogWarning("The configuration was not saved: " + node->name + " could not be read. " +
                           OrvCam_StatusText(status));
                return ORV_CAM_ERR_GENICAM;
            }
        }
    }
    text += "</" + std::string(kRoot) + ">\n";
    std::string error;
    if (WriteWhole(path, text, &error))
        return ORV_CAM_OK;
    LogWarning(error);
    return ORV_CAM_ERR_FILE;
}

} // namespace orv::cam
