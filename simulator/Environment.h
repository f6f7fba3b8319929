// An installation for the simulated driver, described in a JSON file: the box's tuners (they
// become the driver's capability record) and the transmitters it receives. The README gives the
// format with a complete example.
#pragma once

#include <stdexcept>
#include <string>
#include <vector>

#include "driver/MoxTuner.h"
#include "simulator/SimulatedDriver.h"

namespace mox::sim {

// The environment variable that names the file the simulated driver loads when it starts.
inline constexpr const char* kEnvironmentVariable = "MOX_SIMULATOR_ENVIRONMENT";

struct Environment {
    MOX_TunerCapability_t capability;
    std::vector<Transmitter> air;
    Misbehaviour misbehaviour;
    std::vector<TimedChange> timeline;  // changes of the world as the simulated clock runs on
    time_t utcStart = 0;                // the network's time at the start; 0: the wall clock's
};

// One line: "FILE:LINE: FIELD: what is wrong".
class EnvironmentError : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

// Throws EnvironmentError for a file that cannot be read or that the format does not allow.
Environment loadEnvironmentFile(const std::string& path);
// The same for a text; name stands for the file in messages.
Environment parseEnvironment(const std::string& text, const std::string& name);

}  // namespace mox::sim
