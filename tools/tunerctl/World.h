// The simulated world behind the service (IWorld "default" of the service process, or this
// process's own with --in-process): what the driver holds, and changes of the air.
#pragma once

#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

#include "Commands.h"

namespace tunerctl {

// The world's description; nullopt, after one line on stderr, where no world answers.
std::optional<nlohmann::json> describeWorld();

// What the simulated driver's tuner was last tuned to ("DVB-T 482.000 MHz"); nullopt where it
// is not tuned or no world answers (a box).
std::optional<std::string> tunedInTheWorld(uint32_t tuner);

struct WorldOptions {
    std::vector<std::string> change;  // the words of a change; none: show the world
    bool watch = false;
};
int runWorld(const GlobalOptions& global, const WorldOptions& options);

// The world as lines a person reads.
std::string worldText(const nlohmann::json& world);

}  // namespace tunerctl
