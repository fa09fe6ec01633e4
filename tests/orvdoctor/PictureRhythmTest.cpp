#include "orvdoctor/PictureRhythm.h"
#include "orvdoctor/Diagnosis.h"

#include <gmock/gmock.h>

#include <vector>

namespace {

/// So many pictures, each so many tenths of a second after the one before.
struct Pictures {
    int count;
    int every;
};
using Script = std::vector<Pictures>;

struct RhythmRow {
    const char *name;
    double frameRateHz; ///< that the camera tells, 0: none
    bool hasTrigger;
    Script script;
    std::vector<int> alarms; ///< when the stream begins to count as without pictures, tenths of a second
};

constexpr int kEnd = 300; ///< of a script after which nothing comes: tenths of a second

const RhythmRow kRows[] = {
    {"30 pictures a second, seen every tenth, and outages",
     30,
     false,
     {{15, 1}, {1, 35}, {15, 1}, {1, 35}, {15, 1}, {1, 35}, {15, 1}, {1, kEnd}},
     {25, 75, 125, 175}},
    {"an outage at once, and again", 30, false, {{2, 1}, {1, 35}, {2, 1}, {1, kEnd}}, {12, 49}},
    {"two pictures a second and outages",
     2,
     false,
     {{4, 5}, {1, 35}, {3, 5}, {1, 35}, {3, 5}, {1, 35}, {3, 5}, {1, kEnd}},
     {35, 85, 135, 185}},
    {"a picture every 5 s: told while the first is awaited", 0.2, false, {{12, 50}}, {10}},
    {"it ceases", 0.2, false, {{3, 50}, {1, kEnd}}, {10, 250}},
    {"it becomes fast", 0.2, false, {{4, 50}, {250, 1}, {1, kEnd}}, {10, 460}},
    {"the camera does not tell how slow it is", 0, false, {{12, 50}}, {10, 60, 110}},
    {"it becomes fast, too", 0, false, {{4, 50}, {3, 1}, {1, kEnd}}, {10, 60, 110, 213}},
    {"a picture every 20 s", 0.05, false, {{6, 200}}, {10}},
    {"a trigger every 2 s", 0, true, {{12, 20}}, {10, 30}},
    {"a trigger of bursts", 0, true, {{20, 1}, {1, 20}, {20, 1}, {1, 20}, {20, 1}, {1, 20}, {20, 1}, {1, 20}}, {30}},
    {"a trigger that came after a minute, and then often",
     0,
     true,
     {{3, 1}, {1, 600}, {450, 1}, {1, kEnd}},
     {13, 1063}},
};

std::vector<int> AlarmsOf(const RhythmRow &row)
{
    orv::Facts settings;
    settings.frameRateHz = row.frameRateHz;
    settings.hasTrigger = row.hasTrigger;
    orv::PictureRhythm rhythm;
    std::vector<int> alarms;
    int last = 0;
    for (const Pictures &pictures : row.script) {
        for (int picture = 0; picture < pictures.count; ++picture) {
            bool isAlarmed = false;
            for (int pause = 0; pause < pictures.every && !isAlarmed; ++pause) {
                isAlarmed = pause + 0.5 >= 10 * orv::PatienceSeconds(rhythm.UsualPauseSeconds());
                if (isAlarmed)
                    alarms.push_back(last + pause);
            }
            // The camera is asked as long as pictures lack.
            rhythm.Note(pictures.every / 10.0, isAlarmed ? settings : orv::Facts());
            last += pictures.every;
        }
    }
    return alarms;
}

TEST(PictureRhythm, ComplainsOfEveryOutageAndOfNoUsualPause)
{
    for (const RhythmRow &row : kRows)
        EXPECT_EQ(AlarmsOf(row), row.alarms) << row.name;
}

} // namespace
