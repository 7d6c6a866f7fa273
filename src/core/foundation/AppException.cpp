#include "foundation/AppException.h"

#include <array>
#include <string_view>

namespace {

// Indexed by code. Empty entries are the unassigned positions.
constexpr std::array<std::string_view, 44> messages = {
    "Cannot create listening socket",
    "Cannot initialize WinSock",
    "Cannot bind the socket",
    "Receive error, listeing will be stopped",
    "DHCP Message format error - 'options' field magic cookie not read",
    "DHCP Message Option is not present",
    "DHCP Message Option length not valid",
    "",
    "",
    "IPv4 address value overflow",
    "There are no available addresses in the pool",
    "Error occured while determining local IP addresses",
    "Invalid listening IP addresses",
    "There is no IP address to listen on",
    "Not all bytes from the message were sent",
    "Error occured while sending the message",
    "Server settings are not valid",
    "IP address string not valid",
    "It is not a subnet mask",
    "Message parsing error",
    "Hardware address string not valid",
    "Reservation for this hardware address already exists",
    "Reservation for this IP address already exists",
    "Reservation IP address is not in the same subnet as pool addresses",
    "String does not contain valid integer",
    "CodeString is not valid",
    "DataString is not valid",
    "Raw option data must have at least one element",
    "Raw option data must not be longer than 254",
    "Settings file line parsing error",
    "Settings file parsing fatal error - settings were not loaded at all",
    "Settings file parsing error - some lines were not valid, but some settings were loaded",
    "File not exists",
    "Cannot create logItemsMutex",
    "Waiting for logItemsMutex failed",
    "Releasing logItemsMutex failed",
    "Cannot determine listening network interface name",
    "User does not have administrative privileges",
    "Cannot get Windows known directory",
    "Cannot open file",
    "File reading error",
    "File writing error",
    "The file has unsupported End Of Line style",
    "The lease file is in use by another server",
};

} // namespace

std::string AppException::GetMessageForCode(int32_t code)
{
    if (code < 0 || code >= static_cast<int32_t>(messages.size()) || messages[code].empty()) {
        return "Unknown error";
    }
    return std::string(messages[code]);
}
