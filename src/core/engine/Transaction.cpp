#include "engine/Transaction.h"

#include "foundation/Precondition.h"

Transaction::Transaction(uint32_t id, const IPv4Address& offeredAddress, const ClientIdentifier& clientIdentifier,
                         int64_t now)
    : id(id), offeredAddress(offeredAddress), clientIdentifier(clientIdentifier), lastMessageTime(now)
{
    // Invariant: a transaction always holds a real address.
    PRECONDITION(!offeredAddress.IsZero());
}

void Transaction::SetLastMessageType(MessageType messageType, int64_t now)
{
    // Only DISCOVER -> OFFER happens in the running server; the other steps
    // are kept to the same order.
    switch (messageType) {
    case DHCPOFFER:
        PRECONDITION(lastMessageType == DHCPDISCOVER);
        break;
    case DHCPREQUEST:
        PRECONDITION(lastMessageType == DHCPOFFER);
        break;
    case DHCPRELEASE:
        PRECONDITION(lastMessageType == DHCPREQUEST);
        break;
    default:
        break;
    }
    lastMessageType = messageType;
    lastMessageTime = now;
}
