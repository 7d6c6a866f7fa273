#include "wire/RawMessage.h"

#include "foundation/Precondition.h"

RawMessage::RawMessage(const uint8_t* bytes, size_t length)
{
    PRECONDITION(bytes != nullptr || length == 0);
    if (length > 0) {
        data.assign(bytes, bytes + length);
    }
}
