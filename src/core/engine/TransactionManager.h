#pragma once

#include "engine/Transaction.h"
#include "foundation/Clock.h"

#include <cstdint>
#include <map>
#include <memory>

// Open exchanges by xid. Used only on the receive thread while the server
// runs, so it has no lock. Transactions older than 3 s are purged at most
// about every 2 s, and only when a message arrives.
class TransactionManager {
public:
    static constexpr int64_t TRANSACTION_TIMEOUT = 3; // seconds
    static constexpr int64_t PURGE_INTERVAL = 1;      // seconds

    // `clock` must outlive the manager; null means the system clock.
    explicit TransactionManager(const Clock* clock = nullptr);

    bool TransactionExists(uint32_t id) const;
    // Precondition: TransactionExists(id).
    Transaction& Transactions(uint32_t id);
    // Precondition: !TransactionExists(id).
    void AddTransaction(uint32_t id, const IPv4Address& offeredAddress, const ClientIdentifier& clientIdentifier);
    // Precondition: TransactionExists(id).
    void RemoveTransaction(uint32_t id);
    bool TransactionExistsForAddress(const IPv4Address& address) const;
    // Precondition: identifier not empty.
    bool TransactionExistsForClient(const ClientIdentifier& identifier) const;
    void RemoveExpiredTransactions();

    int64_t Now() const { return clock->Now(); }
    size_t GetTransactionCount() const;

private:
    Clock systemClock;
    const Clock* clock;
    std::map<uint32_t, std::unique_ptr<Transaction>> transactions;
    int64_t lastPurgeTime;
};
