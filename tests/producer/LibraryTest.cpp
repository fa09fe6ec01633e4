#include "ProducerFixture.h"

#include <elf.h>
#include <expat.h>

#include <fstream>
#include <iterator>
#include <regex>
#include <set>

namespace {

/// Names that the file exports, read from its own tables.
std::set<std::string> ExportedNames(const std::string &path)
{
    std::ifstream file(path, std::ios::binary);
    const std::string bytes{std::istreambuf_iterator<char>(file), {}};
    const auto *header = reinterpret_cast<const Elf64_Ehdr *>(bytes.data());
    const auto *sections = reinterpret_cast<const Elf64_Shdr *>(bytes.data() + header->e_shoff);
    std::set<std::string> names;
    for (int i = 0; i < header->e_shnum; ++i) {
        if (sections[i].sh_type != SHT_DYNSYM)
            continue;
        const char *texts = bytes.data() + sections[sections[i].sh_link].sh_offset;
        const auto *symbols = reinterpret_cast<const Elf64_Sym *>(bytes.data() + sections[i].sh_offset);
        for (std::size_t k = 0; k < sections[i].sh_size / sizeof(Elf64_Sym); ++k) {
            if (symbols[k].st_shndx != SHN_UNDEF)
                names.insert(texts + symbols[k].st_name);
        }
    }
    return names;
}

/// Calls a function with the handle first and the same hostile value for every other pointer.
template <class Argument> Argument Hostile(void *pointer)
{
    if constexpr (std::is_pointer_v<Argument>)
        return static_cast<Argument>(pointer);
    else
        return static_cast<Argument>(0);
}
template <class First, class... Rest>
GC_ERROR CallWith(GC_ERROR (*function)(First, Rest...), void *handle, void *pointer)
{
    if constexpr (std::is_same_v<First, void *>)
        return function(handle, Hostile<Rest>(pointer)...);
    else
        return GC_ERR_INVALID_HANDLE; // takes no handle
}
inline GC_ERROR CallWith(GC_ERROR (*)(), void *, void *)
{
    return GC_ERR_INVALID_HANDLE;
}

std::string WellFormedness(const std::string &xml)
{
    XML_Parser parser = XML_ParserCreate(nullptr);
    const bool good = XML_Parse(parser, xml.data(), static_cast<int>(xml.size()), 1) == XML_STATUS_OK;
    const std::string error = good ? "" : XML_ErrorString(XML_GetErrorCode(parser));
    XML_ParserFree(parser);
    return error;
}

} // namespace

TEST(ProducerFile, ExportsTheStandardsFunctionsAndNothingElse)
{
    std::set<std::string> expected;
#define NAME(since, name, parameters, arguments) expected.insert(#name);
    GENTL_FUNCTIONS(NAME)
#undef NAME
    EXPECT_EQ(expected.size(), 64U);
    EXPECT_EQ(ExportedNames(ORV_PRODUCER_FILE), expected);
}

TEST(ProducerFile, LoadsAgainAndKeepsItsState)
{
    std::string error;
    const auto first = orv::gentl::Library::Load(ORV_PRODUCER_FILE, &error);
    ASSERT_NE(first, nullptr) << error;
    TL_HANDLE system = nullptr;
    EXPECT_EQ((*first)->TLOpen(&system), GC_ERR_NOT_INITIALIZED);
    EXPECT_EQ((*first)->GCCloseLib(), GC_ERR_NOT_INITIALIZED);
    for (int round = 0; round < 3; ++round) {
        const auto again = orv::gentl::Library::Load(ORV_PRODUCER_FILE, &error);
        ASSERT_EQ((*again)->GCInitLib(), GC_ERR_SUCCESS);
        EXPECT_EQ((*first)->GCInitLib(), GC_ERR_RESOURCE_IN_USE);
        EXPECT_EQ((*again)->TLOpen(&system), GC_ERR_SUCCESS);
        EXPECT_EQ((*first)->TLOpen(&system), GC_ERR_RESOURCE_IN_USE);
        EXPECT_EQ((*again)->GCCloseLib(), GC_ERR_SUCCESS);
        std::uint32_t count = 0;
        EXPECT_EQ((*again)->TLGetNumInterfaces(system, &count), GC_ERR_NOT_INITIALIZED);
    }
}

