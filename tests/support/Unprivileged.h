#pragma once

#include <functional>

// Runs `action` in a child process that has dropped to the user nobody, so a
// test run as root still meets permission checks. Returns the action's result
// (0..254), or -1 when the child could not drop its privileges. Without root
// the action runs in this process.
int RunUnprivileged(const std::function<int()>& action);
