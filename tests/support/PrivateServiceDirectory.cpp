// A test process owns its environment: the variables of the person running the suite that would
// change what it sees are cleared, and it registers its services in a directory of its own, so
// that tests running at once (and a service running on the machine) never see each other's
// registrations. This runs before any other initialisation of the process (the simulator reads
// its installation file as the process starts).
#include <dirent.h>
#include <unistd.h>

#include <cstdlib>
#include <string>

namespace {

// Constant-initialised: it is written before dynamic initialisation of default priority.
char gDirectory[] = "/tmp/mox-hidl-test-XXXXXX";

void removeDirectory() {
    if (DIR* dir = opendir(gDirectory)) {
        while (dirent* entry = readdir(dir)) {
            const std::string name = entry->d_name;
            if (name != "." && name != "..") unlink((std::string(gDirectory) + "/" + name).c_str());
        }
        closedir(dir);
    }
    rmdir(gDirectory);
}

struct OwnEnvironment {
    OwnEnvironment() {
        // "A:B:C", the list the build keeps.
        const std::string variables = PERSONAL_ENVIRONMENT;
        for (size_t start = 0; start <= variables.size();) {
            size_t end = variables.find(':', start);
            if (end == std::string::npos) end = variables.size();
            unsetenv(variables.substr(start, end - start).c_str());
            start = end + 1;
        }
        if (mkdtemp(gDirectory) == nullptr) return;
        setenv("MOX_HIDL_SERVICE_DIR", gDirectory, 1);
        atexit(removeDirectory);
    }
};

__attribute__((init_priority(101))) OwnEnvironment gOwnEnvironment;

}  // namespace
