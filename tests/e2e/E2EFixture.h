#pragma once

#include "allocation/AddressManager.h"
#include "config/Settings.h"
#include "engine/DHCPServer.h"
#include "log/LogManager.h"
#include "support/FileText.h"
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
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <vector>

// The engine on its real socket in a server namespace, and real DHCP clients
// (busybox udhcpc, ISC dhclient, dhcpcd) in a client namespace, joined by a
// veth pair; the lease files (TEMP), the log and the clients' files go to a
// temporary folder. Namespaces and folder are removed again at the end, also
// when a test fails; a client is ended before its run returns. Each client
// runs with the hook script below and with files of its own, so none touches
// the machine's files.
class E2EFixture : public ::testing::Test {
protected:
    // Puts a new address on the interface and records what the client got,
    // one line an event, the same for every client:
    // "bound <address> <mask> <router> <DNS servers> <lease time> <server> <domain>".
    static constexpr const char* HOOK_SCRIPT = R"(#!/bin/sh
if [ -n "$1" ]; then # udhcpc: the event as argument, values under its own names
  event=$1 address=$ip
  set -- "$subnet" "$router" "$dns" "$lease" "$serverid" "$domain"
else
  event=$(echo "$reason" | tr A-Z a-z) address=$new_ip_address
  set -- "$new_subnet_mask" "$new_routers" "$new_domain_name_servers" "$new_dhcp_lease_time" \
    "$new_dhcp_server_identifier" "$new_domain_name"
fi
case "$event" in
  bound|renew|rebind|reboot)
    # dhcpcd puts the address on by itself.
    [ "$if_configured" = true ] || ip addr replace "$address/$1" dev "$interface"
    echo "$event $address $*" >> "$(dirname "$0")/events" ;;
