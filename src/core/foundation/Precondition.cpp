#include "foundation/Precondition.h"

#include <cstdio>
#include <cstdlib>

void PreconditionFailed(const char* file, int line, const char* condition)
{
    std::fprintf(stderr, "%s:%d: precondition failed: %s\n", file, line, condition);
    std::fflush(stderr);
    std::abort();
}
