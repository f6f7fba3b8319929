// Linked into the benchmarks' copy of the service: on SIGUSR1 the service writes how many heap
// allocations it has made to the file named by MOX_ALLOCATION_PROBE, so a benchmark in another
// process can count the allocations a call costs the service.
#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

#include <cstdlib>

#include "Allocations.h"

namespace {

const char* gProbeFile = nullptr;

void writeCount(int) {
    char digits[24];
    uint64_t count = bench::allocations();
    size_t n = sizeof(digits);
    digits[--n] = '\n';
    do {
        digits[--n] = char('0' + count % 10);
        count /= 10;
    } while (count != 0);
    // Written whole and renamed into place, so a reader never sees half a number.
    const int fd = open(gProbeFile, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    if (fd < 0) return;
    ssize_t ignored = write(fd, digits + n, sizeof(digits) - n);
    (void)ignored;
    close(fd);
}

const bool kInstalled = [] {
    gProbeFile = getenv("MOX_ALLOCATION_PROBE");
    if (gProbeFile == nullptr) return false;
    struct sigaction action = {};
    action.sa_handler = writeCount;
    sigemptyset(&action.sa_mask);
    sigaction(SIGUSR1, &action, nullptr);
    return true;
}();

}  // namespace
