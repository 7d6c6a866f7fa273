#pragma once

#include "allocation/AddressManager.h"
#include "config/Settings.h"
#include "engine/DHCPServer.h"
#include "foundation/AppException.h"
#include "log/LogManager.h"
#include "support/NetworkNamespaces.h"
#include "support/TemporaryFolder.h"
#include "wire/RawOption.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <fstream>
#include <map>
#include <memory>
#include <optional>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

// A program started in the background by a test, known by its PID only and
// ended by that PID, never by name. The destructor ends it if it still runs.
class ChildProcess {
public:
    // Runs `arguments[0]` from PATH; standard output and error go to `outputPath`.
    ChildProcess(const std::vector<std::string>& arguments, const std::string& outputPath)
    {
        std::vector<char*> argv;
        for (const std::string& argument : arguments) {
            argv.push_back(const_cast<char*>(argument.c_str()));
        }
        argv.push_back(nullptr);
        // Opened before the fork, so that the child only has async-signal-safe work left.
        const int output = open(outputPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
        pid = output < 0 ? -1 : fork();
        if (pid == 0) {
            dup2(output, STDOUT_FILENO);
            dup2(output, STDERR_FILENO);
            // The test may block signals in its threads; the program must not inherit that.
            sigset_t none;
            sigemptyset(&none);
            sigprocmask(SIG_SETMASK, &none, nullptr);
            execvp(argv[0], argv.data());
            _exit(127);
        }
        close(output);
        if (pid < 0) {
            throw std::runtime_error("cannot start " + arguments.at(0));
        }
    }
    ~ChildProcess() { Terminate(); }
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;

    void Signal(int signalNumber) const
    {
        if (!exited) {
            kill(pid, signalNumber);
        }
    }
    // Waits up to `limit` for the end: the exit status, or -1 when it ended
    // abnormally or not in time (it is killed then). Always reaps the process.
    int Wait(std::chrono::milliseconds limit = std::chrono::seconds(60))
    {
        const auto deadline = std::chrono::steady_clock::now() + limit;
        while (!exited && std::chrono::steady_clock::now() < deadline) {
            exited = waitpid(pid, &status, WNOHANG) != 0;
            std::this_thread::sleep_for(std::chrono::milliseconds(exited ? 0 : 20));
        }
        if (!exited) {
            kill(pid, SIGKILL);
            waitpid(pid, &status, 0);
            exited = true;
            status = -1;
        }
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }
    // SIGTERM, then SIGKILL after 3 s of grace.
    void Terminate()
    {
        Signal(SIGTERM);
        Wait(std::chrono::seconds(3));
    }

private:
    pid_t pid = -1;
    bool exited = false;
    int status = -1; // of waitpid
};

// One call of a client's hook script: the event ($1 for udhcpc, $reason for
// dhclient and dhcpcd) and the environment it was given.
struct ClientEvent {
    std::string name;
    std::map<std::string, std::string> variables;

    std::string Get(const std::string& variable) const
    {
        const auto found = variables.find(variable);
        return found == variables.end() ? std::string() : found->second;
    }
};

// A server namespace running the real engine on its veth end, a client
// namespace for real DHCP clients (busybox udhcpc, ISC dhclient, dhcpcd), and
// a temporary folder for the lease files (TEMP points there), the log and the
// clients' files. Everything is removed again at the end, also when a test
// fails. Each client runs with a hook script of ours that records what it got
// and puts the address on the client's interface; none may touch the
// machine's files: dhclient gets its own lease and pid files, and dhcpcd runs
// in a private mount namespace with empty state folders and a resolv.conf of
// its own.
class E2EFixture : public ::testing::Test {
protected:
    static constexpr const char* HOOK_SCRIPT = R"(#!/bin/sh
event="${1:-$reason}"
{ echo "EVENT $event"; env; echo "END"; } >> "$(dirname "$0")/events"
case "$event" in
  bound|renew) [ -n "$ip" ] && ip addr replace "$ip/${mask:-24}" dev "$interface" ;;
  BOUND|RENEW|REBOOT|REBIND)
    # dhcpcd configures the address itself (if_configured=true).
    if [ -n "$new_ip_address" ] && [ "$if_configured" != "true" ]; then
      ip addr replace "$new_ip_address/$new_subnet_mask" dev "$interface"
    fi ;;
