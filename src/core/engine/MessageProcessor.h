#pragma once

#include "foundation/IPv4Address.h"
#include "log/EventType.h"
#include "wire/DHCPMessage.h"
#include "wire/MessageType.h"

#include <cstddef>
#include <cstdint>

class AddressManager;
class Listener;
class LogManager;
class Settings;
class TransactionManager;

// The protocol logic: for each message from the Listener, on the receive
// thread, it decides to ignore it, answer it, or change the tables. Client
// states (SELECTING, INIT-REBOOT, RENEWING/REBINDING) are told apart by the
// presence of the transaction, options 50 and 54 and ciaddr. It keeps no
// state of its own: an exchange lives in a Transaction, then in a Lease.
class MessageProcessor {
public:
    // None of the pointers may be null; none is owned.
    MessageProcessor(AddressManager* addressManager, Settings* settings, TransactionManager* transactionManager,
                     LogManager* logManager);

    MessageProcessor(const MessageProcessor&) = delete;
    MessageProcessor& operator=(const MessageProcessor&) = delete;

    // Late wiring: Listener and MessageProcessor need each other.
    void SetListener(Listener* newListener);

    // The only entry for messages; the message stays the caller's. Raises
    // NoAvailableAddresses when the pool is exhausted at a DISCOVER, and
    // whatever else is not a failed send; the Listener drops all of it.
    void ProcessMessage(const DHCPMessage& message);

private:
    void ProcessDiscover(const DHCPMessage& message);
    void ProcessRequest(const DHCPMessage& message);
    void ProcessRelease(const DHCPMessage& message);
    void ProcessInform(const DHCPMessage& message);
    void ConfirmOfferedAddress(const DHCPMessage& message);
    void ProcessInitReboot(const DHCPMessage& message);
    void ProcessRenewal(const DHCPMessage& message);
    void CheckAndAckAddress(const DHCPMessage& message, const IPv4Address& address);
    void SendAck(const DHCPMessage& message, const IPv4Address& address);
    void SendNak(const DHCPMessage& message);

    // A reply with op 2, its type, our server identifier, and the fields that
    // every reply copies from its request.
    void StartReply(const DHCPMessage& request, MessageType messageType, DHCPMessage& reply) const;
    // Subnet mask, router, DNS servers, broadcast address, additional options.
    void SetConfigurationOptions(DHCPMessage& reply) const;
    // A reply datagram, built in place on the stack.
    using ReplyArea = uint8_t[DHCPMessage::MAXIMUM_LENGTH];
    // Builds `reply` into `area`, its options ordered by the request's option
    // 55 when it has one; returns the length.
    static size_t BuildReply(const DHCPMessage& request, const DHCPMessage& reply, ReplyArea& area);
    // To port 68 of ciaddr when the request has one, else broadcast. Raises
    // SendError, NotAllBytesSent.
    void SendToClient(const DHCPMessage& request, const uint8_t* datagram, size_t length);
    // SendToClient, then the item of `sentEvent` with hw and ciaddr; a failed
    // send (SendError, NotAllBytesSent) ends quietly without the item.
    void SendToClientAndLog(const DHCPMessage& request, const uint8_t* datagram, size_t length, EventType sentEvent);
    void LogRequestReceived(const DHCPMessage& message);

    AddressManager* addressManager;
    Settings* settings;
    Listener* listener = nullptr;
    TransactionManager* transactionManager;
    LogManager* logManager;
};
