#include "wire/MessageOptions.h"

#include "foundation/AppException.h"
#include "foundation/Precondition.h"

#include <algorithm>

namespace {

constexpr uint16_t MINIMUM_MAXIMUM_MESSAGE_SIZE = 576;

} // namespace

void MessageOptions::RemoveOption(uint8_t code)
{
    ClearFlag(code);
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
    if (!IsOptionPresent(code)) {
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
    SetFlag(SubnetMask);
}

IPv4Address MessageOptions::GetRouter() const
{
    RequirePresent(Router);
    return router;
}

void MessageOptions::SetRouter(const IPv4Address& newRouter)
{
    router = newRouter;
    SetFlag(Router);
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
    SetFlag(DomainNameServer);
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
    return std::string(hostName.data(), hostNameLength);
}

void MessageOptions::SetHostName(const std::string& newHostName)
{
    SetHostName(reinterpret_cast<const uint8_t*>(newHostName.data()), newHostName.size());
}

void MessageOptions::SetHostName(const uint8_t* bytes, size_t length)
{
    PRECONDITION(length <= MAX_VALUE_LENGTH);
    PRECONDITION(bytes != nullptr || length == 0);
    std::copy(bytes, bytes + length, hostName.begin());
    hostNameLength = static_cast<uint8_t>(length);
    SetFlag(HostName);
}

IPv4Address MessageOptions::GetBroadcastAddress() const
{
    RequirePresent(BroadcastAddress);
    return broadcastAddress;
}

void MessageOptions::SetBroadcastAddress(const IPv4Address& newAddress)
{
    broadcastAddress = newAddress;
    SetFlag(BroadcastAddress);
}

IPv4Address MessageOptions::GetRequestedIPAddress() const
{
    RequirePresent(RequestedIPAddress);
    return requestedIPAddress;
}

void MessageOptions::SetRequestedIPAddress(const IPv4Address& newAddress)
{
    requestedIPAddress = newAddress;
    SetFlag(RequestedIPAddress);
}

int32_t MessageOptions::GetIPAddressLeaseTime() const
{
    RequirePresent(IPAddressLeaseTime);
    return ipAddressLeaseTime;
}

void MessageOptions::SetIPAddressLeaseTime(int32_t newLeaseTime)
{
    ipAddressLeaseTime = newLeaseTime;
    SetFlag(IPAddressLeaseTime);
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
    SetFlag(MessageTypeCode);
}

IPv4Address MessageOptions::GetServerIdentifier() const
{
    RequirePresent(ServerIdentifier);
    return serverIdentifier;
}

void MessageOptions::SetServerIdentifier(const IPv4Address& newAddress)
{
    serverIdentifier = newAddress;
    SetFlag(ServerIdentifier);
}

ByteString MessageOptions::GetParameterRequestList() const
{
    const std::span<const uint8_t> list = ViewParameterRequestList();
    return ByteString(list.begin(), list.end());
}

std::span<const uint8_t> MessageOptions::ViewParameterRequestList() const
{
    RequirePresent(ParameterRequestList);
    return std::span<const uint8_t>(parameterRequestList.data(), parameterRequestListLength);
}

void MessageOptions::SetParameterRequestList(const ByteString& newList)
{
    SetParameterRequestList(std::span<const uint8_t>(newList));
}

void MessageOptions::SetParameterRequestList(std::span<const uint8_t> newList)
{
    PRECONDITION(newList.size() <= MAX_VALUE_LENGTH);
    std::copy(newList.begin(), newList.end(), parameterRequestList.begin());
    parameterRequestListLength = static_cast<uint8_t>(newList.size());
    SetFlag(ParameterRequestList);
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
    SetFlag(MaximumDHCPMessageSize);
}

ClientIdentifier MessageOptions::GetClientIdentifier() const
{
    RequirePresent(ClientIdentifierCode);
    return clientIdentifier;
}

void MessageOptions::SetClientIdentifier(const ClientIdentifier& newIdentifier)
{
    clientIdentifier = newIdentifier;
    SetFlag(ClientIdentifierCode);
}

std::vector<RawOption>& MessageOptions::GetRawOptions()
{
    if (referredRawOptions != nullptr) {
        ownRawOptions = *referredRawOptions;
        referredRawOptions = nullptr;
    }
    return ownRawOptions;
}

void MessageOptions::SetRawOptions(const std::vector<RawOption>& newRawOptions)
{
    ReplaceRawOptionFlags(newRawOptions);
    // Copied before the reference goes: the new list may be the one referred to.
    ownRawOptions = newRawOptions;
    referredRawOptions = nullptr;
}

void MessageOptions::ReferToRawOptions(const std::vector<RawOption>& newRawOptions)
{
    ReplaceRawOptionFlags(newRawOptions);
    if (&newRawOptions == &ownRawOptions) {
        referredRawOptions = nullptr; // our own list already
        return;
    }
    referredRawOptions = &newRawOptions;
    ownRawOptions.clear();
}

void MessageOptions::ReplaceRawOptionFlags(const std::vector<RawOption>& newRawOptions)
{
    for (const RawOption& option : RawOptionList()) {
        ClearFlag(option.GetCode());
    }
    for (const RawOption& option : newRawOptions) {
        SetFlag(option.GetCode());
    }
}

const RawOption* MessageOptions::FindRawOption(uint8_t code) const
{
    for (const RawOption& option : RawOptionList()) {
        if (option.GetCode() == code) {
            return &option;
        }
    }
    return nullptr;
}
