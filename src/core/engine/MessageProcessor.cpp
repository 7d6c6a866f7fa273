#include "engine/MessageProcessor.h"

#include "allocation/AddressManager.h"
#include "config/Settings.h"
#include "engine/Listener.h"
#include "engine/TransactionManager.h"
#include "foundation/AppException.h"
#include "foundation/Precondition.h"
#include "log/LogManager.h"
#include <optional>
#include <span>

namespace {

bool IsFailedSend(const AppException& exception)
{
    return exception.GetCode() == AppException::NotAllBytesSent || exception.GetCode() == AppException::SendError;
}

} // namespace

MessageProcessor::MessageProcessor(AddressManager* addressManager, Settings* settings,
                                   TransactionManager* transactionManager, LogManager* logManager)
    : addressManager(addressManager), settings(settings), transactionManager(transactionManager),
      logManager(logManager)
{
    PRECONDITION(addressManager != nullptr);
    PRECONDITION(settings != nullptr);
    PRECONDITION(transactionManager != nullptr);
    PRECONDITION(logManager != nullptr);
}

void MessageProcessor::SetListener(Listener* newListener)
{
    PRECONDITION(newListener != nullptr);
    listener = newListener;
}

void MessageProcessor::ProcessMessage(const DHCPMessage& message)
{
    PRECONDITION(listener != nullptr);
    // Purged before the message is looked at, so that an exchange that has
    // just timed out is gone when its late REQUEST arrives.
    transactionManager->RemoveExpiredTransactions();

    // hlen 0 without option 61 leaves the client without any identity that
    // transactions could be matched by: nothing can be done for it.
    if (message.GetClientIdentifier().IsEmpty()) {
        return;
    }
    // Without option 53 the message is dropped like a type without a handler.
    if (!message.Options().IsOptionPresent(MessageOptions::MessageTypeCode)) {
        return;
    }
    // op is not looked at: a known message type is handled whatever op says.
    switch (message.Options().GetMessageType()) {
    case DHCPDISCOVER:
        ProcessDiscover(message);
        break;
    case DHCPREQUEST:
        ProcessRequest(message);
        break;
    case DHCPRELEASE:
        ProcessRelease(message);
        break;
    case DHCPINFORM:
        ProcessInform(message);
        break;
    default:
        // DECLINE among them: no address is marked bad, nothing is logged.
        break;
    }
}

void MessageProcessor::ProcessDiscover(const DHCPMessage& message)
{
    const ClientIdentifier clientIdentifier = message.GetClientIdentifier();
    const uint32_t xid = message.GetTransactionID();
    const HardwareAddress& hardwareAddress = message.GetHardwareAddress();

    // A client repeating its DISCOVER while its exchange is open gets no
    // second OFFER; it waits until the transaction ages out.
    if (transactionManager->TransactionExistsForClient(clientIdentifier) ||
        transactionManager->TransactionExists(xid)) {
        logManager->AddLogItem(DHCPDiscoverReceived, hardwareAddress, std::nullopt, true);
        return;
    }
    logManager->AddLogItem(DHCPDiscoverReceived, hardwareAddress, std::nullopt, false);

    // NoAvailableAddresses ends the handling here: no OFFER, no transaction.
    const IPv4Address offeredAddress = addressManager->GetAddressForClient(message);
    if (offeredAddress.IsZero()) {
        // A pool that starts at 0.0.0.0 can yield it, yet 0.0.0.0 means "no
        // address" and can't be offered.
        return;
    }
    // From here on the address is held against other clients.
    transactionManager->AddTransaction(xid, offeredAddress, clientIdentifier);

    DHCPMessage offer;
    StartReply(message, DHCPOFFER, offer);
    offer.SetYourIPAddress(offeredAddress);
    offer.Options().SetIPAddressLeaseTime(settings->GetLeaseDuration());
    SetConfigurationOptions(offer);
    ReplyArea datagram;
    const size_t length = BuildReply(message, offer, datagram);

    try {
        // Always broadcast, whatever the client's broadcast flag says.
        listener->SendBroadcast(datagram, length);
        logManager->AddLogItem(DHCPOfferSent, hardwareAddress, offeredAddress, false);
        transactionManager->Transactions(xid).SetLastMessageType(DHCPOFFER, transactionManager->Now());
    } catch (const AppException&) {
        // The transaction stays at DISCOVER: a REQUEST that follows is not
        // answered, and the transaction ages out.
    }
}

