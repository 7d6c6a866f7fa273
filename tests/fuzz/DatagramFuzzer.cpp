// Feeds arbitrary bytes to the datagram parser, from a private copy of exactly
// the input's size, so that any read past the datagram is caught. (The
// listener parses from its large receive buffer, where such a read would go
// unnoticed; what the server builds from a parsed request is fuzzed through
// the whole engine by EngineFuzzer.)

#include "foundation/AppException.h"
#include "wire/DHCPMessage.h"
#include "wire/RawMessage.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const RawMessage received(data, size);
    try {
        const DHCPMessage request(received);
        (void)request.GetClientIdentifier();
    } catch (const AppException&) {
        // Refused whole: that is an answer too.
    }
    return 0;
}
