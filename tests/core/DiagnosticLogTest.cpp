#include "core/DiagnosticLog.h"

#include "LogCapture.h"

#include <gmock/gmock.h>

#include <clocale>
#include <cstring>
#include <memory>
#include <thread>

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

TEST(DiagnosticLog, EveryLevelButNoticeAppendsTheCode)
{
    LogCapture log;
    OrvLog4Cpp_Debug(kLogCategory, 0, "abc");
    OrvLog4Cpp_Info(kLogCategory, 7, "abc");
    OrvLog4Cpp_Notice(kLogCategory, "abc");
    OrvLog4Cpp_Warning(kLogCategory, 0xFFFFFFFFFFFFFFFF, "abc");
    OrvLog4Cpp_Error(kLogCategory, 0x80CA0006, "abc");
    OrvLog4Cpp_Fatal(kLogCategory, 1, "100%s done");
    EXPECT_THAT(log.Take(), ElementsAre("DEBUG abc, code=0", "INFO abc, code=7", "NOTICE abc",
                                        "WARN abc, code=18446744073709551615", "ERROR abc, code=2160721926",
                                        "FATAL 100%s done, code=1"));
}

TEST(DiagnosticLog, LevelsBelowTheCategorysAreNotWritten)
{
    LogCapture log(log4cpp::Priority::NOTICE);
    LogFormatted(LogLevel::Debug, 0, "frame %d", 1);
    LogFormatted(LogLevel::Info, 0, "frame %d", 2);
    {
        const LogScope scope("Class::Operation()");
    }
    EXPECT_THAT(log.Take(), IsEmpty());
    LogFormatted(LogLevel::Notice, 5, "frame %d", 3);
    LogFormatted(LogLevel::Error, 5, "frame %d", 4);
    LogFormatted(LogLevel::Fatal, 0, "%08x", 0xFFFF638Du);
    EXPECT_THAT(log.Take(), ElementsAre("NOTICE frame 3", "ERROR frame 4, code=5", "FATAL ffff638d, code=0"));
}

TEST(DiagnosticLog, AScopeMarksItsBeginningAndEnd)
{
    LogCapture log;
    {
        const LogScope outer("FrameSource::Open()");
        const LogScope renamed("FrameSource::Stop()", "FrameSource::Park()");
        OrvLog4Cpp_Notice(kLogCategory, "inside");
    }
    EXPECT_THAT(log.Take(),
                ElementsAre("DEBUG FrameSource::Open() -> ENTER, code=0", "DEBUG FrameSource::Stop() -> ENTER, code=0",
                            "NOTICE inside", "DEBUG FrameSource::Park() <- LEAVE, code=0",
                            "DEBUG FrameSource::Open() <- LEAVE, code=0"));
}

TEST(DiagnosticLog, TextsOfAnyLengthComeBackWhole)
{
    for (const std::size_t length : {0, 1, 510, 511, 512, 513, 1024, 100000}) {
        const std::string text(length, 'n');
        const std::unique_ptr<char[]> narrow(help_str("%s", text.c_str()));
        EXPECT_EQ(narrow.get(), text) << length;
        const std::unique_ptr<char[]> wide(help_str(L"%s", text.c_str()));
        EXPECT_EQ(wide.get(), text) << length;
    }
    const std::unique_ptr<char[]> mixed(help_str("id=%i of %lu: %08x", -1, 18446744073709551615ul, 0xCAu));
    EXPECT_STREQ(mixed.get(), "id=-1 of 18446744073709551615: 000000ca");
}

TEST(DiagnosticLog, WideTextBecomesMultibyteText)
{
    const char *const previous = std::setlocale(LC_ALL, nullptr);
    const std::string restore = previous;
    ASSERT_NE(std::setlocale(LC_ALL, "C.UTF-8"), nullptr);
    const std::wstring euros(400, L'\u20ac'); // three bytes each: longer in bytes than the first capacity
    const std::unique_ptr<char[]> text(help_str(L"%ls!", euros.c_str()));
    EXPECT_EQ(std::strlen(text.get()), 3 * 400 + 1u);
    EXPECT_EQ(std::string(text.get()).substr(1197), "\xe2\x82\xac!");

    std::setlocale(LC_ALL, "C");
    const std::unique_ptr<char[]> cut(help_str(L"price: %ls", L"5 \u20ac"));
    EXPECT_STREQ(cut.get(), "price: 5 ") << "a character that the locale lacks ends the text";
    const std::unique_ptr<char[]> unprintable(help_str(L"%s", "\xff"));
    EXPECT_EQ(std::strlen(unprintable.get()), 0u) << "an argument without a wide form must not ask for room for ever";
    const std::unique_ptr<char[]> narrow(help_str("%ls", L"\u20ac"));
    EXPECT_EQ(std::strlen(narrow.get()), 0u);
    std::setlocale(LC_ALL, restore.c_str());
}

TEST(DiagnosticLog, ThreadsLogWithoutLosingLines)
{
    constexpr int kThreads = 4;
    constexpr int kLines = 500;
    LogCapture log;
    std::vector<std::thread> threads;
    for (int thread = 0; thread < kThreads; ++thread)
        threads.emplace_back([thread] {
            for (int line = 0; line < kLines; ++line)
                LogFormatted(LogLevel::Info, 0, "thread %d line %d", thread, line);
        });
    for (std::thread &thread : threads)
        thread.join();
    const auto lines = log.Take();
    EXPECT_EQ(lines.size(), static_cast<std::size_t>(kThreads * kLines));
    EXPECT_THAT(lines, testing::Each(testing::MatchesRegex("INFO thread [0-9] line [0-9]+, code=0")));
}

} // namespace