void MessageProcessor::ProcessRequest(const DHCPMessage& message)
{
    const MessageOptions& options = message.Options();
    const uint32_t xid = message.GetTransactionID();
    const bool ciaddrIsZero = message.GetClientIPAddress().IsZero();
    const bool hasServerIdentifier = options.IsOptionPresent(MessageOptions::ServerIdentifier);
    const bool hasRequestedAddress = options.IsOptionPresent(MessageOptions::RequestedIPAddress);

    if (transactionManager->TransactionExists(xid)) {
        const Transaction& transaction = transactionManager->Transactions(xid);
        if (transaction.GetLastMessageType() != DHCPOFFER) {
            return; // Our OFFER never went out: nothing to answer, nothing logged.
        }
        LogRequestReceived(message);
        // SELECTING: our server identifier, no ciaddr, the offered address.
        // Anything else stays unanswered, and the transaction stays until it
        // ages out; a client in SELECTING is never refused by a NAK.
        const bool selectsOurOffer = hasServerIdentifier &&
                                     options.GetServerIdentifier() == listener->GetListeningAddress() &&
                                     ciaddrIsZero && hasRequestedAddress &&
                                     options.GetRequestedIPAddress() == transaction.GetOfferedAddress();
        if (selectsOurOffer) {
            ConfirmOfferedAddress(message);
        }
        return;
    }

    LogRequestReceived(message);
    // No open exchange: a REQUEST that names a server is a repeat, or came
    // after its transaction aged out, whichever server it names.
    if (hasServerIdentifier) {
        return;
    }
    if (hasRequestedAddress) {
        // INIT-REBOOT. Silence about an address we have no record of for
        // this client.
        if (addressManager->IsAddressLeasedTo(message.GetHardwareAddress(), options.GetRequestedIPAddress()) &&
            ciaddrIsZero) {
            ProcessInitReboot(message);
        }
        return;
    }
    if (!ciaddrIsZero) {
        ProcessRenewal(message); // RENEWING and REBINDING are not told apart.
    }
}

void MessageProcessor::ProcessRelease(const DHCPMessage& message)
{
    const IPv4Address clientAddress = message.GetClientIPAddress();
    logManager->AddLogItem(DHCPReleaseReceived, message.GetHardwareAddress(), clientAddress, false);
    // ciaddr alone decides; the sender is not compared with the holder.
    addressManager->ReleaseLease(clientAddress);
}

void MessageProcessor::ProcessInform(const DHCPMessage& message)
{
    logManager->AddLogItem(DHCPInformReceived, message.GetHardwareAddress(), message.GetClientIPAddress(), false);
    SendAck(message, IPv4Address());
}

void MessageProcessor::ConfirmOfferedAddress(const DHCPMessage& message)
{
    const uint32_t xid = message.GetTransactionID();
    const IPv4Address offeredAddress = transactionManager->Transactions(xid).GetOfferedAddress();
    SendAck(message, offeredAddress);
    transactionManager->RemoveTransaction(xid);
}

void MessageProcessor::ProcessInitReboot(const DHCPMessage& message)
{
    CheckAndAckAddress(message, message.Options().GetRequestedIPAddress());
}

void MessageProcessor::ProcessRenewal(const DHCPMessage& message)
{
    CheckAndAckAddress(message, message.GetClientIPAddress());
}

void MessageProcessor::CheckAndAckAddress(const DHCPMessage& message, const IPv4Address& address)
{
    const HardwareAddress& hardwareAddress = message.GetHardwareAddress();
    if (address < settings->GetPoolStartAddress() || address > settings->GetPoolEndAddress()) {
        SendNak(message);
        return;
    }
    // An address under offer to anyone is refused.
    if (transactionManager->TransactionExistsForAddress(address)) {
        SendNak(message);
        return;
    }
    // A client with a reservation gets only that.
    const IPv4Address reservedAddress = addressManager->GetReservedAddress(hardwareAddress);
    const bool isOwnReservation = !reservedAddress.IsZero() && reservedAddress == address;
    if (!reservedAddress.IsZero() && !isOwnReservation) {
        SendNak(message);
        return;
    }
    // The old lease goes whatever follows: a client refused below has lost it.
    const IPv4Address leasedAddress = addressManager->GetLeasedAddress(hardwareAddress);
    if (!leasedAddress.IsZero()) {
        addressManager->RemoveLease(leasedAddress);
    }
    // Every reserved address is unavailable to everybody, so the client's own
    // reservation is not put to that test.
    if (!isOwnReservation && !addressManager->IsAddressAvailable(address)) {
        SendNak(message);
        return;
    }
    SendAck(message, address);
}

