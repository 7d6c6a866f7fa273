#include "foundation/AppException.h"
#include "platform/LocalAddresses.h"
#include "support/NetworkNamespaces.h"
#include "support/RaisedCode.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace {

// Sorted texts, so that a failure shows readable addresses.
std::vector<std::string> Texts(const std::vector<IPv4Address>& addresses)
{
    std::vector<std::string> texts;
    for (const auto& address : addresses) {
        texts.push_back(address.ToString());
    }
    std::sort(texts.begin(), texts.end());
    return texts;
}

} // namespace

// Only reads the host's interfaces; nothing is sent.
TEST(LocalAddressesTest, HostAddressesExcludeLoopbackAndEachHasAnInterface)
{
    for (const auto& address : LocalAddresses::Detect()) {
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
    const auto inServer = [&](auto function) { return NetworkNamespaces::RunIn(pair.ServerNamespace(), function); };
    const auto detect = [] { return Texts(LocalAddresses::Detect()); };
    const auto interfaceOf = [](const IPv4Address& address) {
        return [address] { return LocalAddresses::FindInterfaceName(address); };
    };

    // Loopback is up there and carries 127.0.0.1, which must not be listed.
    EXPECT_EQ(inServer(interfaceOf(IPv4Address(127, 0, 0, 1))), "lo");
    EXPECT_EQ(inServer(detect), Texts({pair.ServerAddress()}));
    EXPECT_EQ(inServer(interfaceOf(pair.ServerAddress())), pair.ServerInterface());

    // An interface that is down keeps its address out of the list, but still
    // carries it; once up, its address is listed too.
    const IPv4Address extraAddress(192, 168, 77, 1);
    pair.RunInServer("ip link add tvextra type veth peer name tvextrapeer");
    pair.RunInServer("ip address add 192.168.77.1/24 dev tvextra");
    EXPECT_EQ(inServer(detect), Texts({pair.ServerAddress()}));
    EXPECT_EQ(inServer(interfaceOf(extraAddress)), "tvextra");
    pair.RunInServer("ip link set tvextra up");
    EXPECT_EQ(inServer(detect), Texts({pair.ServerAddress(), extraAddress}));

    // The client's address lives in the other namespace only.
    for (const IPv4Address& address : {pair.ClientAddress(), IPv4Address()}) {
        EXPECT_EQ(inServer([&] { return CodeRaisedBy(interfaceOf(address)); }),
                  AppException::CannotDetermineInterfaceName)
            << address.ToString();
    }
}
