#pragma once

#include "foundation/AppException.h"

#include <cstdint>

// The code of the AppException that `action` raises, or -1 when it raises none.
template <typename Action>
int32_t CodeRaisedBy(Action&& action)
{
    try {
        action();
    } catch (const AppException& exception) {
        return exception.GetCode();
    }
    return -1;
}