TEST(ProducerFile, ClosingTheLibraryLeavesNoSystemThatAnotherThreadOpens)
{
    std::string error;
    const auto library = orv::gentl::Library::Load(ORV_PRODUCER_FILE, &error);
    ASSERT_NE(library, nullptr) << error;
    const orv::gentl::Functions &gc = library->Calls();
    std::atomic<bool> done{false};
    std::vector<std::thread> openers;
    for (int i = 0; i < 3; ++i) {
        openers.emplace_back([&] {
            TL_HANDLE system = nullptr;
            while (!done)
                (void)gc.TLOpen(&system);
        });
    }
    for (int round = 0; round < 300; ++round) {
        EXPECT_EQ(gc.GCInitLib(), GC_ERR_SUCCESS);
        EXPECT_EQ(gc.GCCloseLib(), GC_ERR_SUCCESS);
    }
    done = true;
    for (std::thread &opener : openers)
        opener.join();
    EXPECT_EQ(gc.GCInitLib(), GC_ERR_SUCCESS);
    TL_HANDLE system = nullptr;
    EXPECT_EQ(gc.TLOpen(&system), GC_ERR_SUCCESS) << "the last one was closed, whenever it was opened";
    EXPECT_EQ(gc.GCCloseLib(), GC_ERR_SUCCESS);
}

TEST_F(ProducerTest, LastErrorBelongsToItsThreadAndStays)
{
    std::thread other([&] {
        EXPECT_EQ(LastError(), "No Error");
        EXPECT_EQ(Gc().TLClose(nullptr), GC_ERR_INVALID_HANDLE);
        std::uint32_t count = 0;
        EXPECT_EQ(Gc().TLGetNumInterfaces(system, &count), GC_ERR_SUCCESS);
        EXPECT_NE(LastError().find("TLClose"), std::string::npos) << "a later success does not clear it";
        char tiny[2] = {};
        size_t size = sizeof tiny;
        GC_ERROR code = 0;
        EXPECT_EQ(Gc().GCGetLastError(&code, tiny, &size), GC_ERR_BUFFER_TOO_SMALL);
        EXPECT_NE(LastError().find("TLClose"), std::string::npos) << "its own failures are not remembered";
    });
    other.join();
    EXPECT_EQ(LastError().find("TLClose"), std::string::npos);
}

TEST_F(ProducerTest, HostileHandlesAreRefusedByEveryFunction)
{
    ASSERT_EQ(Gc().TLUpdateInterfaceList(system, nullptr, 10), GC_ERR_SUCCESS);
    IF_HANDLE stale = nullptr;
    ASSERT_EQ(Gc().TLOpenInterface(system, "GEV:lo:127.0.0.1", &stale), GC_ERR_SUCCESS) << LastError();
    ASSERT_EQ(Gc().IFClose(stale), GC_ERR_SUCCESS);
    int onTheStack = 0;
    for (void *handle : {static_cast<void *>(nullptr), reinterpret_cast<void *>(~std::uintptr_t{0}),
                         reinterpret_cast<void *>(1), stale, static_cast<void *>(&onTheStack)}) {
#define CALL(since, name, parameters, arguments)                                                                       \
    EXPECT_EQ(CallWith(Gc().name, handle, nullptr), GC_ERR_INVALID_HANDLE) << #name << " " << handle;
        GENTL_FUNCTIONS(CALL)
#undef CALL
    }
}

