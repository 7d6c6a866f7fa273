#pragma once

#include <cstdint>
#include <vector>

// A growable array of bytes: the carrier of serialized data and option data.
using ByteString = std::vector<uint8_t>;
