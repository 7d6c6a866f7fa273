#pragma once

#include "foundation/HardwareAddress.h"
#include "foundation/IPv4Address.h"

// A fixed assignment of one IP address to one hardware address.
class AddressReservation {
public:
    AddressReservation(const HardwareAddress& hardwareAddress, const IPv4Address& ipAddress)
        : hardwareAddress(hardwareAddress), ipAddress(ipAddress)
    {
    }

    HardwareAddress GetHardwareAddress() const { return hardwareAddress; }
    IPv4Address GetIPAddress() const { return ipAddress; }

private:
    HardwareAddress hardwareAddress;
    IPv4Address ipAddress;
};