TEST_F(ProducerTest, InterfacesAreListedAndOpenedById)
{
    std::uint32_t count = 1;
    EXPECT_EQ(Gc().TLGetNumInterfaces(system, &count), GC_ERR_SUCCESS);
    EXPECT_EQ(count, 0U) << "before the first update";
    IF_HANDLE interface = nullptr;
    EXPECT_EQ(Gc().TLOpenInterface(system, "GEV:lo:127.0.0.1", &interface), GC_ERR_SUCCESS) << "without any list";
    EXPECT_EQ(Gc().TLOpenInterface(system, "GEV:lo:127.0.0.1", &interface), GC_ERR_RESOURCE_IN_USE);
    EXPECT_EQ(Gc().TLOpenInterface(system, "GEV:none", &interface), GC_ERR_INVALID_ID);

    bool8_t changed = 0;
    EXPECT_EQ(Gc().TLUpdateInterfaceList(system, &changed, 10), GC_ERR_SUCCESS);
    EXPECT_EQ(changed, 1);
    EXPECT_EQ(Gc().TLUpdateInterfaceList(system, &changed, 10), GC_ERR_SUCCESS);
    EXPECT_EQ(changed, 0);
    ASSERT_EQ(Gc().TLGetNumInterfaces(system, &count), GC_ERR_SUCCESS);
    std::set<std::string> ids;
    for (std::uint32_t i = 0; i < count; ++i) {
        ids.insert(Ask([&](INFO_DATATYPE *, void *out, size_t *size) {
                       return Gc().TLGetInterfaceID(system, i, static_cast<char *>(out), size);
                   }).c_str());
    }
    EXPECT_EQ(ids.size(), count) << "identifiers are unique";
    EXPECT_EQ(ids.count("GEV:lo:127.0.0.1"), 1U);
    size_t size = 0;
    EXPECT_EQ(Gc().TLGetInterfaceID(system, count, nullptr, &size), GC_ERR_INVALID_INDEX);
    EXPECT_EQ(Ask([&](auto... out) { return Gc().IFGetInfo(interface, INTERFACE_INFO_DISPLAYNAME, out...); }),
              "lo (127.0.0.1)");
    TL_HANDLE parent = nullptr;
    EXPECT_EQ(Gc().IFGetParentTL(interface, &parent), GC_ERR_SUCCESS);
    EXPECT_EQ(parent, system);
    EXPECT_EQ(Gc().TLClose(system), GC_ERR_SUCCESS);
    EXPECT_EQ(Gc().IFClose(interface), GC_ERR_INVALID_HANDLE) << "closed with its parent";
}

/// Every module describes itself: URL, port name, and a register behind every address.
class ModuleDescriptionTest : public CameraTest {
protected:
    struct Description {
        std::string url;
        std::string xml;
    };
    Description Fetch(PORT_HANDLE module)
    {
        Description description;
        description.url = Ask([&](auto... out) { return Gc().GCGetPortURLInfo(module, 0, URL_INFO_URL, out...); });
        std::smatch parts;
        if (!std::regex_match(description.url, parts, std::regex("local:([^;]+);([0-9a-f]+);([0-9a-f]+)")))
            return description;
        description.xml.resize(std::stoull(parts[3], nullptr, 16));
        size_t size = description.xml.size();
        EXPECT_EQ(Gc().GCReadPort(module, std::stoull(parts[2], nullptr, 16), description.xml.data(), &size),
                  GC_ERR_SUCCESS)
            << LastError();
        return description;
    }
    /// The address of a node's register.
    static std::uint64_t AddressOf(const std::string &xml, const std::string &node)
    {
        const auto at = xml.find("Name=\"" + node + "\"");
        return at == std::string::npos ? 0 : std::stoull(xml.substr(xml.find("<Address>", at) + 9), nullptr, 16);
    }
};

