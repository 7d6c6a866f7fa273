#pragma once

#include "foundation/ClientIdentifier.h"
#include "foundation/IPv4Address.h"
#include "wire/MessageType.h"

#include <cstdint>

// The short-lived memory of one exchange: which address was offered to whom,
// under which xid, and how far the exchange has got.
class Transaction {
public:
    // Precondition: offeredAddress is not 0.0.0.0. Starts at DHCPDISCOVER.
    Transaction(uint32_t id, const IPv4Address& offeredAddress, const ClientIdentifier& clientIdentifier,
                int64_t now);

    // Precondition: the transition is allowed (DISCOVER -> OFFER, OFFER ->
    // REQUEST, REQUEST -> RELEASE). Also stamps the time.
    void SetLastMessageType(MessageType messageType, int64_t now);

    uint32_t GetID() const { return id; }
    IPv4Address GetOfferedAddress() const { return offeredAddress; }
    MessageType GetLastMessageType() const { return lastMessageType; }
    const ClientIdentifier& GetClientIdentifier() const { return clientIdentifier; }
    int64_t GetLastMessageTime() const { return lastMessageTime; }

private:
    uint32_t id;
    IPv4Address offeredAddress;
    MessageType lastMessageType = DHCPDISCOVER;
    ClientIdentifier clientIdentifier;
    int64_t lastMessageTime;
};
