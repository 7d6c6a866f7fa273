#include "platform/Capabilities.h"
#include "support/NetworkNamespaces.h"
#include "support/Unprivileged.h"

#include <linux/capability.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <gtest/gtest.h>

TEST(CapabilitiesTest, RootOrTheBindCapabilityAllowsPrivilegedPorts)
{
    if (geteuid() != 0) {
        GTEST_SKIP() << "needs root to drop and raise capabilities";
    }
    EXPECT_TRUE(Capabilities::CanBindPrivilegedPort());
    // As nobody with the permitted set kept (the effective set empties):
    // refused, until the bind capability alone is raised again.
    ASSERT_EQ(prctl(PR_SET_KEEPCAPS, 1), 0);
    const int result = RunUnprivileged([] {
        const bool allowedWithout = Capabilities::CanBindPrivilegedPort();
        __user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
        __user_cap_data_struct data[_LINUX_CAPABILITY_U32S_3]{};
        const bool read = syscall(SYS_capget, &header, data) == 0;
        data[0].effective |= 1U << CAP_NET_BIND_SERVICE;
        const bool raised = read && syscall(SYS_capset, &header, data) == 0;
        return (allowedWithout ? 1 : 0) | (raised ? 2 : 0) | (raised && Capabilities::CanBindPrivilegedPort() ? 4 : 0);
    });
    prctl(PR_SET_KEEPCAPS, 0);
    EXPECT_EQ(result, 2 | 4); // -1: could not drop root; bit 0: allowed without the capability
}

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
