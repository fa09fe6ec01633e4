#pragma once

/// A loopback network of the test program's own.
///
/// Software cameras sit on a fixed port of an address, so tests that run side by side would get in each other's way.
/// Whoever links this runs in a network namespace of its own, entered before main by executing the program anew through
/// unshare(1): loopback with the addresses 127.0.0.1 to 127.0.0.31, nothing else. Where the system does not allow that,
/// or with ORV_TEST_SHARED_NETWORK=1, the program runs in the ordinary network.
bool InPrivateNetwork();

/// Another address of the private loopback, which can be taken away: then the system refuses to send anything there, as
/// it does when a link has gone down.
constexpr char kSpareAddress[] = "10.77.0.1";
/// False outside a private network.
[[nodiscard]] bool SetSpareAddress(bool there);
