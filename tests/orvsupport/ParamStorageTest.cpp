#include "ParamFixture.h"

#include <gmock/gmock.h>

#include <cfloat>
#include <cmath>
#include <cstdint>
#include <limits>

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr std::int64_t kLowest = std::numeric_limits<std::int64_t>::min();
constexpr std::int64_t kHighest = std::numeric_limits<std::int64_t>::max();

struct IntRangeCase {
    const char *rule;
    std::int64_t minimum, maximum, increment;
    std::int64_t wanted, expected;
};

const IntRangeCase kIntRangeCases[] = {
    {"inside", 3, 100, 0, 16, 16},
    {"below", 3, 100, 0, -5, 3},
    {"above", 3, 100, 0, kHighest, 100},
    {"a cleared range is none", 0, 0, 0, kLowest, kLowest},
    {"full range", kLowest, kHighest, 0, kLowest, kLowest},
    {"only a maximum", 0, 10, 0, -1, 0},
    {"on a step", 4, 100, 8, 20, 20},
    {"nearer the lower step", 4, 100, 8, 15, 12},
    {"half-way goes up", 4, 100, 8, 16, 20},
    {"steps end before the maximum", 4, 99, 8, 99, 92},
    {"without minimum, steps count from 0", kLowest, 100, 10, -14, -10},
    {"half-way below 0 goes up", kLowest, 100, 10, -15, -10},
    {"lowest of all is no step", kLowest, kHighest, 10, kLowest, -9223372036854775800},
    {"highest of all is no step", kLowest, kHighest, 10, kHighest, 9223372036854775800},
    {"step wider than the range", 1, 5, kHighest, 4, 1},
    {"increment 1 is any value", 3, 100, 1, 17, 17},
};

TEST(ParamStorage, IntegersAreBroughtIntoRange)
{
    for (const IntRangeCase &row : kIntRangeCases) {
        std::int64_t member = 50;
        OrvParamStorage store(0);
        _OrvStParam param = IntDeclaration("P", &member, row.minimum, row.maximum, row.increment);
        ASSERT_EQ(store.AddParam(&param), ORV_PARAM_OK) << row.rule;
        EXPECT_EQ(member, 50) << "declaring must not write";
        const std::uint32_t expected = row.wanted == row.expected ? ORV_PARAM_OK : ORV_PARAM_CLAMPED;
        EXPECT_EQ(store.SetParamInt(Name("P"), row.wanted, false), expected) << row.rule;
        EXPECT_EQ(member, row.expected) << row.rule;
    }
}

struct FloatRangeCase {
    const char *rule;
    double minimum, maximum, increment;
    double wanted, expected;
};

const FloatRangeCase kFloatRangeCases[] = {
    {"inside", 0, 120, 0, 30, 30},
    {"below", 0, 120, 0, -1e-300, 0},
    {"infinite", 0, 120, 0, HUGE_VAL, 120},
    {"a cleared range is none", 0, 0, 0, -5, -5},
    {"infinity is outside even without a range", 0, 0, 0, -HUGE_VAL, -DBL_MAX},
    {"nearest step", 1, 10, 0.5, 2.6, 2.5},
    {"half-way goes up", 1, 10, 0.5, 2.25, 2.5},
    {"steps end before the maximum", 0, 1, 0.3, 1, 3 * 0.3},
    {"rounding noise is no miss", 0, 10, 0.1, 0.3, 0.3},
    {"increments lost in the digits", 0, DBL_MAX, 1e-300, 1e300, 1e300},
};

TEST(ParamStorage, FloatsAreBroughtIntoRange)
{
    for (const FloatRangeCase &row : kFloatRangeCases) {
        double member = 7;
        OrvParamStorage store(0);
        _OrvStParam param = FloatDeclaration("P", &member, row.minimum, row.maximum, row.increment);
        ASSERT_EQ(store.AddParam(&param), ORV_PARAM_OK) << row.rule;
        const std::uint32_t expected = row.wanted == row.expected ? ORV_PARAM_OK : ORV_PARAM_CLAMPED;
        EXPECT_EQ(store.SetParamFloat(Name("P"), row.wanted, false), expected) << row.rule;
        EXPECT_EQ(member, row.expected) << row.rule;
    }
    EveryType all;
    EXPECT_EQ(all.store.SetParamFloat(Name("Float"), std::nan(""), true), ORV_PARAM_BAD_VALUE);
    EXPECT_EQ(all.number, 0);
}

struct BadDeclaration {
    const char *rule;
    void (*spoil)(_OrvStParam *);
    OrvParamType type;
};

