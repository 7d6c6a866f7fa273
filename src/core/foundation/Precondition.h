#pragma once

// Checks a caller's obligation. Stays on in every build type: a broken
// precondition is a programming error, and the process ends with the place and
// the condition. Never used for input from the network or from a file.
#define PRECONDITION(condition)                                              \
    do {                                                                     \
        if (!(condition)) {                                                  \
            ::PreconditionFailed(__FILE__, __LINE__, #condition);            \
        }                                                                    \
    } while (false)

[[noreturn]] void PreconditionFailed(const char* file, int line, const char* condition);
