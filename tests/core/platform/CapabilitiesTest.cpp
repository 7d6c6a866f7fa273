#include "platform/Capabilities.h"

#include <linux/capability.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

namespace {

constexpr uid_t NOBODY = 65534;

// The exit status of the child below: 0 when both checks hold.
enum ChildResult { Passed, DropFailed, AllowedWithoutCapability, RaiseFailed, RefusedWithCapability };

// Becomes nobody while keeping the permitted set, which empties the effective
// set; then raises only the bind capability.
[[noreturn]] void CheckAsUnprivilegedChild()
{
    if (prctl(PR_SET_KEEPCAPS, 1) != 0 || setresgid(NOBODY, NOBODY, NOBODY) != 0 ||
        setresuid(NOBODY, NOBODY, NOBODY) != 0) {
        _exit(DropFailed);
    }
    if (Capabilities::CanBindPrivilegedPort()) {
        _exit(AllowedWithoutCapability);
    }
    __user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
    __user_cap_data_struct data[_LINUX_CAPABILITY_U32S_3]{};
    if (syscall(SYS_capget, &header, data) != 0) {
        _exit(RaiseFailed);
    }
    data[0].effective |= 1U << CAP_NET_BIND_SERVICE;
    if (syscall(SYS_capset, &header, data) != 0) {
        _exit(RaiseFailed);
    }
    _exit(Capabilities::CanBindPrivilegedPort() ? Passed : RefusedWithCapability);
}

} // namespace

TEST(CapabilitiesTest, RootOrTheBindCapabilityAllowsPrivilegedPorts)
{
    if (geteuid() != 0) {
        GTEST_SKIP() << "needs root to drop and raise capabilities";
    }
    EXPECT_TRUE(Capabilities::CanBindPrivilegedPort());
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        CheckAsUnprivilegedChild();
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    ASSERT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), Passed);
}
