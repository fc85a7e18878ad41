#include "support/EndChild.h"

#include <cstdlib>

#include <unistd.h>

void EndChild(int status) {
#ifdef LUM_COVERAGE
    std::exit(status);  // NOLINT(concurrency-mt-unsafe): its other threads have ended
#else
    _exit(status);
#endif
}
