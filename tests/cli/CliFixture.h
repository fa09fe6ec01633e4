#pragma once

#include "simulator/gige/GigeCamera.h"
#include "support/Eventually.h"
#include "support/ForeignCamera.h"
#include "support/JsonText.h"
#include "tests/simulator/ForeignProgram.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

/// One run of the program.
inline orvsim::ProgramRun Orvcam(std::vector<std::string> words)
{
    words.insert(words.begin(), ORVCAM_PROGRAM);
    return orvsim::RunForeignProgram(words);
}

/// Software cameras at 127.0.0.21 and up, as many as a test opens.
class CliTest : public testing::Test {
protected:
    static orvsim::CameraOptions Small(const std::string &serial)
    {
        orvsim::CameraOptions options;
        options.model = "Cam";
        options.serial = serial;
        options.sensor.width = 64;
        options.sensor.height = 48;
        options.frameRate = 50;
        options.frameMemory = 1 << 20;
        return options;
    }
    void Open(const orvsim::CameraOptions &options)
    {
        orvsim::GigeOptions gige;
        gige.address = 0x7f000015 + static_cast<std::uint32_t>(cameras.size());
        cameras.push_back(std::make_unique<orvsim::GigeCamera>(options, gige));
        ASSERT_EQ("", cameras.back()->Open());
    }

    std::vector<std::unique_ptr<orvsim::GigeCamera>> cameras;
};
