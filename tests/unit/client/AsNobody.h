#pragma once

#include <gtest/gtest.h>
#include <unistd.h>

/// While it lives, the process is one of the user nobody, where it is root's.
class AsNobody {
public:
    AsNobody() {
        if (wasRoot_) {
            EXPECT_EQ(setresuid(kNobody, kNobody, 0), 0);
        }
    }
    AsNobody(const AsNobody&) = delete;
    AsNobody& operator=(const AsNobody&) = delete;
    ~AsNobody() {
        if (wasRoot_) {
            EXPECT_EQ(setresuid(0, 0, 0), 0);
        }
    }

private:
    static constexpr uid_t kNobody = 65534;
    const bool wasRoot_ = getuid() == 0;
};