const BadDeclaration kBadDeclarations[] = {
    {"empty name", [](_OrvStParam *param) { param->name[0] = '\0'; }, ORV_PARAM_INT},
    {"name without terminator", [](_OrvStParam *param) { std::memset(param->name, 'n', 256); }, ORV_PARAM_INT},
    {"unknown type", [](_OrvStParam *param) { param->type = 6; }, ORV_PARAM_INT},
    {"integer without member", [](_OrvStParam *param) { param->asInt.value = nullptr; }, ORV_PARAM_INT},
    {"integer range upside down", [](_OrvStParam *param) { param->asInt.minimum = 11; }, ORV_PARAM_INT},
    {"integer default outside", [](_OrvStParam *param) { param->asInt.defaultValue = 11; }, ORV_PARAM_INT},
    {"negative increment", [](_OrvStParam *param) { param->asInt.increment = -1; }, ORV_PARAM_INT},
    {"float without member", [](_OrvStParam *param) { param->asFloat.value = nullptr; }, ORV_PARAM_FLOAT},
    {"float range upside down", [](_OrvStParam *param) { param->asFloat.maximum = -1; }, ORV_PARAM_FLOAT},
    {"float minimum not a number", [](_OrvStParam *param) { param->asFloat.minimum = NAN; }, ORV_PARAM_FLOAT},
    {"float default not a number", [](_OrvStParam *param) { param->asFloat.defaultValue = NAN; }, ORV_PARAM_FLOAT},
    {"float increment not a number", [](_OrvStParam *param) { param->asFloat.increment = NAN; }, ORV_PARAM_FLOAT},
    {"boolean without member", [](_OrvStParam *param) { param->asBool.value = nullptr; }, ORV_PARAM_BOOL},
    {"string without member", [](_OrvStParam *param) { param->asString.value = nullptr; }, ORV_PARAM_STRING},
    {"string without room", [](_OrvStParam *param) { param->asString.capacity = 0; }, ORV_PARAM_STRING},
    {"array without member", [](_OrvStParam *param) { param->asArray.value = nullptr; }, ORV_PARAM_ARRAY},
    {"array of negative size", [](_OrvStParam *param) { param->asArray.size = -1; }, ORV_PARAM_ARRAY},
    {"command without function", [](_OrvStParam *param) { param->asCommand.run = nullptr; }, ORV_PARAM_COMMAND},
};

TEST(ParamStorage, RefusesDeclarationsThatCannotWork)
{
    EveryType members;
    const _OrvStParam sound[] = {IntDeclaration("P", &members.integer, 0, 10),
                                 BoolDeclaration("P", &members.flag),
                                 FloatDeclaration("P", &members.number, 0, 10),
                                 StringDeclaration("P", members.text, sizeof members.text),
                                 ArrayDeclaration("P", members.block, sizeof members.block),
                                 CommandDeclaration("P", EveryType::Run, &members)};
    for (const BadDeclaration &row : kBadDeclarations) {
        OrvParamStorage store(0);
        _OrvStParam param = sound[row.type];
        row.spoil(&param);
        EXPECT_EQ(store.AddParam(&param), ORV_PARAM_INVALID_ARGUMENT) << row.rule;
        EXPECT_EQ(store.GetParamCount(), 0u) << row.rule;
    }
}

TEST(ParamStorage, RefusesASecondParameterOfTheSameName)
{
    EveryType all;
    _OrvStParam again = BoolDeclaration("Int", &all.flag);
    EXPECT_EQ(all.store.AddParam(&again), ORV_PARAM_DUPLICATE_NAME);
    EXPECT_EQ(all.store.GetParamCount(), 6u);
    EXPECT_EQ(all.store.SetParamInt(Name("Int"), 3, false), ORV_PARAM_OK) << "the first one stays";
}

TEST(ParamStorage, KeepsItsOwnCopyOfADeclaration)
{
    std::int64_t member = 1;
    OrvParamStorage store(0);
    std::string name(255, 'n'); // the longest possible
    _OrvStParam param = IntDeclaration(name.c_str(), &member, 0, 9);
    ASSERT_EQ(store.AddParam(&param), ORV_PARAM_OK);
    std::memset(&param, 0, sizeof param);
    EXPECT_EQ(store.SetParamInt(name.data(), 4, false), ORV_PARAM_OK);
    EXPECT_EQ(member, 4);
    ASSERT_EQ(store.GetParamByIdx(0, &param), ORV_PARAM_OK);
    EXPECT_EQ(param.asInt.maximum, 9);
    EXPECT_EQ(store.GetParamByIdx(1, &param), ORV_PARAM_INVALID_ARGUMENT);
    EXPECT_EQ(param.name, name) << "an index out of range leaves the record alone";
}

