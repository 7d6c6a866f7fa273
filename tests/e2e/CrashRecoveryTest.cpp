#include "E2EFixture.h"

#include "allocation/LeaseJournalRecovery.h"
#include "allocation/StorageWarnings.h"

#include <sched.h>

#include <random>
#include <set>
#include <sstream>

// The server killed with SIGKILL at random moments while real clients obtain
// leases, and started again on the same files each time: every lease whose
// ACK a client received must still be there, and no address may go to two
// clients.
class CrashRecoveryTest : public E2EFixture {
protected:
    void TearDown() override
    {
        KillServerProcess();
        E2EFixture::TearDown();
    }

    // A fresh program on the same files: a child process with its own copy
    // of the fixture's server, never started in this process, started inside
    // the server namespace.
    void StartServerProcess()
    {
        const std::string ns = "/var/run/netns/" + pair->ServerNamespace();
        const pid_t child = fork();
        if (child == 0) {
            const int descriptor = open(ns.c_str(), O_RDONLY | O_CLOEXEC);
            if (descriptor < 0 || setns(descriptor, CLONE_NEWNET) != 0) {
                _exit(2);
            }
            try {
                server->Start();
            } catch (...) {
                _exit(3);
            }
            for (;;) {
                pause();
            }
        }
        serverProcess = child;
    }

    void KillServerProcess()
    {
        const pid_t child = serverProcess.exchange(-1);
        if (child > 0) {
            kill(child, SIGKILL);
            int status = 0;
            waitpid(child, &status, 0);
            EXPECT_TRUE(WIFSIGNALED(status)) << "the server ended by itself, status " << status;
        }
    }

    std::atomic<pid_t> serverProcess{-1};
};

TEST_F(CrashRecoveryTest, LeasesWhoseAckWentOutSurviveKillsAndNoAddressGoesTwice)
{
    std::mt19937 random(std::random_device{}());
    std::vector<std::pair<HardwareAddress, std::string>> granted;
    StartServerProcess();
    for (int client = 0; client < 12; ++client) {
        char mac[18];
        std::snprintf(mac, sizeof mac, "02:00:00:00:1c:%02x", client);
        SetClientInterface(mac);
        // Every fourth exchange has the server killed somewhere in it, and a
        // new one started at once; the client keeps trying until it is bound.
        std::thread killer;
        if (client % 4 == 3) {
            const auto delay = std::chrono::milliseconds(random() % 1500);
            killer = std::thread([this, delay] {
                std::this_thread::sleep_for(delay);
                KillServerProcess();
                StartServerProcess();
            });
        }
        // A new server knows nothing of the offer that its predecessor made
        // and stays silent to the REQUEST for it; the client starts over a
        // second later (-A 1) rather than after its default 20 s.
        std::vector<std::string> udhcpc = Udhcpc();
        udhcpc.insert(udhcpc.end(), {"-A", "1"});
        const std::string line = RunClient(udhcpc);
        if (killer.joinable()) {
            killer.join();
        }
        ASSERT_EQ(line.rfind("bound ", 0), 0u) << line;
        std::istringstream words(line.substr(6));
        std::string address;
        words >> address;
        granted.emplace_back(HardwareAddress(std::string(mac)), address);
    }
    KillServerProcess();

    std::set<std::string> addresses;
    for (const auto& lease : granted) {
        EXPECT_TRUE(addresses.insert(lease.second).second) << lease.second << " went to two clients";
    }
    // What the next start finds: every lease granted, held by its client.
    StorageWarnings warnings;
    const auto paths = LeaseJournalRecovery::Paths::For(folder.FilePath(
        "quorvy_leases_" + pair->ServerAddress().ToString() + ".dat"));
    const LeaseJournalRecovery::Result found = LeaseJournalRecovery::Run(paths, warnings);
    EXPECT_TRUE(found.journalFound);
    EXPECT_TRUE(warnings.Take().empty());
    for (const auto& [client, address] : granted) {
        const bool held = std::any_of(found.rows.begin(), found.rows.end(), [&](const Lease& row) {
            return row.GetHardwareAddress() == client && row.GetIPAddress().ToString() == address;
        });
        EXPECT_TRUE(held) << client.ToString() << " lost " << address;
    }
}
