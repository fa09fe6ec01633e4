#include "CliFixture.h"

#include "cli/Acquisition.h"
#include "cli/Cameras.h"
#include "cli/Observation.h"

#include <cstdio>

namespace {

using OrvCam::Buffer;
using OrvCam::Stream;

constexpr unsigned kBuffers = 32;
constexpr double kSeconds = 1;
constexpr std::uint64_t kWaitMs = 5000;

/// What the doctor says of a stream that it watches while the program keeps buffers of it.
class Hoarder : public CliTest {
protected:
    void SetUp() override
    {
        Open(Small("HOARD"));
        const orvcli::Outcome found = orvcli::FindCamera("HOARD", camera);
        ASSERT_TRUE(found.IsOk()) << found.problem;
    }
    void Watch(unsigned kept)
    {
        orvcli::DevicePtr device;
        ASSERT_TRUE(orvcli::OpenCamera(camera, OrvCam::ORV_ACCESS_CONTROL, device).IsOk());
        facts = orv::Facts();
        facts.camera = camera;
        orv::GatherCamera(*device, facts);
        orvcli::Observation observation;
        orvcli::Acquisition acquisition(*device);
        ASSERT_TRUE(acquisition.Start(kBuffers).IsOk());
        Stream &stream = acquisition.Stream();
        std::vector<Buffer *> buffers(kept);
        for (Buffer *&buffer : buffers)
            ASSERT_NE(nullptr, buffer = stream.GetBuffer(kWaitMs, nullptr));
        observation.Watch(stream, kSeconds);
        observation.Tell(facts);
        orv::GatherHost(facts);
        diagnoses = orv::Diagnose(facts);
        if (kept > 0)
            GiveBack(stream, buffers);
    }

    OrvCam::DeviceDescription camera;
    orv::Facts facts;
    std::vector<orv::Diagnosis> diagnoses;
    std::uint64_t idsLost = 0;   ///< by the camera's own numbering, up to when buffers were given back
    std::uint64_t underruns = 0; ///< by the stream's count, a moment later

private:
    void GiveBack(Stream &stream, const std::vector<Buffer *> &buffers)
    {
        const std::uint64_t last = buffers.back()->GetFrameID();
        for (Buffer *buffer : buffers)
            stream.QueueBuffer(buffer);
        Buffer *const next = stream.GetBuffer(kWaitMs, nullptr);
        ASSERT_NE(nullptr, next);
        idsLost = next->GetFrameID() - last - 1;
        underruns = stream.GetStatistics().underruns;
    }
};

TEST_F(Hoarder, IsToldThatNoBufferWasFree)
{
    ASSERT_NO_FATAL_FAILURE(Watch(kBuffers));
    ASSERT_EQ(1u, diagnoses.size());
    EXPECT_STREQ("no-buffers", orv::NameOf(diagnoses[0].cause));
    unsigned long long lost = 0, all = 0;
    const std::string &finding = diagnoses[0].finding;
    ASSERT_EQ(2, std::sscanf(finding.c_str(), "%llu of %llu pictures were lost", &lost, &all)) << finding;
    EXPECT_GE(lost, 10u);
    EXPECT_LE(lost, idsLost);
    EXPECT_GE(underruns, idsLost);
    EXPECT_GE(all, lost + kBuffers);
    EXPECT_LE(all, idsLost + kBuffers);
    ASSERT_NO_FATAL_FAILURE(Watch(0));
    EXPECT_TRUE(diagnoses.empty()) << diagnoses[0].finding;
    EXPECT_GE(facts.completeFrames, 10u);
}

} // namespace
