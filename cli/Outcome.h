#pragma once

#include <string>

namespace orvcli {

/// What the program tells its caller; stands in the manual page.
enum class ExitCode {
    Ok = 0,
    Failed = 1,      ///< what was asked for could not be done
    Usage = 2,       ///< the command line is not understood
    CausesFound = 3, ///< "doctor" found what keeps pictures away
    NoCamera = 4,    ///< there is none, or none of that name
    Busy = 5,        ///< another program holds the camera
    Lost = 6,        ///< the connection was lost meanwhile
    Ambiguous = 7    ///< several cameras have that name
};

/// How a step ended. Done, or an exit code and one line or more that say what was wrong and where.
struct [[nodiscard]] Outcome {
    ExitCode code = ExitCode::Ok;
    std::string problem;

    bool IsOk() const { return code == ExitCode::Ok; }
};

inline Outcome Fail(const std::string &problem, ExitCode code = ExitCode::Failed)
{
    return {code, problem};
}

/// A status of the camera library, `what` in front of its sentence.
Outcome FailedWith(int status, const std::string &what);

} // namespace orvcli
