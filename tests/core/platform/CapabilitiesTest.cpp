#include "platform/Capabilities.h"
#include "support/NetworkNamespaces.h"
#include "support/Unprivileged.h"

#include <gtest/gtest.h>

// Where the namespace lets anybody bind low ports, nobody needs the
// capability for port 67.
TEST(CapabilitiesTest, APortThatIsNotPrivilegedNeedsNoCapability)
{
    if (!NamespacePair::Available()) {
        GTEST_SKIP() << NamespacePair::SKIP_MESSAGE;
    }
    const NamespacePair pair;
    const std::string lowerTheLimit = "sysctl -q -w net.ipv4.ip_unprivileged_port_start=60";
    ASSERT_EQ(NetworkNamespaces::RunCommand(NetworkNamespaces::ExecIn(pair.ServerNamespace(), lowerTheLimit)).exitStatus,
              0);
    const int result = NetworkNamespaces::RunIn(pair.ServerNamespace(), [] {
        return RunUnprivileged([] {
            return (Capabilities::CanBindPort(67) ? 1 : 0) | (Capabilities::CanBindPort(59) ? 2 : 0);
        });
    });
    EXPECT_EQ(result, 1); // 67 is open to all there; 59 still needs the capability
}
