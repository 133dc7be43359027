#pragma once

class SessionParameters;

// The adaptive staircase as operations on the session record, shared by the
// experimenter window and by tools that run the same procedure without one.
namespace Staircase {

// Start values of the tracked quantity for the current main parameter:
// frequency difference 5 % (deviant carrier 5 % below the standard's) or
// modulation depth 50 %. Other main parameters leave the record unchanged.
void resetStartValues(SessionParameters &params);

} // namespace Staircase
