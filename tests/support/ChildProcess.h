#pragma once

#include <array>
#include <cerrno>
#include <csignal>
#include <functional>

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include "support/EndChild.h"

/// A second process that runs a routine of the test's, and a pipe each way between the two.
class ChildProcess {
public:
    /// The child's end of the pipes.
    class Parent {
    public:
        Parent(int in, int out) : in_(in), out_(out) {}

        /// Waits for a byte from the parent; false where it is gone.
        bool Await() const {
            char byte = 0;
            return read(in_, &byte, 1) == 1;
        }
        void Tell(char byte = '.') const { static_cast<void>(!write(out_, &byte, 1)); }

    private:
        int in_;
        int out_;
    };

    /// The child's exit status is what the routine returns. It uses no database that was opened before.
    explicit ChildProcess(const std::function<int(const Parent&)>& routine) {
        EXPECT_EQ(pipe(toChild_.data()), 0);
        EXPECT_EQ(pipe(toParent_.data()), 0);
        process_ = fork();
        if (process_ == 0) {
            close(toChild_[1]);
            close(toParent_[0]);
            EndChild(routine(Parent(toChild_[0], toParent_[1])));
        }
        close(toChild_[0]);
        close(toParent_[1]);
    }
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;
    ~ChildProcess() {
        close(toChild_[1]);
        close(toParent_[0]);
        if (process_ > 0) {
            kill(process_, SIGKILL);
            waitpid(process_, nullptr, 0);
        }
    }

    /// Waits for a byte from the child; false once it has ended.
    bool Await() const {
        char byte = 0;
        return read(toParent_[0], &byte, 1) == 1;
    }
    void Tell() const { static_cast<void>(!write(toChild_[1], ".", 1)); }

    /// Waits for the end: the exit status, or minus the signal.
    int Join() {
        int status = 0;
        while (waitpid(process_, &status, 0) < 0 && errno == EINTR) {
        }
        process_ = -1;
        return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
    }

private:
    std::array<int, 2> toChild_{};
    std::array<int, 2> toParent_{};
    pid_t process_ = -1;
};
