#include "cli/Json.h"
#include "CliFixture.h"

#include <QJsonDocument>
#include <QJsonObject>

namespace {

using orvsim::ProgramRun;

/// The last line as a script reads it; an array, or what is no JSON, comes out empty.
QJsonObject LastObject(const ProgramRun &run)
{
    const QByteArray lines = QByteArray::fromStdString(run.output).trimmed();
    return QJsonDocument::fromJson(lines.mid(lines.lastIndexOf('\n') + 1)).object();
}

struct FailureRow {
    std::vector<std::string> words;
    int exitCode;
    const char *problem; ///< a part of it
};

/// With --json every failure ends in an object that tells it.
void ExpectReported(const std::vector<FailureRow> &rows)
{
    for (const FailureRow &row : rows) {
        std::vector<std::string> words = row.words;
        words.push_back("--json");
        SCOPED_TRACE(testing::PrintToString(words));
        const ProgramRun run = Orvcam(words);
        EXPECT_EQ(row.exitCode, run.exitCode);
        const QJsonObject told = LastObject(run);
        EXPECT_THAT(told["problem"].toString().toStdString(), testing::HasSubstr(row.problem)) << run.output;
        EXPECT_THAT(run.errors, testing::HasSubstr(row.problem));
        EXPECT_EQ(row.exitCode, told["exitCode"].toInt());
        EXPECT_EQ(row.words[0] == "stream" && row.exitCode != 2, told["statistics"].isObject());
    }
}

class Reports : public CliTest {};

TEST_F(Reports, TellWhyNothingCouldBeDone)
{
    const char *const kNone = "no camera was found";
    ExpectReported({{{"info"}, 4, kNone},
                    {{"features"}, 4, kNone},
                    {{"xml"}, 4, kNone},
                    {{"stream"}, 4, kNone},
                    {{"events"}, 4, kNone},
                    {{"force-ip", "ONE", "127.0.0.28", "255.0.0.0"}, 4, kNone},
                    {{"doctor", "--seconds", "0.1"}, 2, "not enough"},
                    {{"lits"}, 2, "\"lits\""}});
    const ProgramRun list = Orvcam({"list", "--json"});
    EXPECT_EQ(4, list.exitCode);
    EXPECT_EQ("[]\n", list.output);
}

TEST_F(Reports, TellWhatFailedWithTheCamera)
{
    Open(Small("ONE"));
    Open(Small("TWO"));
    ExpectReported({{{"info", "NONE"}, 4, "NONE"},
                    {{"xml", "Cam"}, 7, "several"},
                    {{"doctor", "Cam"}, 7, "several"},
                    {{"features", "ONE", "--get", "Nope"}, 1, "Nope"},
                    {{"features", "ONE", "--set", "Width=1000000"}, 1, "Width"},
                    {{"stream", "ONE", "--set-stream", "Nope=1"}, 1, "Nope"},
                    {{"stream", "ONE", "--traffic", "--set-stream", "Nope=1"}, 1, "Nope"},
                    {{"events", "ONE", "--on", "Nope", "--traffic"}, 1, "Nope"},
                    {{"force-ip", "ONE", "128.0.0.28", "255.0.0.0"}, 2, "127.0.0.0/8"}});
    const QJsonObject gone = LastObject(Orvcam({"stream", "ONE", "--frames", "1"}));
    EXPECT_TRUE(gone.isEmpty()) << "for a person";
    EXPECT_FALSE(LastObject(Orvcam({"stream", "ONE", "--frames", "1", "--json"})).contains("problem"));
}

TEST(JsonTexts, AreUtf8WhateverACameraSends)
{
    const struct {
        std::string text, written;
    } kRows[] = {
        {"\xc2\xb5m \xf0\x9f\x93\xb7", "\"\xc2\xb5m \xf0\x9f\x93\xb7\""},
        {"\xb5m", "\"\xef\xbf\xbdm\""},
        {"cut \xe2\x82", "\"cut \xef\xbf\xbd\xef\xbf\xbd\""},
        {"\xc0\xaf\xed\xa0\x80", "\"\xef\xbf\xbd\xef\xbf\xbd\xef\xbf\xbd\xef\xbf\xbd\xef\xbf\xbd\""},
    };
    for (const auto &row : kRows)
        EXPECT_EQ(row.written, orvcli::Json().Value(row.text).Text());
}

} // namespace
