#pragma once

#include "foundation/ByteString.h"
#include "foundation/ClientIdentifier.h"
#include "foundation/IPv4Address.h"
#include "wire/MessageType.h"
#include "wire/RawOption.h"

#include <array>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

// The typed options field of a DHCP message. A fixed set of options are named
// fields with a presence flag; the user's additional options travel as a list.
// The flag is what counts: a getter of an absent option raises
// OptionNotPresent. The parser and writer live in DHCPMessage.
//
// Every value lives inside the object, the variable ones (host name,
// parameter request list) in fields as long as an option can be, so a parsed
// message costs no heap memory. The additional options are either an own
// list or, for a reply, a list of someone else's that is referred to.
class MessageOptions {
public:
    enum Code : uint8_t {
        Pad = 0,
        SubnetMask = 1,
        Router = 3,
        DomainNameServer = 6,
        HostName = 12,
        BroadcastAddress = 28,
        RequestedIPAddress = 50,
        IPAddressLeaseTime = 51,
        MessageTypeCode = 53,
        ServerIdentifier = 54,
        ParameterRequestList = 55,
        MaximumDHCPMessageSize = 57,
        ClientIdentifierCode = 61,
        End = 255,
    };

    // What one option's value can hold: its length is one byte.
    static constexpr size_t MAX_VALUE_LENGTH = 255;

    // The flags of all 256 codes: code c is bit c % 64 of word c / 64.
    using Flags = std::array<uint64_t, 4>;

    bool IsOptionPresent(uint8_t code) const { return ((present[code / 64] >> (code % 64)) & 1) != 0; }
    const Flags& GetPresentFlags() const { return present; }
    // For code 6 also clears both DNS addresses.
    void RemoveOption(uint8_t code);
    static bool IsStandardOption(uint8_t code);

    // Precondition: 1 <= newMask <= 32 (a prefix length).
    uint8_t GetSubnetMask() const;
    void SetSubnetMask(uint8_t newMask);
    IPv4Address GetRouter() const;
    void SetRouter(const IPv4Address& newRouter);
    // Option 6 has one flag for both addresses. SetDNSAddress1 sets it (also
    // for 0.0.0.0); precondition: not clearing the first while a second stands.
    IPv4Address GetDNSAddress1() const;
    void SetDNSAddress1(const IPv4Address& newAddress);
    // Precondition: a first DNS address is set. Leaves the flag alone.
    IPv4Address GetDNSAddress2() const;
    void SetDNSAddress2(const IPv4Address& newAddress);
    // Both DNS servers from values where 0.0.0.0 means none: the non-zero
    // ones in their order, a second one alone taking the first place; none
    // at all removes option 6.
    void SetDNSAddresses(const IPv4Address& first, const IPv4Address& second);
    std::string GetHostName() const;
    // Precondition: at most MAX_VALUE_LENGTH characters.
    void SetHostName(const std::string& newHostName);
    // The same from the bytes of an option. Precondition: length <= MAX_VALUE_LENGTH.
    void SetHostName(const uint8_t* bytes, size_t length);
    IPv4Address GetBroadcastAddress() const;
    void SetBroadcastAddress(const IPv4Address& newAddress);
    IPv4Address GetRequestedIPAddress() const;
    void SetRequestedIPAddress(const IPv4Address& newAddress);
    int32_t GetIPAddressLeaseTime() const;
    void SetIPAddressLeaseTime(int32_t newLeaseTime);
    // Precondition: 1 <= newMessageType <= 8.
    int32_t GetMessageType() const;
    void SetMessageType(int32_t newMessageType);
    IPv4Address GetServerIdentifier() const;
    void SetServerIdentifier(const IPv4Address& newAddress);
    ByteString GetParameterRequestList() const;
    // The list in place, valid while this object lives and is not changed.
    // Raises OptionNotPresent as the getter does.
    std::span<const uint8_t> ViewParameterRequestList() const;
    // Precondition: at most MAX_VALUE_LENGTH codes.
    void SetParameterRequestList(const ByteString& newList);
    void SetParameterRequestList(std::span<const uint8_t> newList);
    // Precondition: newMaximumDHCPMessageSize >= 576.
    uint16_t GetMaximumDHCPMessageSize() const;
    void SetMaximumDHCPMessageSize(uint16_t newMaximumDHCPMessageSize);
    ClientIdentifier GetClientIdentifier() const;
    void SetClientIdentifier(const ClientIdentifier& newIdentifier);

    const std::vector<RawOption>& GetRawOptions() const { return RawOptionList(); }
    // A list referred to becomes an own copy first.
    std::vector<RawOption>& GetRawOptions();
    // Clears the flags of the old list's codes, sets those of the new list's.
    void SetRawOptions(const std::vector<RawOption>& newRawOptions);
    // As SetRawOptions, without a copy: this object refers to `newRawOptions`
    // until the list is set again, and copies of it do too. The caller keeps
    // the list alive and unchanged meanwhile. Meant for a reply that lives
    // for one send, with the settings' list.
    void ReferToRawOptions(const std::vector<RawOption>& newRawOptions);
    // The first additional option of `code`, or null.
    const RawOption* FindRawOption(uint8_t code) const;

private:
    // Raises OptionNotPresent when the flag of `code` is clear.
    void RequirePresent(uint8_t code) const;
    const std::vector<RawOption>& RawOptionList() const
    {
        return referredRawOptions != nullptr ? *referredRawOptions : ownRawOptions;
    }
    void ReplaceRawOptionFlags(const std::vector<RawOption>& newRawOptions);

    void SetFlag(uint8_t code) { present[code / 64] |= uint64_t{1} << (code % 64); }
    void ClearFlag(uint8_t code) { present[code / 64] &= ~(uint64_t{1} << (code % 64)); }

    Flags present{};
    int32_t messageType = 0;
    IPv4Address requestedIPAddress;
    ClientIdentifier clientIdentifier;
    uint8_t parameterRequestListLength = 0;
    std::array<uint8_t, MAX_VALUE_LENGTH> parameterRequestList{};
    uint16_t maximumDHCPMessageSize = 0;
    IPv4Address serverIdentifier;
    uint8_t hostNameLength = 0;
    std::array<char, MAX_VALUE_LENGTH> hostName{};
    int32_t ipAddressLeaseTime = 0;
    uint8_t subnetMask = 0;
    IPv4Address dnsAddress1;
    IPv4Address dnsAddress2;
    IPv4Address router;
    IPv4Address broadcastAddress;
    std::vector<RawOption> ownRawOptions;
    // Not owned; null while the own list is in use.
    const std::vector<RawOption>* referredRawOptions = nullptr;
};