esac
exit 0
)";

    void SetUp() override
    {
        if (!NamespacePair::Available()) {
            GTEST_SKIP() << NamespacePair::SKIP_MESSAGE;
        }
        if (const char* oldTemp = std::getenv("TEMP")) {
            previousTemp = oldTemp;
        }
        setenv("TEMP", folder.Path().c_str(), 1);
        pair = std::make_unique<NamespacePair>(ClientSideOfPair());
        std::ofstream(folder.FilePath("hook.sh")) << HOOK_SCRIPT;
        chmod(folder.FilePath("hook.sh").c_str(), 0700);
        std::ofstream(folder.FilePath("dhclient.conf")) << "";
        std::ofstream(folder.FilePath("resolv.conf")) << "# the client's own, never the machine's\n";
        NewServer();
    }

    void TearDown() override
    {
        // The server's socket goes before its namespace.
        server.reset();
        pair.reset();
        previousTemp ? setenv("TEMP", previousTemp->c_str(), 1) : unsetenv("TEMP");
    }

    virtual NamespacePair::ClientSide ClientSideOfPair() const { return NamespacePair::ClientSide::WithoutAddress; }

    // A new run of the server on the folder, built inside the server
    // namespace (the old one is stopped and deleted first): pool .100-.150 of
    // the pair's /24, the server as router, DNS .53 and .54, ten minutes, the
    // domain name "tarn" as additional option 15 in raw form, a log of everything.
    void NewServer()
    {
        server.reset();
        server = NetworkNamespaces::RunIn(pair->ServerNamespace(), [] { return std::make_unique<DHCPServer>(); });
        Settings& settings = *server->GetSettings();
        settings.SetPoolStartAddress(Host(100));
        settings.SetPoolEndAddress(Host(150));
        settings.SetSubnetMask(NamespacePair::PREFIX_LENGTH);
        settings.SetDefaultGateway(pair->ServerAddress());
        settings.SetDNSAddress1(Host(53));
        settings.SetDNSAddress2(Host(54));
        settings.SetLeaseDuration(600);
        settings.GetAdditionalOptions().push_back(RawOption("15", "116 97 114 110"));
        settings.SetLoggingEnabled(true);
        settings.SetLogIgnoredDHCPMessages(true);
        settings.SetLogFilePath(folder.FilePath("log.txt"));
    }

    // Started inside the server namespace, where its socket must belong.
    void StartServer()
    {
        NetworkNamespaces::RunIn(pair->ServerNamespace(), [this] { server->Start(); });
    }

    IPv4Address Host(uint8_t host) const { return pair->AddressInSubnet(host); }

    bool InPool(const std::string& address) const
    {
        try {
            return IPv4Address(address) >= Host(100) && IPv4Address(address) <= Host(150);
        } catch (const AppException&) {
            return false;
        }
    }

    IPv4Address LeasedTo(const std::string& mac) const
    {
        return server->GetAddressManager()->GetLeasedAddress(HardwareAddress(mac));
    }

    std::vector<LogItem> LogItems() const { return server->GetLogManager()->GetLogItems(0); }

    // True once a log item of `type` whose details contain `text` exists (5 s at most).
    bool WaitForLogItem(EventType type, const std::string& text) const
    {
        for (int i = 0; i < 100; ++i) {
            for (const LogItem& item : LogItems()) {
                if (item.GetEventType() == type && item.GetDetails().find(text) != std::string::npos) {
                    return true;
                }
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(50));
        }
        return false;
    }

    // Every hook call so far, in order.
    std::vector<ClientEvent> Events() const
    {
        std::vector<ClientEvent> events;
        std::ifstream file(folder.FilePath("events"));
        std::string line;
        std::optional<ClientEvent> current; // complete at its END line
        while (std::getline(file, line)) {
            if (line.rfind("EVENT ", 0) == 0) {
                current = ClientEvent{line.substr(6), {}};
            } else if (line == "END" && current) {
                events.push_back(std::move(*current));
                current.reset();
            } else if (const size_t equals = line.find('='); current && equals != std::string::npos) {
                current->variables[line.substr(0, equals)] = line.substr(equals + 1);
            }
        }
        return events;
    }

    // The first event named `name` after the first `skip` ones, waiting up to `timeout`.
    std::optional<ClientEvent> WaitForEvent(const std::string& name, size_t skip = 0,
                                            std::chrono::milliseconds timeout = std::chrono::seconds(20)) const
    {
        const auto deadline = std::chrono::steady_clock::now() + timeout;
        do {
            const std::vector<ClientEvent> events = Events();
            for (size_t i = skip; i < events.size(); ++i) {
                if (events[i].name == name) {
                    return events[i];
                }
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(50));
        } while (std::chrono::steady_clock::now() < deadline);
        return std::nullopt;
    }

    // Flushes the client interface's addresses and gives it `mac`: the next run is another client.
    void ResetInterface(const std::string& mac) const
    {
        pair->RunInClient("ip addr flush dev " + pair->ClientInterface());
        pair->RunInClient("ip link set dev " + pair->ClientInterface() + " address " + mac);
    }

    // busybox udhcpc: five DISCOVERs a second apart; SIGUSR1 renews. `options`
    // "-q" "-n": quit with a lease (exit status 0) or after the DISCOVERs;
    // "-R": send a RELEASE when ended.
    std::vector<std::string> Udhcpc(const std::vector<std::string>& options = {}) const
    {
        std::vector<std::string> command = {"busybox", "udhcpc", "-f", "-t", "5", "-T", "1", "-A", "1", "-i",
                                            pair->ClientInterface(), "-s", folder.FilePath("hook.sh")};
        command.insert(command.end(), options.begin(), options.end());
        return command;
    }

    std::vector<std::string> Dhclient() const
    {
        return {"dhclient", "-4", "-d", "-1", "-v", "-cf", folder.FilePath("dhclient.conf"), "-sf",
                folder.FilePath("hook.sh"), "-lf", folder.FilePath("dhclient.leases"), "-pf",
                folder.FilePath("dhclient.pid"), pair->ClientInterface()};
    }

    // dhcpcd for IPv4, once (-1): it quits when it has a lease. "ip netns
    // exec" gives it a mount namespace whose mounts never reach the machine;
    // unshare makes one more, private, so that its duid, secret, lease, pid
    // and socket files and any resolv.conf it writes land in throw-away places.
    std::vector<std::string> DhcpcdOnce() const
    {
        return {"unshare", "--mount", "--propagation", "private", "sh", "-c",
                "mount -t tmpfs tmpfs /var/lib/dhcpcd && mount -t tmpfs tmpfs /run && mount --bind " +
                    folder.FilePath("resolv.conf") + " /etc/resolv.conf && exec dhcpcd -f /dev/null -c " +
                    folder.FilePath("hook.sh") + " -4 -1 -B -A -L -t 20 " + pair->ClientInterface()};
    }

    std::unique_ptr<ChildProcess> StartInClient(std::vector<std::string> command, const std::string& output) const
    {
        command.insert(command.begin(), {"ip", "netns", "exec", pair->ClientNamespace()});
        return std::make_unique<ChildProcess>(command, folder.FilePath(output));
    }

    std::string ReadFile(const std::string& name) const
    {
        std::stringstream contents;
        contents << std::ifstream(folder.FilePath(name)).rdbuf();
        return contents.str();
    }

    TemporaryFolder folder;
    std::optional<std::string> previousTemp;
    std::unique_ptr<NamespacePair> pair;
    std::unique_ptr<DHCPServer> server;
};