TEST_F(ModuleDescriptionTest, IsWellFormedAndEveryRegisterAnswers)
{
    ASSERT_EQ(OpenDevice(), GC_ERR_SUCCESS) << LastError();
    DS_HANDLE stream = nullptr;
    ASSERT_EQ(Gc().DevOpenDataStream(device, (DeviceId() + "/stream0").c_str(), &stream), GC_ERR_SUCCESS);
    const struct {
        PORT_HANDLE module;
        const char *portName;
        std::vector<const char *> features;
    } kModules[] = {
        {system,
         "TLPort",
         {"TLID", "TLVendorName", "TLModelName", "TLVersion", "TLPath", "TLType", "GenTLVersionMajor",
          "GenTLVersionMinor", "InterfaceUpdateList", "InterfaceSelector", "InterfaceID", "GevInterfaceMACAddress",
          "GevInterfaceDefaultIPAddress", "GevInterfaceDefaultSubnetMask", "GevInterfaceDefaultGateway"}},
        {interface,
         "InterfacePort",
         {"InterfaceID",
          "InterfaceType",
          "InterfaceTLVersionMajor",
          "InterfaceTLVersionMinor",
          "DeviceUpdateList",
          "DeviceSelector",
          "DeviceID",
          "DeviceVendorName",
          "DeviceModelName",
          "DeviceAccessStatus",
          "DeviceTLVersionMajor",
          "DeviceTLVersionMinor",
          "GevInterfaceMACAddress",
          "GevInterfaceSubnetSelector",
          "GevInterfaceSubnetIPAddress",
          "GevInterfaceSubnetMask",
          "GevInterfaceGatewaySelector",
          "GevInterfaceGateway",
          "GevDeviceIPAddress",
          "GevDeviceSubnetMask",
          "GevDeviceMACAddress",
          "GevDeviceForceIP",
          "GevDeviceForceIPAddress",
          "GevDeviceForceSubnetMask",
          "GevDeviceForceGateway"}},
        {device,
         "DevicePort",
         {"DeviceID", "DeviceVendorName", "DeviceModelName", "DeviceType", "DeviceAccessStatus", "StreamSelector",
          "StreamID", "GevDeviceIPAddress", "GevDeviceSubnetMask", "GevDeviceMACAddress", "GevDeviceGateway",
          "DeviceEndianessMechanism"}},
        {stream,
         "StreamPort",
         {"StreamID", "StreamType", "StreamAnnouncedBufferCount", "StreamBufferHandlingMode",
          "StreamAnnounceBufferMinimum", "StreamBufferAlignment"}},
    };
    for (const auto &row : kModules) {
        const Description description = Fetch(row.module);
        EXPECT_EQ(WellFormedness(description.xml), "") << row.portName;
        EXPECT_EQ(description.xml.back(), '\n');
        EXPECT_EQ(Ask([&](auto... out) { return Gc().GCGetPortInfo(row.module, PORT_INFO_PORTNAME, out...); }),
                  row.portName);
        EXPECT_NE(description.xml.find("<Port Name=\"" + std::string(row.portName) + "\""), std::string::npos);
        for (const char *feature : row.features)
            EXPECT_NE(description.xml.find("Name=\"" + std::string(feature) + "\""), std::string::npos) << feature;
        const std::regex registers("<Address>(0x[0-9a-f]+)</Address><Length>([0-9]+)</Length>");
        int count = 0;
        for (std::sregex_iterator it(description.xml.begin(), description.xml.end(), registers), end; it != end; ++it) {
            std::string bytes(std::stoul((*it)[2]), '\0');
            size_t size = bytes.size();
            EXPECT_EQ(Gc().GCReadPort(row.module, std::stoull((*it)[1], nullptr, 16), bytes.data(), &size),
                      GC_ERR_SUCCESS)
                << row.portName << " " << (*it)[0] << " " << LastError();
            ++count;
        }
        EXPECT_GT(count, 10) << row.portName;
        // References lead somewhere.
        const std::regex references("<(?:pFeature|pValue|pMax|pInvalidator|pSelected|pPort)>([^<]+)<");
        for (std::sregex_iterator it(description.xml.begin(), description.xml.end(), references), end; it != end; ++it)
            EXPECT_NE(description.xml.find("Name=\"" + (*it)[1].str() + "\""), std::string::npos) << (*it)[0];
        for (URL_INFO_CMD command = URL_INFO_URL; command <= URL_INFO_FILENAME; ++command) {
            size_t size = 0;
            EXPECT_NE(Gc().GCGetPortURLInfo(row.module, 0, command, nullptr, nullptr, &size), GC_ERR_NOT_IMPLEMENTED);
        }
        std::uint8_t byte = 0;
        size_t one = 1;
        EXPECT_EQ(Gc().GCReadPort(row.module, 0, &byte, &one), GC_ERR_INVALID_ADDRESS);
        EXPECT_EQ(Gc().GCReadPort(row.module, ~std::uint64_t{0}, &byte, &one), GC_ERR_INVALID_ADDRESS);
    }
}

