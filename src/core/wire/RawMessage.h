#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

// The bytes of one datagram, received or to be sent.
class RawMessage {
public:
    // Copies `length` bytes; length 0 is allowed.
    RawMessage(const uint8_t* bytes, size_t length);

    const uint8_t* GetData() const { return data.data(); }
    size_t GetLength() const { return data.size(); }

private:
    std::vector<uint8_t> data;
};
