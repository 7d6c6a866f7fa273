#pragma once

#include "engine/DHCPServer.h"
#include "support/NetworkNamespaces.h"

#include <memory>
#include <string>

class AddressManager;
class Settings;

// The real engine (ServerPlatform::Linux) living in the server namespace of
// a pair: it is built and started on threads that have entered that
// namespace, so that it finds the namespace's addresses and interface and
// its socket belongs there. Its receive thread inherits the namespace.
class NamespacedServer {
public:
    // Builds the server; the lease files go to the folder named by TEMP.
    explicit NamespacedServer(const NamespacePair& pair);
    // Deletes the server, which stops it first when it runs.
    ~NamespacedServer();
    NamespacedServer(const NamespacedServer&) = delete;
    NamespacedServer& operator=(const NamespacedServer&) = delete;

    void Start();
    void Stop();
    DHCPServer& Server() { return *server; }
    Settings& GetSettings() { return *server->GetSettings(); }
    AddressManager& Addresses() { return *server->GetAddressManager(); }

private:
    std::string serverNamespace;
    std::unique_ptr<DHCPServer> server;
};
