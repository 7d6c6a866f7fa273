#include "platform/ReceiveBatch.h"

#include "foundation/Precondition.h"

#include <algorithm>
#include <cstring>

void ReceiveBatch::Prepare()
{
    slots = std::make_unique_for_overwrite<uint8_t[]>(SLOTS * SLOT_BYTES);
    vectors.resize(SLOTS);
    headers.resize(SLOTS);
    for (size_t slot = 0; slot < SLOTS; ++slot) {
        vectors[slot] = iovec{slots.get() + slot * SLOT_BYTES, SLOT_BYTES};
        headers[slot] = mmsghdr{};
        headers[slot].msg_hdr.msg_iov = &vectors[slot];
        headers[slot].msg_hdr.msg_iovlen = 1;
    }
}

int ReceiveBatch::Fill(int socketHandle)
{
    PRECONDITION(IsEmpty());
    if (!slots) {
        Prepare();
    }
    // The kernel writes only msg_len and msg_flags: the headers stay as
    // Prepare made them.
    const int received = recvmmsg(socketHandle, headers.data(), SLOTS, MSG_DONTWAIT, nullptr);
    next = 0;
    count = received > 0 ? static_cast<size_t>(received) : 0;
    return received;
}

size_t ReceiveBatch::TakeNext(uint8_t* buffer, size_t capacity)
{
    PRECONDITION(!IsEmpty());
    const size_t slot = next++;
    const size_t length = std::min<size_t>(headers[slot].msg_len, capacity);
    if (length > 0) {
        std::memcpy(buffer, slots.get() + slot * SLOT_BYTES, length);
    }
    return length;
}
