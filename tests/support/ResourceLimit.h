#pragma once

#include <csignal>

#include <sys/resource.h>

/// Lowers one of the process's limits while it lives. RLIMIT_FSIZE makes a write fail as a full disk does.
class ResourceLimit {
public:
    ResourceLimit(__rlimit_resource resource, rlim_t limit) : resource_(resource) {
        // The signal that comes with too large a file would end the process.
        oldHandler_ = std::signal(SIGXFSZ, SIG_IGN);
        getrlimit(resource_, &old_);
        const rlimit lowered{limit, old_.rlim_max};
        setrlimit(resource_, &lowered);
    }
    ResourceLimit(const ResourceLimit&) = delete;
    ResourceLimit& operator=(const ResourceLimit&) = delete;
    ~ResourceLimit() {
        setrlimit(resource_, &old_);
        std::signal(SIGXFSZ, oldHandler_);
    }

private:
    const __rlimit_resource resource_;
    rlimit old_{};
    void (*oldHandler_)(int) = SIG_DFL;
};
