#include "foundation/AppException.h"
#include "platform/LocalAddresses.h"
#include "support/NetworkNamespaces.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace {

int CodeOfFindInterfaceName(const IPv4Address& address)
{
    try {
        LocalAddresses::FindInterfaceName(address);
    } catch (const AppException& failure) {
        return failure.GetCode();
    }
    return -1;
}

// Texts, so that a failure shows readable addresses.
std::vector<std::string> Texts(const std::vector<IPv4Address>& addresses)
{
    std::vector<std::string> texts;
    for (const auto& address : addresses) {
        texts.push_back(address.ToString());
    }
    return texts;
}

std::vector<std::string> DetectIn(const std::string& name)
{
    return Texts(NetworkNamespaces::RunIn(name, [] { return LocalAddresses::Detect(); }));
}

} // namespace

// Only reads the host's interfaces; nothing is sent.
TEST(LocalAddressesTest, HostAddressesExcludeLoopbackAndEachHasAnInterface)
{
    const auto addresses = LocalAddresses::Detect();
    for (const auto& address : addresses) {
        EXPECT_NE(address[0], 127) << address.ToString();
        EXPECT_FALSE(LocalAddresses::FindInterfaceName(address).empty()) << address.ToString();
    }
}

TEST(LocalAddressesTest, InsideNamespaceOnlyAddressesOfInterfacesThatAreUp)
{
    if (!NamespacePair::Available()) {
        GTEST_SKIP() << NamespacePair::SKIP_MESSAGE;
    }
    const NamespacePair pair;
    const std::string& ns = pair.ServerNamespace();

    // Loopback is up there and carries 127.0.0.1, which must not be listed.
    EXPECT_EQ(NetworkNamespaces::RunIn(ns, [] { return LocalAddresses::FindInterfaceName(IPv4Address(127, 0, 0, 1)); }),
              "lo");
    EXPECT_EQ(DetectIn(ns), Texts({pair.ServerAddress()}));
    EXPECT_EQ(NetworkNamespaces::RunIn(ns, [&] { return LocalAddresses::FindInterfaceName(pair.ServerAddress()); }),
              pair.ServerInterface());

    // An interface that is down keeps its address out of the list, but still
    // carries it; once up, its address is listed too.
    const IPv4Address extraAddress(192, 168, 77, 1);
    pair.RunInServer("ip link add tvextra type veth peer name tvextrapeer");
    pair.RunInServer("ip address add 192.168.77.1/24 dev tvextra");
    EXPECT_EQ(DetectIn(ns), Texts({pair.ServerAddress()}));
    EXPECT_EQ(NetworkNamespaces::RunIn(ns, [&] { return LocalAddresses::FindInterfaceName(extraAddress); }),
              "tvextra");
    pair.RunInServer("ip link set tvextra up");
    auto addresses = DetectIn(ns);
    std::sort(addresses.begin(), addresses.end());
    EXPECT_EQ(addresses, Texts({pair.ServerAddress(), extraAddress}));

    // The client's address lives in the other namespace only.
    EXPECT_EQ(NetworkNamespaces::RunIn(ns, [&] { return CodeOfFindInterfaceName(pair.ClientAddress()); }),
              AppException::CannotDetermineInterfaceName);
    EXPECT_EQ(NetworkNamespaces::RunIn(ns, [] { return CodeOfFindInterfaceName(IPv4Address()); }),
              AppException::CannotDetermineInterfaceName);
}
