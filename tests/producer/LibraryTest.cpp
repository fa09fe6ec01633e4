#include "ProducerFixture.h"

#include <elf.h>

#include <fstream>
#include <iterator>
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
    ASSERT_NO_FATAL_FAILURE(OpenInterface());
    ASSERT_EQ(Gc().IFClose(interface), GC_ERR_SUCCESS);
    int onTheStack = 0;
    for (void *handle : {static_cast<void *>(nullptr), reinterpret_cast<void *>(~std::uintptr_t{0}),
                         reinterpret_cast<void *>(1), interface, static_cast<void *>(&onTheStack)}) {
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
    OpenInterface(); // without any list
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
    EXPECT_EQ(Gc().TLClose(system), GC_ERR_SUCCESS);
    EXPECT_EQ(Gc().IFClose(interface), GC_ERR_INVALID_HANDLE) << "closed with its parent";
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
