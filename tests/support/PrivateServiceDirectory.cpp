// Every test process registers its services in a directory of its own, so that tests running at
// once (and a service running on the machine) never see each other's registrations.
#include <dirent.h>
#include <unistd.h>

#include <cstdlib>
#include <string>

namespace {

std::string gDirectory;

void removeDirectory() {
    if (DIR* dir = opendir(gDirectory.c_str())) {
        while (dirent* entry = readdir(dir)) {
            std::string name = entry->d_name;
            if (name != "." && name != "..") unlink((gDirectory + "/" + name).c_str());
        }
        closedir(dir);
    }
    rmdir(gDirectory.c_str());
}

const bool kPrivateDirectory = [] {
    if (getenv("MOX_HIDL_SERVICE_DIR") != nullptr) return false;
    char path[] = "/tmp/mox-hidl-test-XXXXXX";
    if (mkdtemp(path) == nullptr) return false;
    gDirectory = path;
    setenv("MOX_HIDL_SERVICE_DIR", path, 1);
    atexit(removeDirectory);
    return true;
}();

}  // namespace
