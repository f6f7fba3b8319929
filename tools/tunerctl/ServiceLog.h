// What the running service logs while a command runs, shown after it as -v and -vv ask (warnings
// and errors otherwise), as an in-process service's log is. Read through the host's simulated
// world, which keeps the service process's log; a service without one (a box) shows nothing.
#pragma once

namespace tunerctl {

// The priority (liblog's numbers) to show; 0 shows nothing. Set before the first connection.
void setServiceLogPriority(int priority);
// Marks where the command's records begin; called once the service answers.
void startServiceLog();
// Prints the records since the start to stderr.
void showServiceLog();

}  // namespace tunerctl
