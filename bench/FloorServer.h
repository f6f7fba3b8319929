// The floors of a call across processes, measured in the same run as the calls: a process that
// answers each request of a given size with a reply of a given size on a Unix socket, either from
// the thread that read the request ("raw") or after handing it to a pool thread that writes the
// reply ("handoff"), the least a server with a thread pool does.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <string>

namespace bench {

enum class FloorKind : char { kRaw = 'R', kHandoff = 'H' };

// Starts the floor process, listening at `path`; call before any thread exists.
pid_t startFloorServer(const std::string& path);

// One client connection to the floor process.
class FloorClient {
  public:
    FloorClient(const std::string& path, FloorKind kind);
    ~FloorClient();
    // One round trip: a request of `request` bytes, a reply of `reply` bytes.
    void roundTrip(size_t request, size_t reply);

  private:
    int mFd = -1;
    char mBuffer[64 * 1024];
};

}  // namespace bench
