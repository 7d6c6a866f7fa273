#include "platform/LocalAddresses.h"

#include "foundation/AppException.h"

#include <arpa/inet.h>
#include <ifaddrs.h>
#include <net/if.h>
#include <netinet/in.h>

#include <memory>
#include <optional>

namespace {

constexpr uint8_t LOOPBACK_FIRST_OCTET = 127;

struct InterfaceListDeleter {
    void operator()(ifaddrs* list) const { freeifaddrs(list); }
};
using InterfaceList = std::unique_ptr<ifaddrs, InterfaceListDeleter>;

// Null when the system cannot give the list.
InterfaceList ReadInterfaceList()
{
    ifaddrs* list = nullptr;
    if (getifaddrs(&list) != 0) {
        return nullptr;
    }
    return InterfaceList(list);
}

std::optional<IPv4Address> IPv4AddressOf(const ifaddrs& entry)
{
    // An interface without an address (or with one of another family) is
    // listed too; ifa_addr is null for some of them.
    if (entry.ifa_addr == nullptr || entry.ifa_addr->sa_family != AF_INET) {
        return std::nullopt;
    }
    const auto* socketAddress = reinterpret_cast<const sockaddr_in*>(entry.ifa_addr);
    return IPv4Address::FromUint32(ntohl(socketAddress->sin_addr.s_addr));
}

} // namespace

std::vector<IPv4Address> LocalAddresses::Detect()
{
    const InterfaceList list = ReadInterfaceList();
    if (!list) {
        throw AppException(AppException::CannotDetermineLocalAddresses);
    }
    std::vector<IPv4Address> addresses;
    for (const ifaddrs* entry = list.get(); entry != nullptr; entry = entry->ifa_next) {
        const auto address = IPv4AddressOf(*entry);
        if (!address || (entry->ifa_flags & IFF_UP) == 0 || (*address)[0] == LOOPBACK_FIRST_OCTET) {
            continue;
        }
        addresses.push_back(*address);
    }
    return addresses;
}

std::string LocalAddresses::FindInterfaceName(const IPv4Address& address)
{
    const InterfaceList list = ReadInterfaceList();
    if (list) {
        for (const ifaddrs* entry = list.get(); entry != nullptr; entry = entry->ifa_next) {
            if (IPv4AddressOf(*entry) == address && entry->ifa_name != nullptr) {
                return entry->ifa_name;
            }
        }
    }
    throw AppException(AppException::CannotDetermineInterfaceName);
}
