// "quorvy --headless" itself in the server namespace, a real client in the other.

#include "E2EFixture.h"
#include "foundation/AppException.h"

#include <sys/socket.h>
#include <sys/un.h>

#include <cstring>
#include <filesystem>

class HeadlessTest : public E2EFixture {
protected:
    void SetUp() override
    {
        E2EFixture::SetUp();
        if (IsSkipped() || HasFatalFailure()) {
            return;
        }
        server.reset(); // the program serves here, not the engine of the fixture
        // Reachable and writable for the user nobody, as whom the unit's limits run it.
        chmod(folder.Path().c_str(), 0711);
        std::filesystem::create_directory(data);
        ASSERT_EQ(chown(data.c_str(), 65534, 65534), 0);
        // The service manager's end of sd_notify.
        sockaddr_un address{AF_UNIX, {}};
        std::strcpy(address.sun_path, folder.FilePath("notify").c_str());
        ASSERT_EQ(bind(notifySocket, reinterpret_cast<sockaddr*>(&address), sizeof(address)), 0);
        chmod(address.sun_path, 0666);
    }
    ~HeadlessTest() override { close(notifySocket); }

    // The next state the program has notified, or "" when none waits.
    std::string Notified() const
    {
        char state[64];
        const ssize_t length = recv(notifySocket, state, sizeof(state), 0);
        return length > 0 ? std::string(state, length) : std::string();
    }

    // The fixture's configuration with LF line ends (to be left so) and `more` lines.
    std::string Settings(const std::string& preferred, const std::string& more = "") const
    {
        return "PoolStartAddress " + Host(100).ToString() + "\nPoolEndAddress " + Host(150).ToString() +
               "\nSubnetMask 255.255.255.0\nDefaultGateway " + Host(1).ToString() + "\nDNSAddress1 " +
               Host(53).ToString() + "\nDNSAddress2 " + Host(54).ToString() +
               "\nLeaseDuration 600\nAdditionalOption 15 116 97 114 110\nLoggingEnabled True\n" +
               (preferred.empty() ? "" : "PreferredListeningAddress " + preferred + "\n") + more;
    }

    // "quorvy --headless --data-dir <data>" in the server namespace, behind `limits`.
    pid_t StartProgram(std::vector<std::string> limits = {}) const
    {
        limits.insert(limits.begin(), {"ip", "netns", "exec", pair->ServerNamespace(), "env",
                                       "NOTIFY_SOCKET=" + folder.FilePath("notify")});
        limits.insert(limits.end(), {QUORVY_PROGRAM, "--headless", "--data-dir", data});
        return Spawn(limits, folder.FilePath("stderr"));
    }

    std::string InData(const std::string& name) const { return data + "/" + name; }

    const std::string data = folder.FilePath("data");
    const int notifySocket = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
};

class HeadlessServingTest : public HeadlessTest, public ::testing::WithParamInterface<bool> {};

// As root, and as the service unit limits it: not root, only
// CAP_NET_BIND_SERVICE (ambient, and the whole bounding set), no new
// privileges, in a namespace whose ip_unprivileged_port_start is the default.
TEST_P(HeadlessServingTest, ServesTheGoodLinesAndStopsLikeQuitWithoutWritingSettings)
{
    const std::string settings = Settings(Host(1).ToString(), "AddressReservation 02:00:00:00:00:01\n");
    ASSERT_TRUE(WriteText(InData("settings.cfg"), settings));
    const std::vector<std::string> unitLimits = {
        "setpriv", "--reuid=nobody", "--regid=nogroup", "--clear-groups", "--inh-caps=-all,+net_bind_service",
        "--ambient-caps=-all,+net_bind_service", "--bounding-set=-all,+net_bind_service", "--no-new-privs"};
    ASSERT_EQ(pair->RunInServer("cat /proc/sys/net/ipv4/ip_unprivileged_port_start"), "1024\n");
    const pid_t program = StartProgram(GetParam() ? unitLimits : std::vector<std::string>{});
    ASSERT_GT(program, 0);

    EXPECT_EQ(RunClient(Udhcpc()), Bound(100));
    EXPECT_EQ(ReadText(folder.FilePath("stderr")),
              "quorvy: warning 31: " + AppException::GetMessageForCode(31) + ": " + InData("settings.cfg") + "\n");
    EXPECT_EQ(Notified(), "READY=1");
    EXPECT_EQ(End(program), 0);
    EXPECT_EQ(Notified(), "STOPPING=1");
    EXPECT_GT(ReadText(InData("quorvy_leases_" + Host(1).ToString() + ".dat")).size(), 0u);
    const std::string log = ReadText(InData("log.txt"));
    EXPECT_TRUE(log.find("DHCP ACK sent") != std::string::npos && log.find("Server stop") != std::string::npos) << log;
    EXPECT_EQ(ReadText(InData("settings.cfg")), settings);
}

INSTANTIATE_TEST_SUITE_P(AsRootAndAsTheUnit, HeadlessServingTest, ::testing::Bool());

TEST_F(HeadlessTest, RefusesWhatIsNotConfiguredWithItsStatusServingAndWritingNothing)
{
    const struct {
        std::optional<std::string> settings;
        int status;
        std::string message;
    } cases[] = {
        {std::nullopt, 78, "quorvy: error 32: File not exists: " + InData("settings.cfg")},
        {Settings(Host(1).ToString(), "PoolEndAddress " + Host(99).ToString() + "\n"), 78, "quorvy: error 30: "},
        {Settings(""), 78, "quorvy: error 16: Server settings are not valid: no PreferredListeningAddress"},
        {Settings(Host(99).ToString()), 69,
         "quorvy: error 36: Cannot determine listening network interface name: no interface has " +
             Host(99).ToString()},
    };
    for (const auto& entry : cases) {
        SCOPED_TRACE(entry.message);
        std::filesystem::remove_all(data);
        std::filesystem::create_directory(data);
        if (entry.settings) {
            ASSERT_TRUE(WriteText(InData("settings.cfg"), *entry.settings));
        }
        const pid_t program = StartProgram();
        ASSERT_GT(program, 0);
        const std::optional<int> status = WaitForExit(program, std::chrono::seconds(10));
        EXPECT_EQ(status ? *status : End(program), entry.status);
        EXPECT_EQ(Notified(), "");
        const std::string errors = ReadText(folder.FilePath("stderr"));
        EXPECT_TRUE(errors.rfind(entry.message, 0) == 0 && errors.find('\n') == errors.size() - 1) << errors;
        EXPECT_EQ(std::distance(std::filesystem::directory_iterator(data), {}), entry.settings ? 1 : 0);
        EXPECT_EQ(ReadText(InData("settings.cfg")), entry.settings.value_or(""));
    }
}
