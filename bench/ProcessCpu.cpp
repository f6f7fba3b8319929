#include "ProcessCpu.h"

#include <dirent.h>

#include <fstream>
#include <string>

namespace bench {

uint64_t processCpuNs(pid_t pid) {
    const std::string tasks = "/proc/" + std::to_string(pid) + "/task";
    DIR* dir = opendir(tasks.c_str());
    if (dir == nullptr) return 0;
    uint64_t total = 0;
    while (const dirent* entry = readdir(dir)) {
        if (entry->d_name[0] == '.') continue;
        std::ifstream schedstat(tasks + "/" + entry->d_name + "/schedstat");
        uint64_t onCpu = 0;
        if (schedstat >> onCpu) total += onCpu;  // a thread that just ended counts nothing
    }
    closedir(dir);
    return total;
}

}  // namespace bench
