#pragma once

#include <string>
#include <vector>

namespace orvsim {

/// What is wrong with a GenICam description by the schema (1.1) and by the rules that make every consumer read it
/// alike; one sentence each, beginning with the node's name. Empty: nothing.
///
///     EXPECT_THAT(DescriptionProblems(camera.DescriptionXml()), testing::IsEmpty());
std::vector<std::string> DescriptionProblems(const std::string &xml);

} // namespace orvsim