void MessageProcessor::SendAck(const DHCPMessage& message, const IPv4Address& address)
{
    const int32_t leaseDuration = settings->GetLeaseDuration();
    const bool answersRequest = message.Options().GetMessageType() == DHCPREQUEST;
    // Entered before the send: a lost ACK leaves the lease in place.
    if (answersRequest) {
        addressManager->AddLease(message.GetHardwareAddress(), address, leaseDuration);
    }

    DHCPMessage ack;
    StartReply(message, DHCPACK, ack);
    ack.SetClientIPAddress(message.GetClientIPAddress());
    ack.SetYourIPAddress(address);
    if (answersRequest) {
        ack.Options().SetIPAddressLeaseTime(leaseDuration);
    }
    SetConfigurationOptions(ack);
    ReplyArea datagram;
    const size_t length = BuildReply(message, ack, datagram);

    // Logged with ciaddr, so an ACK in SELECTING or INIT-REBOOT shows 0.0.0.0.
    SendToClientAndLog(message, datagram, length, DHCPAckSent);
}

void MessageProcessor::SendNak(const DHCPMessage& message)
{
    DHCPMessage nak;
    StartReply(message, DHCPNAK, nak);
    if (message.Options().IsOptionPresent(MessageOptions::ClientIdentifierCode)) {
        nak.Options().SetClientIdentifier(message.Options().GetClientIdentifier());
    }
    // A NAK never honours the parameter request list.
    ReplyArea datagram;
    const size_t length = nak.Build(datagram, std::span<const uint8_t>());

    SendToClientAndLog(message, datagram, length, DHCPNakSent);
}

void MessageProcessor::StartReply(const DHCPMessage& request, MessageType messageType, DHCPMessage& reply) const
{
    reply.SetOperation(DHCPMessage::BOOTREPLY);
    reply.SetTransactionID(request.GetTransactionID());
    // Copied into the reply and otherwise of no consequence: nothing goes to
    // a relay agent, and the destination follows ciaddr alone.
    reply.SetBroadcastFlag(request.GetBroadcastFlag());
    reply.SetGatewayIPAddress(request.GetGatewayIPAddress());
    reply.SetHardwareAddress(request.GetHardwareAddress());
    reply.Options().SetMessageType(messageType);
    reply.Options().SetServerIdentifier(listener->GetListeningAddress());
}

void MessageProcessor::SetConfigurationOptions(DHCPMessage& reply) const
{
    MessageOptions& options = reply.Options();
    const IPv4Address gateway = settings->GetDefaultGateway();
    if (!gateway.IsZero()) {
        options.SetRouter(gateway);
    }
    options.SetSubnetMask(settings->GetSubnetMask());

    const IPv4Address dnsAddress1 = settings->GetDNSAddress1();
    const IPv4Address dnsAddress2 = settings->GetDNSAddress2();
    if (!dnsAddress1.IsZero()) {
        options.SetDNSAddress1(dnsAddress1);
        if (!dnsAddress2.IsZero()) {
            options.SetDNSAddress2(dnsAddress2);
        }
    } else if (!dnsAddress2.IsZero()) {
        // A second server alone is sent as the only one.
        options.SetDNSAddress1(dnsAddress2);
    }

    options.SetBroadcastAddress(settings->GetBroadcastAddress());
    // Referred to, not copied: the reply lives for one send, and the list
    // cannot change while the server runs.
    options.ReferToRawOptions(settings->GetAdditionalOptions());
}

size_t MessageProcessor::BuildReply(const DHCPMessage& request, const DHCPMessage& reply, ReplyArea& area)
{
    if (!request.Options().IsOptionPresent(MessageOptions::ParameterRequestList)) {
        return reply.Build(area, std::span<const uint8_t>());
    }
    return reply.Build(area, request.Options().ViewParameterRequestList());
}

void MessageProcessor::SendToClient(const DHCPMessage& request, const uint8_t* datagram, size_t length)
{
    const IPv4Address clientAddress = request.GetClientIPAddress();
    if (clientAddress.IsZero()) {
        listener->SendBroadcast(datagram, length);
    } else {
        listener->SendUnicast(datagram, length, clientAddress);
    }
}

void MessageProcessor::SendToClientAndLog(const DHCPMessage& request, const uint8_t* datagram, size_t length,
                                          EventType sentEvent)
{
    try {
        SendToClient(request, datagram, length);
    } catch (const AppException& exception) {
        // A failed send is dropped, and so is its log item; table changes stand.
        if (!IsFailedSend(exception)) {
            throw;
        }
        return;
    }
    logManager->AddLogItem(sentEvent, request.GetHardwareAddress(), request.GetClientIPAddress(), false);
}

void MessageProcessor::LogRequestReceived(const DHCPMessage& message)
{
    logManager->AddLogItem(DHCPRequestReceived, message.GetHardwareAddress(), message.GetClientIPAddress(), false);
}
