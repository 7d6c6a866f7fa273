#pragma once

#include "allocation/AddressManager.h"
#include "config/Settings.h"
#include "harness/DhcpClients.h"
#include "harness/NamespacedServer.h"
#include "log/LogManager.h"
#include "support/NetworkNamespaces.h"
#include "support/TemporaryFolder.h"
#include "wire/RawOption.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <memory>
#include <optional>
#include <string>
#include <thread>

// A server namespace running the real engine on its veth end, a client
// namespace for real DHCP clients, and a temporary folder for the lease files
// (TEMP points there), the log and the clients' files. Everything is removed
// again at the end of the test, also when it fails.
class E2EFixture : public ::testing::Test {
protected:
    static constexpr int32_t LEASE_SECONDS = 600;

    void SetUp() override
    {
        if (!NamespacePair::Available()) {
            GTEST_SKIP() << NamespacePair::SKIP_MESSAGE;
        }
        const char* oldTemp = std::getenv("TEMP");
        if (oldTemp != nullptr) {
            previousTemp = oldTemp;
        }
        setenv("TEMP", folder.Path().c_str(), 1);
        pair = std::make_unique<NamespacePair>(ClientSideOfPair());
        clients = std::make_unique<DhcpClients>(*pair, folder.Path());
        server = std::make_unique<NamespacedServer>(*pair);
        Configure(server->GetSettings());
    }

    void TearDown() override
    {
        // The server's socket goes before its namespace.
        server.reset();
        clients.reset();
        pair.reset();
        if (previousTemp) {
            setenv("TEMP", previousTemp->c_str(), 1);
        } else {
            unsetenv("TEMP");
        }
    }

    virtual NamespacePair::ClientSide ClientSideOfPair() const { return NamespacePair::ClientSide::WithoutAddress; }

    // Pool .100-.150 of the pair's /24, the server as router, two DNS
    // servers, ten minutes, the domain name "tarn" as an additional option,
    // and a log of everything.
    void Configure(Settings& settings) const
    {
        settings.SetPoolStartAddress(Host(100));
        settings.SetPoolEndAddress(Host(150));
        settings.SetSubnetMask(NamespacePair::PREFIX_LENGTH);
        settings.SetDefaultGateway(pair->ServerAddress());
        settings.SetDNSAddress1(Host(53));
        settings.SetDNSAddress2(Host(54));
        settings.SetLeaseDuration(LEASE_SECONDS);
        settings.GetAdditionalOptions().push_back(RawOption("15", "116 97 114 110"));
        settings.SetLoggingEnabled(true);
        settings.SetLogIgnoredDHCPMessages(true);
        settings.SetLogFilePath(folder.FilePath("log.txt"));
    }

    IPv4Address Host(uint8_t host) const { return pair->AddressInSubnet(host); }

    // A new run of the server on the same folder: the old one is deleted
    // (stopping it first when it runs), the new one is configured afresh.
    void RestartServerObject()
    {
        server.reset();
        server = std::make_unique<NamespacedServer>(*pair);
        Configure(server->GetSettings());
    }

    std::vector<LogItem> LogItems() { return server->Server().GetLogManager()->GetLogItems(0); }

    // True once a log item of `type` whose details contain `text` exists.
    bool WaitForLogItem(EventType type, const std::string& text,
                        std::chrono::milliseconds timeout = std::chrono::seconds(5))
    {
        const auto deadline = std::chrono::steady_clock::now() + timeout;
        do {
            for (const LogItem& item : LogItems()) {
                if (item.GetEventType() == type && item.GetDetails().find(text) != std::string::npos) {
                    return true;
                }
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(50));
        } while (std::chrono::steady_clock::now() < deadline);
        return false;
    }

    bool InPool(const std::string& address) const
    {
        try {
            const IPv4Address value(address);
            return value >= Host(100) && value <= Host(150);
        } catch (...) {
            return false;
        }
    }

    TemporaryFolder folder;
    std::optional<std::string> previousTemp;
    std::unique_ptr<NamespacePair> pair;
    std::unique_ptr<DhcpClients> clients;
    std::unique_ptr<NamespacedServer> server;
};
