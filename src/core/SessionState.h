#pragma once

/// State of the session, shared with the grabber and with the enabling rules of the actions.
enum SessionState : int {
    NoState = -1, ///< from construction until the state machine first enters a state
    Disconnected = 0,
    Idle = 1,
    Acquisition = 2,
    Capturing = 3
};