/// Every typed access, tried on every parameter of EveryType.
struct Access {
    const char *rule;
    const char *fits; // the one parameter it works on
    std::uint32_t (*call)(OrvParamStorage &, char *name);
};

const Access kAccesses[] = {
    {"SetParamInt", "Int", [](OrvParamStorage &store, char *name) { return store.SetParamInt(name, 1, true); }},
    {"SetParamFloat", "Float", [](OrvParamStorage &store, char *name) { return store.SetParamFloat(name, 1, true); }},
    {"SetParamBool", "Bool", [](OrvParamStorage &store, char *name) { return store.SetParamBool(name, true, true); }},
    {"SetParamString", "String",
     [](OrvParamStorage &store, char *name) { return store.SetParamString(name, Name("s"), true); }},
    {"SetParamArray", "Array",
     [](OrvParamStorage &store, char *name) { return store.SetParamArray(name, Name("four"), 4, true); }},
    {"GetParamInt", "Int",
     [](OrvParamStorage &store, char *name) {
         long value = 0;
         return store.GetParamInt(name, &value);
     }},
    {"GetParamFloat", "Float",
     [](OrvParamStorage &store, char *name) {
         double value = 0;
         return store.GetParamFloat(name, &value);
     }},
    {"GetParamBool", "Bool",
     [](OrvParamStorage &store, char *name) {
         bool value = false;
         return store.GetParamBool(name, &value);
     }},
    {"GetParamString", "String",
     [](OrvParamStorage &store, char *name) {
         char buffer[16];
         unsigned int length = sizeof buffer;
         return store.GetParamString(name, buffer, &length);
     }},
    {"GetParamArray", "Array",
     [](OrvParamStorage &store, char *name) {
         char buffer[16];
         unsigned int size = sizeof buffer;
         return store.GetParamArray(name, buffer, &size);
     }},
};

TEST(ParamStorage, EachTypeHasItsOwnAccess)
{
    EveryType all;
    for (const Access &access : kAccesses) {
        for (const char *name : {"Int", "Float", "Bool", "String", "Array", "Command"}) {
            const bool fits = std::string(name) == access.fits;
            const std::uint32_t expected = fits ? ORV_PARAM_OK : ORV_PARAM_WRONG_TYPE;
            EXPECT_EQ(access.call(all.store, Name(name)), expected) << access.rule << " of " << name;
        }
        EXPECT_EQ(access.call(all.store, Name("int")), ORV_PARAM_UNKNOWN_NAME) << access.rule;
        EXPECT_EQ(access.call(all.store, nullptr), ORV_PARAM_INVALID_ARGUMENT) << access.rule;
    }
    EXPECT_EQ(all.integer, 1);
    EXPECT_EQ(all.number, 1);
    EXPECT_TRUE(all.flag);
    EXPECT_STREQ(all.text, "s");
    EXPECT_EQ(std::memcmp(all.block, "four", 4), 0);
}

TEST(ParamStorage, RunsCommandsAndReturnsTheirResult)
{
    EveryType all;
    EXPECT_EQ(all.store.RunCommand(Name("Command")), EveryType::kCommandResult);
    EXPECT_EQ(all.runs, 1);
    EXPECT_EQ(all.store.RunCommand(Name("Int")), ORV_PARAM_WRONG_TYPE);
    EXPECT_EQ(all.store.RunCommand(Name("Nothing")), ORV_PARAM_UNKNOWN_NAME);
}

TEST(ParamStorage, TellsTheSizeNeededAndLeavesATooSmallBufferAlone)
{
    EveryType all;
    std::strcpy(all.text, "hello");
    char buffer[8] = "keep";
    const auto expectTooSmall = [&](std::uint32_t status, const unsigned int &length, unsigned int needed) {
        EXPECT_EQ(status, ORV_PARAM_BUFFER_TOO_SMALL);
        EXPECT_EQ(length, needed);
        EXPECT_STREQ(buffer, "keep");
    };
    for (const unsigned int offered : {0u, 5u}) {
        unsigned int length = offered;
        expectTooSmall(all.store.GetParamString(Name("String"), buffer, &length), length, 6);
        length = offered;
        expectTooSmall(all.store.GetParamAsString(Name("String"), buffer, &length, nullptr), length, 6);
    }
    unsigned int size = 3;
    expectTooSmall(all.store.GetParamArray(Name("Array"), buffer, &size), size, 4);

    unsigned int exact = 6;
    EXPECT_EQ(all.store.GetParamString(Name("String"), buffer, &exact), ORV_PARAM_OK);
    EXPECT_STREQ(buffer, "hello");
    EXPECT_EQ(all.store.SetParamArray(Name("Array"), buffer, 5, false), ORV_PARAM_BUFFER_TOO_SMALL);
    EXPECT_EQ(all.store.SetParamArray(Name("Array"), buffer, 3, false), ORV_PARAM_BAD_VALUE);
}