esac
exit 0
)";

    void SetUp() override
    {
        if (const char* oldTemp = std::getenv("TEMP")) {
            previousTemp = oldTemp;
        }
        if (!NamespacePair::Available()) {
            GTEST_SKIP() << NamespacePair::SKIP_MESSAGE;
        }
        setenv("TEMP", folder.Path().c_str(), 1);
        pair = std::make_unique<NamespacePair>();
        ASSERT_TRUE(WriteText(folder.FilePath("hook.sh"), HOOK_SCRIPT));
        chmod(folder.FilePath("hook.sh").c_str(), 0700);
        WriteText(folder.FilePath("empty"), "");
        // Built inside the server namespace: pool .100-.150 of the pair's
        // /24, the server as router, DNS .53 and .54, ten minutes, the domain
        // name "tarn" as additional option 15 in raw form.
        server = NetworkNamespaces::RunIn(pair->ServerNamespace(), [] { return std::make_unique<DHCPServer>(); });
        Settings& settings = *server->GetSettings();
        settings.SetPoolStartAddress(Host(100));
        settings.SetPoolEndAddress(Host(150));
        settings.SetSubnetMask(24);
        settings.SetDefaultGateway(pair->ServerAddress());
        settings.SetDNSAddress1(Host(53));
        settings.SetDNSAddress2(Host(54));
        settings.SetLeaseDuration(600);
        settings.GetAdditionalOptions().push_back(RawOption("15", "116 97 114 110"));
        settings.SetLoggingEnabled(true);
        settings.SetLogFilePath(folder.FilePath("log.txt"));
    }

    void TearDown() override
    {
        server.reset(); // its socket goes before its namespace
        pair.reset();
        previousTemp ? setenv("TEMP", previousTemp->c_str(), 1) : unsetenv("TEMP");
    }

    // Started inside the server namespace, where its socket must belong.
    void StartServer()
    {
        NetworkNamespaces::RunIn(pair->ServerNamespace(), [this] { server->Start(); });
    }

    IPv4Address Host(uint8_t host) const { return pair->AddressInSubnet(host); }

    // The hook's line for a lease of `address` from this server with the configuration above.
    std::string Bound(uint8_t address) const
    {
        const std::string server = pair->ServerAddress().ToString();
        return "bound " + Host(address).ToString() + " 255.255.255.0 " + server + " " + Host(53).ToString() + " " +
               Host(54).ToString() + " 600 " + server + " tarn";
    }

    // The client side's interface without addresses and with `mac`: the next client is a new one.
    void SetClientInterface(const std::string& mac) const
    {
        pair->RunInClient("ip addr flush dev " + pair->ClientInterface());
        pair->RunInClient("ip link set dev " + pair->ClientInterface() + " address " + mac);
    }

    // Runs `client` in the client namespace until its hook has reported a lease
    // (20 s at most), then ends it. The hook's line, or the client's output.
    std::string RunClient(std::vector<std::string> client) const
    {
        client.insert(client.begin(), {"ip", "netns", "exec", pair->ClientNamespace()});
        const std::string events = folder.FilePath("events");
        const size_t before = ReadText(events).size();
        const pid_t pid = Spawn(client, folder.FilePath("client.out"));
        if (pid < 0) {
            return "cannot start " + client[4];
        }
        std::optional<std::string> line;
        for (int i = 0; i < 400 && !line; ++i) {
            std::this_thread::sleep_for(std::chrono::milliseconds(50));
            const std::string lines = ReadText(events);
            if (const size_t end = lines.find('\n', before); end != std::string::npos) {
                line = lines.substr(before, end - before);
            }
        }
        End(pid);
        return line.value_or("no lease: " + ReadText(folder.FilePath("client.out")));
    }

    // Starts `command`, its output and errors to `outputPath`; -1 when it cannot.
    static pid_t Spawn(std::vector<std::string> command, const std::string& outputPath)
    {
        std::vector<char*> argv;
        for (std::string& argument : command) {
            argv.push_back(argument.data());
        }
        argv.push_back(nullptr);
        // Opened before the fork: the child has only async-signal-safe work left.
        const int output = open(outputPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
        const pid_t pid = output < 0 ? -1 : fork();
        if (pid == 0) {
            dup2(output, STDOUT_FILENO);
            dup2(output, STDERR_FILENO);
            execvp(argv[0], argv.data());
            _exit(127);
        }
        close(output);
        return pid;
    }

    // Child `pid`'s exit status (-1: a signal) if it ends within `timeout`.
    static std::optional<int> WaitForExit(pid_t pid, std::chrono::milliseconds timeout)
    {
        const auto deadline = std::chrono::steady_clock::now() + timeout;
        int status = 0;
        while (waitpid(pid, &status, WNOHANG) != pid) {
            if (std::chrono::steady_clock::now() >= deadline) {
                return std::nullopt;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
        }
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }

    // SIGTERM to child `pid`, SIGKILL after 3 s. Its exit status, or -1.
    static int End(pid_t pid)
    {
        kill(pid, SIGTERM);
        if (const auto status = WaitForExit(pid, std::chrono::seconds(3))) {
            return *status;
        }
        kill(pid, SIGKILL);
        waitpid(pid, nullptr, 0);
        return -1;
    }

    // busybox udhcpc, a DISCOVER a second; with `releaseAtEnd` it sends a RELEASE when it is ended.
    std::vector<std::string> Udhcpc(bool releaseAtEnd = false) const
    {
        std::vector<std::string> command = {"busybox", "udhcpc", "-f", "-T", "1", "-i", pair->ClientInterface(),
                                            "-s", folder.FilePath("hook.sh")};
        if (releaseAtEnd) {
            command.push_back("-R");
        }
        return command;
    }

    // ISC dhclient with its own configuration, lease and pid files.
    std::vector<std::string> Dhclient() const
    {
        return {"dhclient", "-4", "-d", "-1", "-cf", folder.FilePath("empty"), "-sf", folder.FilePath("hook.sh"),
                "-lf", folder.FilePath("dhclient.leases"), "-pf", folder.FilePath("dhclient.pid"),
                pair->ClientInterface()};
    }

    // dhcpcd for IPv4, once. "ip netns exec" gives it a mount namespace whose
    // mounts never reach the machine; unshare makes one more, private, so its
    // state and pid files and any resolv.conf it writes land in throw-away places.
    std::vector<std::string> Dhcpcd() const
    {
        return {"unshare", "--mount", "--propagation", "private", "sh", "-c",
                "mount -t tmpfs tmpfs /var/lib/dhcpcd && mount -t tmpfs tmpfs /run && mount --bind " +
                    folder.FilePath("empty") + " /etc/resolv.conf && exec dhcpcd -f /dev/null -c " +
                    folder.FilePath("hook.sh") + " -4 -1 -B -A -L -t 20 " + pair->ClientInterface()};
    }

    TemporaryFolder folder;
    std::optional<std::string> previousTemp;
    std::unique_ptr<NamespacePair> pair;
    std::unique_ptr<DHCPServer> server;
};
