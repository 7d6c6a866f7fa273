#pragma once

#include "harness/ChildProcess.h"
#include "support/NetworkNamespaces.h"

#include <chrono>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

// One call of a client's hook script: the event ($1 for udhcpc, $reason for
// dhclient and dhcpcd) and the environment it was given.
struct ClientEvent {
    std::string name;
    std::map<std::string, std::string> variables;

    // Empty when the variable was not set.
    std::string Get(const std::string& variable) const;
};

// Real DHCP clients in the client namespace of a pair, each run with a hook
// script of ours that records what the client got and, for udhcpc and
// dhclient, puts the address on the client's interface (inside the
// namespace). None of them may touch the machine's files: the hook writes
// only into `folder`, dhclient gets its own lease and pid files, and dhcpcd
// runs in a private mount namespace with empty state folders and a resolv.conf
// of its own.
class DhcpClients {
public:
    DhcpClients(const NamespacePair& pair, const std::string& folder);

    // Every hook call so far, in order.
    std::vector<ClientEvent> Events() const;
    // The first event named `name` among the calls after the first `skip`
    // ones, waiting up to `timeout`.
    std::optional<ClientEvent> WaitForEvent(const std::string& name, size_t skip = 0,
                                            std::chrono::milliseconds timeout = std::chrono::seconds(20)) const;

    // Removes the addresses of the client interface and gives it `mac`, so
    // that the next client run is a different client.
    void ResetInterface(const std::string& mac) const;

    // busybox udhcpc until it has a lease, then quits (-q). The exit status
    // is 0 when a lease was obtained.
    NetworkNamespaces::CommandResult RunUdhcpcOnce() const;
    // busybox udhcpc that stays (SIGUSR1 renews, SIGTERM ends it);
    // `releaseOnExit` (-R) makes it send a RELEASE when it ends.
    std::unique_ptr<ChildProcess> StartUdhcpc(bool releaseOnExit = false) const;
    // ISC dhclient in the foreground; it stays until ended.
    std::unique_ptr<ChildProcess> StartDhclient() const;
    // dhcpcd for IPv4 only, once (-1): it quits when it has a lease.
    NetworkNamespaces::CommandResult RunDhcpcdOnce() const;

    std::string FilePath(const std::string& name) const { return folder + "/" + name; }

private:
    std::vector<std::string> InClientNamespace(const std::vector<std::string>& command) const;

    const NamespacePair& pair;
    std::string folder;
};
