#pragma once

// The kinds of logged event; the values index the log filter flags.
enum EventType : int {
    ServerStart = 0,
    ServerStop = 1,
    DHCPDiscoverReceived = 2,
    DHCPRequestReceived = 3,
    DHCPOfferSent = 4,
    DHCPAckSent = 5,
    DHCPNakSent = 6,
    DHCPInformReceived = 7,
    DHCPReleaseReceived = 8,
    Other = 9,
};

constexpr int EVENT_TYPE_COUNT = 9;
