#include "wire/MessageOptions.h"

#include "foundation/AppException.h"
#include "foundation/Precondition.h"

namespace {

constexpr uint16_t MINIMUM_MAXIMUM_MESSAGE_SIZE = 576;

} // namespace

void MessageOptions::RemoveOption(uint8_t code)
{
    present[code] = false;
    if (code == DomainNameServer) {
        dnsAddress1 = IPv4Address();
        dnsAddress2 = IPv4Address();
    }
}

bool MessageOptions::IsStandardOption(uint8_t code)
{
    switch (code) {
    case Pad:
    case SubnetMask:
    case Router:
    case DomainNameServer:
    case HostName:
    case BroadcastAddress:
    case RequestedIPAddress:
    case IPAddressLeaseTime:
    case MessageTypeCode:
    case ServerIdentifier:
    case ParameterRequestList:
    case MaximumDHCPMessageSize:
    case ClientIdentifierCode:
    case End:
        return true;
    default:
        return false;
    }
}

void MessageOptions::RequirePresent(uint8_t code) const
{
    if (!present[code]) {
        throw AppException(AppException::OptionNotPresent);
    }
}

uint8_t MessageOptions::GetSubnetMask() const
{
    RequirePresent(SubnetMask);
    return subnetMask;
}

void MessageOptions::SetSubnetMask(uint8_t newMask)
{
    PRECONDITION(newMask >= 1 && newMask <= 32);
    subnetMask = newMask;
    present[SubnetMask] = true;
}

IPv4Address MessageOptions::GetRouter() const
{
    RequirePresent(Router);
    return router;
}

void MessageOptions::SetRouter(const IPv4Address& newRouter)
{
    router = newRouter;
    present[Router] = true;
}

IPv4Address MessageOptions::GetDNSAddress1() const
{
    RequirePresent(DomainNameServer);
    return dnsAddress1;
}

void MessageOptions::SetDNSAddress1(const IPv4Address& newAddress)
{
    PRECONDITION(newAddress != IPv4Address() || dnsAddress2 == IPv4Address());
    dnsAddress1 = newAddress;
    present[DomainNameServer] = true;
}

IPv4Address MessageOptions::GetDNSAddress2() const
{
    RequirePresent(DomainNameServer);
    return dnsAddress2;
}

void MessageOptions::SetDNSAddress2(const IPv4Address& newAddress)
{
    PRECONDITION(dnsAddress1 != IPv4Address());
    dnsAddress2 = newAddress;
}

void MessageOptions::SetDNSAddresses(const IPv4Address& first, const IPv4Address& second)
{
    RemoveOption(DomainNameServer);
    if (first != IPv4Address()) {
        SetDNSAddress1(first);
        SetDNSAddress2(second);
    } else if (second != IPv4Address()) {
        // A second server alone moves up into the first place.
        SetDNSAddress1(second);
    }
}

std::string MessageOptions::GetHostName() const
{
    RequirePresent(HostName);
    return hostName;
}

void MessageOptions::SetHostName(const std::string& newHostName)
{
    hostName = newHostName;
    present[HostName] = true;
}

IPv4Address MessageOptions::GetBroadcastAddress() const
{
    RequirePresent(BroadcastAddress);
    return broadcastAddress;
}

void MessageOptions::SetBroadcastAddress(const IPv4Address& newAddress)
{
    broadcastAddress = newAddress;
    present[BroadcastAddress] = true;
}

IPv4Address MessageOptions::GetRequestedIPAddress() const
{
    RequirePresent(RequestedIPAddress);
    return requestedIPAddress;
}

void MessageOptions::SetRequestedIPAddress(const IPv4Address& newAddress)
{
    requestedIPAddress = newAddress;
    present[RequestedIPAddress] = true;
}

int32_t MessageOptions::GetIPAddressLeaseTime() const
{
    RequirePresent(IPAddressLeaseTime);
    return ipAddressLeaseTime;
}

void MessageOptions::SetIPAddressLeaseTime(int32_t newLeaseTime)
{
    ipAddressLeaseTime = newLeaseTime;
    present[IPAddressLeaseTime] = true;
}

int32_t MessageOptions::GetMessageType() const
{
    RequirePresent(MessageTypeCode);
    return messageType;
}

void MessageOptions::SetMessageType(int32_t newMessageType)
{
    PRECONDITION(newMessageType >= DHCPDISCOVER && newMessageType <= DHCPINFORM);
    messageType = newMessageType;
    present[MessageTypeCode] = true;
}

IPv4Address MessageOptions::GetServerIdentifier() const
{
    RequirePresent(ServerIdentifier);
    return serverIdentifier;
}

void MessageOptions::SetServerIdentifier(const IPv4Address& newAddress)
{
    serverIdentifier = newAddress;
    present[ServerIdentifier] = true;
}

ByteString MessageOptions::GetParameterRequestList() const
{
    RequirePresent(ParameterRequestList);
    return parameterRequestList;
}

void MessageOptions::SetParameterRequestList(const ByteString& newList)
{
    parameterRequestList = newList;
    present[ParameterRequestList] = true;
}

uint16_t MessageOptions::GetMaximumDHCPMessageSize() const
{
    RequirePresent(MaximumDHCPMessageSize);
    return maximumDHCPMessageSize;
}

void MessageOptions::SetMaximumDHCPMessageSize(uint16_t newMaximumDHCPMessageSize)
{
    PRECONDITION(newMaximumDHCPMessageSize >= MINIMUM_MAXIMUM_MESSAGE_SIZE);
    maximumDHCPMessageSize = newMaximumDHCPMessageSize;
    present[MaximumDHCPMessageSize] = true;
}

ClientIdentifier MessageOptions::GetClientIdentifier() const
{
    RequirePresent(ClientIdentifierCode);
    return clientIdentifier;
}

void MessageOptions::SetClientIdentifier(const ClientIdentifier& newIdentifier)
{
    clientIdentifier = newIdentifier;
    present[ClientIdentifierCode] = true;
}

void MessageOptions::SetRawOptions(const std::vector<RawOption>& newRawOptions)
{
    for (const RawOption& option : rawOptions) {
        present[option.GetCode()] = false;
    }
    for (const RawOption& option : newRawOptions) {
        present[option.GetCode()] = true;
    }
    rawOptions = newRawOptions;
}

const RawOption* MessageOptions::FindRawOption(uint8_t code) const
{
    for (const RawOption& option : rawOptions) {
        if (option.GetCode() == code) {
            return &option;
        }
    }
    return nullptr;
}
