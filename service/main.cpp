#include "service/ServiceMain.h"

int main() {
    return runTunerService();
}
