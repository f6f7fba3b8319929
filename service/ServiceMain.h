#pragma once

// The service's start-up: thread pool, the one Tuner, registration as "default", then serving.
// Returns 0 when the thread pool gives the calling thread back; aborts when registration fails.
int runTunerService();
