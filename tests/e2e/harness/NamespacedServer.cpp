#include "harness/NamespacedServer.h"

NamespacedServer::NamespacedServer(const NamespacePair& pair) : serverNamespace(pair.ServerNamespace())
{
    server = NetworkNamespaces::RunIn(serverNamespace, [] { return std::make_unique<DHCPServer>(); });
}

NamespacedServer::~NamespacedServer()
{
    server.reset();
}

void NamespacedServer::Start()
{
    NetworkNamespaces::RunIn(serverNamespace, [this] { server->Start(); });
}

void NamespacedServer::Stop()
{
    // Stopping needs no namespace: it wakes and joins the receive thread.
    server->Stop();
}
