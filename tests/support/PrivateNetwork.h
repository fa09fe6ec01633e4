#pragma once

/// A loopback network of the test program's own.
///
/// Software cameras sit on a fixed port of an address, so tests that run side by side would get in each other's way.
/// Whoever links this runs in a network namespace of its own, entered before main by executing the program anew through
/// unshare(1): loopback with the addresses 127.0.0.1 to 127.0.0.31, nothing else. Where the system does not allow that,
/// or with ORV_TEST_SHARED_NETWORK=1, the program runs in the ordinary network.
bool InPrivateNetwork();
