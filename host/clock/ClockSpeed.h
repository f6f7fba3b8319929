// How fast the simulated box's time runs on a development host. The service polls its driver
// with real pauses, as on a box; at speed N each pause lasts N times less in real time and the
// simulated driver's clock (and a recorded session's) runs on by the whole pause, so a 400 s
// sweep takes 8 s at speed 50. Speed 1 is the box's own timing.
#pragma once

#include <cstdint>
#include <optional>

namespace mox::clock {

inline constexpr uint32_t kMaxSpeed = 1000;
// The variable a service binary reads its speed from.
inline constexpr const char* kSpeedVariable = "MOX_CLOCK_SPEED";

// "50" -> 50; nothing but a whole number from 1 to kMaxSpeed is a speed.
std::optional<uint32_t> parseSpeed(const char* text);

// Sets the speed; above 1 the simulator's and the trace recorder's clocks become the fast one.
// Called once, as the process starts.
void setSpeed(uint32_t speed);
uint32_t speed();

}  // namespace mox::clock
