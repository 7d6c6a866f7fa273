#include "foundation/AppException.h"
#include "platform/LocalAddresses.h"
#include "support/NetworkNamespaces.h"
#include "support/RaisedCode.h"

#include <gtest/gtest.h>

#include <algorithm>

TEST(LocalAddressesTest, OnlyAddressesOfInterfacesThatAreUpWithoutLoopback)
{
    if (!NamespacePair::Available()) {
        GTEST_SKIP() << NamespacePair::SKIP_MESSAGE;
    }
    const NamespacePair pair;
    // Sorted texts, so that a failure shows readable addresses.
    const auto detect = [&] {
        std::vector<std::string> texts;
        for (const auto& address : NetworkNamespaces::RunIn(pair.ServerNamespace(), LocalAddresses::Detect)) {
            texts.push_back(address.ToString());
        }
        std::sort(texts.begin(), texts.end());
        return texts;
    };
    const auto interfaceOf = [&](const IPv4Address& address) {
        return NetworkNamespaces::RunIn(pair.ServerNamespace(), [&] {
            const auto name = [&] { return LocalAddresses::FindInterfaceName(address); };
            const int32_t code = CodeRaisedBy(name);
            return code < 0 ? name() : "code " + std::to_string(code);
        });
    };
    // Loopback is up there and carries 127.0.0.1, which must not be listed.
    EXPECT_EQ(interfaceOf(IPv4Address(127, 0, 0, 1)), "lo");
    EXPECT_EQ(detect(), std::vector<std::string>{pair.ServerAddress().ToString()});
    EXPECT_EQ(interfaceOf(pair.ServerAddress()), pair.ServerInterface());

    // An interface that is down keeps its address out of the list, but still
    // carries it; once up, its address is listed too.
    pair.RunInServer("ip link add tvextra type veth peer name tvextrapeer");
    pair.RunInServer("ip address add 192.168.77.1/24 dev tvextra");
    EXPECT_EQ(detect(), std::vector<std::string>{pair.ServerAddress().ToString()});
    EXPECT_EQ(interfaceOf(IPv4Address(192, 168, 77, 1)), "tvextra");
    pair.RunInServer("ip link set tvextra up");
    EXPECT_EQ(detect(), (std::vector<std::string>{pair.ServerAddress().ToString(), "192.168.77.1"}));

    // The client's address lives in the other namespace only.
    const std::string notFound = "code " + std::to_string(AppException::CannotDetermineInterfaceName);
    EXPECT_EQ(interfaceOf(pair.ClientAddress()), notFound);
    EXPECT_EQ(interfaceOf(IPv4Address()), notFound);
}
