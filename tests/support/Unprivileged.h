#pragma once

#include <grp.h>
#include <sys/wait.h>
#include <unistd.h>

#include <functional>

// Runs `action` in a child process that has dropped to the user nobody, so a
// test run as root still meets permission checks. Returns the action's result
// (0..254), or -1 when the child could not drop its privileges. Without root
// the action runs in this process.
inline int RunUnprivileged(const std::function<int()>& action)
{
    if (::geteuid() != 0) {
        return action();
    }
    const pid_t child = ::fork();
    if (child == 0) {
        const uid_t nobody = 65534;
        if (::setgroups(0, nullptr) != 0 || ::setgid(nobody) != 0 || ::setuid(nobody) != 0) {
            ::_exit(255);
        }
        ::_exit(action());
    }
    int status = 0;
    if (child < 0 || ::waitpid(child, &status, 0) != child || !WIFEXITED(status) || WEXITSTATUS(status) == 255) {
        return -1;
    }
    return WEXITSTATUS(status);
}
