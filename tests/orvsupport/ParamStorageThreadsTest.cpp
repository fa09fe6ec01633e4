#include "ParamFixture.h"

#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <thread>

namespace {

constexpr int kRounds = 2000;

/// Hears every change and reads the store back from inside the notification.
class Reader final : public OrvParamListener {
public:
    explicit Reader(OrvParamStorage *store) : m_store(store) {}

    void ParamChanged(_OrvStParam param) override
    {
        char text[32];
        unsigned int length = sizeof text;
        if (m_store->GetParamAsString(param.name, text, &length, nullptr) == ORV_PARAM_OK)
            ++heard;
    }

    std::atomic<int> heard{0};

private:
    OrvParamStorage *m_store;
};

/// "aaaaaaaa", "bbbbbbbb": a torn string would hold both letters.
bool IsOneLetter(const char *text)
{
    return std::string(text).find_first_not_of(text[0]) == std::string::npos;
}

void WriteStrings(OrvParamStorage &store, char letter)
{
    for (int round = 0; round < kRounds; ++round) {
        std::string text(1 + round % 15, letter);
        store.SetParamString(Name("String"), text.data(), true);
    }
}

int ReadTornStrings(OrvParamStorage &store)
{
    int torn = 0;
    for (int round = 0; round < kRounds; ++round) {
        char text[16];
        unsigned int length = sizeof text;
        if (store.GetParamString(Name("String"), text, &length) == ORV_PARAM_OK && !IsOneLetter(text))
            ++torn;
    }
    return torn;
}

TEST(ParamStorageThreads, StringsAreNeverTorn)
{
    EveryType all;
    Reader reader(&all.store);
    all.store.AddParamChangedListener(Name("String"), &reader);
    int torn = 0;
    std::thread first([&] { WriteStrings(all.store, 'a'); });
    std::thread second([&] { WriteStrings(all.store, 'b'); });
    std::thread third([&] { torn = ReadTornStrings(all.store); });
    first.join();
    second.join();
    third.join();
    EXPECT_EQ(torn, 0);
    EXPECT_EQ(reader.heard, 2 * kRounds);
}

TEST(ParamStorageThreads, ListenersMayJoinWhileChangesAreAnnounced)
{
    EveryType all;
    std::vector<std::unique_ptr<Reader>> readers;
    for (int index = 0; index < 50; ++index)
        readers.push_back(std::make_unique<Reader>(&all.store));
    std::thread writer([&] {
        for (int round = 0; round < kRounds; ++round)
            all.store.SetParamInt(Name("Int"), round, true);
    });
    for (const auto &reader : readers)
        all.store.AddParamChangedListener(Name("Int"), reader.get());
    writer.join();
    long value = 0;
    all.store.GetParamInt(Name("Int"), &value);
    EXPECT_EQ(value, kRounds - 1);
    const int before = readers.back()->heard;
    all.store.SetParamInt(Name("Int"), 0, true);
    EXPECT_EQ(readers.back()->heard, before + 1);
}

TEST(ParamStorageThreads, ACallbackMayWaitForAnotherThreadsAccess)
{
    static OrvParamStorage *s_store = nullptr;
    EveryType all;
    s_store = &all.store;
    std::int64_t member = 0;
    _OrvStParam param = IntDeclaration("Blocking", &member, 0, 0);
    param.onChange = [](unsigned int, _OrvStParam *) {
        // Would never return if the lock were held here.
        std::thread([] { s_store->SetParamInt(Name("Int"), 7, true); }).join();
        return 0;
    };
    all.store.AddParam(&param);
    all.store.SetParamInt(Name("Blocking"), 1, true);
    EXPECT_EQ(all.integer, 7);
}

} // namespace