TEST(ParamStorage, AnUnterminatedMemberReadsAsFarAsItGoes)
{
    EveryType all;
    std::memset(all.text, 'x', sizeof all.text);
    EXPECT_EQ(all.Text("String"), std::string(16, 'x'));
}

TEST(ParamStorage, AccessModeIsEnforced)
{
    std::int64_t member = 2;
    OrvParamStorage store(0);
    _OrvStParam readOnly = IntDeclaration("ReadOnly", &member, 0, 9);
    readOnly.access = 1;
    _OrvStParam writeOnly = IntDeclaration("WriteOnly", &member, 0, 9);
    writeOnly.access = 2;
    store.AddParam(&readOnly);
    store.AddParam(&writeOnly);
    long value = 0;
    EXPECT_EQ(store.SetParamInt(Name("ReadOnly"), 3, true), ORV_PARAM_NOT_ALLOWED);
    EXPECT_EQ(store.SetParamAsString(Name("ReadOnly"), Name("3"), true), ORV_PARAM_NOT_ALLOWED);
    EXPECT_EQ(member, 2);
    EXPECT_EQ(store.GetParamInt(Name("ReadOnly"), &value), ORV_PARAM_OK);
    EXPECT_EQ(store.SetParamInt(Name("WriteOnly"), 4, true), ORV_PARAM_OK);
    EXPECT_EQ(store.GetParamInt(Name("WriteOnly"), &value), ORV_PARAM_NOT_ALLOWED);
}

/// Writes down who was told of which value, in order; calls back into the store as a real receiver would.
class Recorder final : public OrvParamListener {
public:
    explicit Recorder(OrvParamStorage *store) : m_store(store) { s_last = this; }

    void ParamChanged(_OrvStParam param) override { Note("listener", param); }

    static int OnChange(unsigned int reason, _OrvStParam *param)
    {
        s_last->reasons.push_back(reason);
        s_last->Note("callback", *param);
        param->type = 99; // a receiver's own copy: nobody else may see this
        return 1;
    }

    std::vector<std::string> events;
    std::vector<unsigned int> reasons;

private:
    void Note(const char *who, const _OrvStParam &param)
    {
        char text[32] = "";
        unsigned int length = sizeof text;
        m_store->GetParamAsString(Name(param.name), text, &length, nullptr);
        events.push_back(std::string(who) + " " + std::to_string(param.type) + " " + param.name + "=" + text);
    }

    static inline Recorder *s_last = nullptr;
    OrvParamStorage *m_store;
};

TEST(ParamStorage, ANotifiedWriteTellsCallbackThenListenersOnce)
{
    std::int64_t counter = 0;
    OrvParamStorage store(0);
    Recorder recorder(&store);
    for (const char *name : {"Heard", "Unheard"}) {
        _OrvStParam param = IntDeclaration(name, &counter, 0, 9);
        param.onChange = Recorder::OnChange;
        store.AddParam(&param);
    }
    EXPECT_EQ(store.AddParamChangedListener(Name("Nothing"), &recorder), ORV_PARAM_UNKNOWN_NAME);
    EXPECT_EQ(store.AddParamChangedListener(Name("Heard"), nullptr), ORV_PARAM_INVALID_ARGUMENT);
    ASSERT_EQ(store.AddParamChangedListener(Name("Heard"), &recorder), ORV_PARAM_OK);

    store.SetParamInt(Name("Heard"), 5, false);
    store.SetParamAsString(Name("Heard"), Name("junk"), true);
    EXPECT_THAT(recorder.events, IsEmpty()) << "neither a silent nor a refused write is told";

    store.SetParamInt(Name("Heard"), 5, true);
    store.SetParamAsString(Name("Heard"), Name("12"), true);
    store.SetParamInt(Name("Unheard"), 3, true);
    EXPECT_THAT(recorder.events, ElementsAre("callback 0 Heard=5", "listener 0 Heard=5", "callback 0 Heard=9",
                                             "listener 0 Heard=9", "callback 0 Unheard=3"));
    ASSERT_EQ(recorder.reasons.size(), 3u);
    EXPECT_LT(recorder.reasons[0], recorder.reasons[1]);
    EXPECT_LT(recorder.reasons[1], recorder.reasons[2]);
}

} // namespace