TEST_F(ModuleDescriptionTest, SelectorsChooseWhatTheRegistersShow)
{
    const std::string xml = Fetch(interface).xml;
    const std::int64_t one = 1;
    size_t size = sizeof one;
    ASSERT_EQ(Gc().GCWritePort(interface, AddressOf(xml, "DeviceUpdateListReg"), &one, &size), GC_ERR_SUCCESS);
    std::uint32_t count = 0;
    ASSERT_EQ(Gc().IFGetNumDevices(interface, &count), GC_ERR_SUCCESS);
    ASSERT_EQ(count, 1U) << "the command looks for cameras";
    char id[64] = {};
    size = sizeof id;
    ASSERT_EQ(Gc().GCReadPort(interface, AddressOf(xml, "DeviceID"), id, &size), GC_ERR_SUCCESS);
    EXPECT_EQ(id, DeviceId());
    size = sizeof one;
    EXPECT_EQ(Gc().GCWritePort(interface, AddressOf(xml, "DeviceSelectorReg"), &one, &size), GC_ERR_INVALID_VALUE)
        << "there is only number 0";
    EXPECT_EQ(Gc().GCWritePort(interface, AddressOf(xml, "DeviceID"), &one, &size), GC_ERR_ACCESS_DENIED);
}

TEST_F(StreamTest, WrongHandlesAndPointersAreRefusedEverywhere)
{
    AllocateBuffers(1);
    BUFFER_HANDLE buffer = nullptr;
    ASSERT_EQ(Gc().DSGetBufferID(stream, 0, &buffer), GC_ERR_SUCCESS);
    // Each handle in every function: a wrong kind is refused, and the right kind survives wild pointers. What closes or
    // starts something is left out, as is what rightly succeeds.
    const std::set<std::string> kLeftOut = {"TLClose",          "IFClose",
                                            "DevClose",         "DSClose",
                                            "DSFlushQueue",     "EventFlush",
                                            "EventKill",        "TLUpdateInterfaceList",
                                            "EventGetData",     "IFUpdateDeviceList",
                                            "GCUnregisterEvent"};
    const struct {
        void *handle;
        std::string prefix;
    } kHandles[] = {{system, "TL"},       {interface, "IF"}, {device, "Dev"}, {stream, "DS"},
                    {newBuffer, "Event"}, {port, "-"},       {buffer, "-"}};
    for (const auto &row : kHandles) {
        for (void *wild : {static_cast<void *>(nullptr), reinterpret_cast<void *>(~std::uintptr_t{0})}) {
#define CALL(since, name, parameters, arguments)                                                                       \
    if (kLeftOut.count(#name) == 0) {                                                                                  \
        const GC_ERROR code = CallWith(Gc().name, row.handle, wild);                                                   \
        const bool takesAny = std::string(#name).rfind("GC", 0) == 0;                                                  \
        if (!takesAny && std::string(#name).rfind(row.prefix, 0) != 0) {                                               \
            EXPECT_EQ(code, GC_ERR_INVALID_HANDLE) << #name;                                                           \
        } else {                                                                                                       \
            EXPECT_NE(code, GC_ERR_SUCCESS) << #name << " of " << row.prefix;                                          \
        }                                                                                                              \
    }
            GENTL_FUNCTIONS(CALL)
#undef CALL
        }
    }
    EXPECT_EQ(Gc().DevClose(port), GC_ERR_INVALID_HANDLE) << "the camera's port is not closed";
    EXPECT_EQ(Gc().DSQueueBuffer(stream, stream), GC_ERR_INVALID_HANDLE);
    EXPECT_EQ(Gc().GCRegisterEvent(port, EVENT_ERROR, &newBuffer), GC_ERR_INVALID_HANDLE);
}
