#include "harness/MalformedDatagrams.h"

#include "support/ClientDatagram.h"

ByteString MalformedDatagrams::ValidDiscover()
{
    return ClientDatagram(1, static_cast<uint32_t>(random()), TestMac(Below(1u << 20))).Bytes();
}

ByteString MalformedDatagrams::Make(uint32_t index)
{
    ByteString datagram;
    switch (index % KIND_COUNT) {
    case 0: { // random bytes of random length, up to a large datagram
        datagram.resize(Below(1500));
        for (uint8_t& byte : datagram) {
            byte = static_cast<uint8_t>(random());
        }
        break;
    }
    case 1: // a header cut short
        datagram = ValidDiscover();
        datagram.resize(Below(240));
        break;
    case 2: // wrong magic cookie
        datagram = ValidDiscover();
        datagram[236 + Below(4)] ^= static_cast<uint8_t>(1 + Below(255));
        break;
    case 3: { // an option whose length runs far past the end
        datagram = ValidDiscover();
        datagram.back() = static_cast<uint8_t>(1 + Below(254)); // replaces End
        datagram.push_back(static_cast<uint8_t>(10 + Below(246)));
        break;
    }
    case 4: // htype 0 or above 21
        datagram = ValidDiscover();
        datagram[1] = Below(2) == 0 ? 0 : static_cast<uint8_t>(22 + Below(234));
        break;
    case 5: // hlen beyond the 16 bytes of chaddr
        datagram = ValidDiscover();
        datagram[2] = static_cast<uint8_t>(17 + Below(239));
        break;
    case 6: // op neither request nor reply
        datagram = ValidDiscover();
        datagram[0] = static_cast<uint8_t>(3 + Below(253));
        break;
    case 7: // well-formed, without option 53
        datagram = ClientDatagram(1, static_cast<uint32_t>(random()), TestMac(Below(1u << 20)))
                       .WithoutMessageType()
                       .Option(12, {'x'})
                       .Bytes();
        break;
    case 8: // a type nobody handles (DECLINE, server types, or out of range)
        datagram = ClientDatagram(static_cast<uint8_t>(Below(2) == 0 ? 4 : 9 + Below(247)),
                                  static_cast<uint32_t>(random()), TestMac(Below(1u << 20)))
                       .Bytes();
        break;
    default: // hlen 0 and no option 61: no identity at all
        datagram = ClientDatagram(1, static_cast<uint32_t>(random()), {}).Bytes();
        break;
    }
    return datagram;
}
