#pragma once

#include "allocation/AddressRangeSet.h"
#include "engine/Transaction.h"
#include "foundation/Clock.h"

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

// Open exchanges by xid. Used only on the receive thread while the server
// runs, so it has no lock. Transactions older than 3 s are purged at most
// about every 2 s, and only when a message arrives.
//
// A purge looks only at transactions that may have expired: each one sits in
// an age bucket, the second of its stamp, and a purge visits just the buckets
// more than 3 s old. Invariant: a transaction's bucket second is never later
// than its last message time. That holds as long as transactions are stamped
// with readings of this manager's clock (Now()) and that clock does not go
// back; when a reading shows it went back, the next purge walks every
// transaction instead and files each afresh.
class TransactionManager {
public:
    static constexpr int64_t TRANSACTION_TIMEOUT = 3; // seconds
    static constexpr int64_t PURGE_INTERVAL = 1;      // seconds

    // `clock` must outlive the manager; null means the system clock.
    explicit TransactionManager(const Clock* clock = nullptr);

    bool TransactionExists(uint32_t id) const;
    // Precondition: TransactionExists(id).
    Transaction& Transactions(uint32_t id);
    // Preconditions: !TransactionExists(id), clientIdentifier not empty.
    void AddTransaction(uint32_t id, const IPv4Address& offeredAddress, const ClientIdentifier& clientIdentifier);
    // Precondition: TransactionExists(id).
    void RemoveTransaction(uint32_t id);
    bool TransactionExistsForAddress(const IPv4Address& address) const;
    // The lowest address of [first, last] that no open transaction offers.
    std::optional<uint32_t> LowestNotOffered(uint32_t first, uint32_t last) const;
    // Precondition: identifier not empty.
    bool TransactionExistsForClient(const ClientIdentifier& identifier) const;
    void RemoveExpiredTransactions();

    int64_t Now() const;
    size_t GetTransactionCount() const;

private:
    // A transaction with its place in its age bucket, a list linked through
    // the entries themselves (map nodes never move), so that removing one
    // costs no search.
    struct Entry {
        Transaction transaction;
        int64_t bucketSecond;
        Entry* previous = nullptr;
        Entry* next = nullptr;
    };
    using Entries = std::unordered_map<uint32_t, Entry>;
    // Open transactions by offered address and by client, as counts: the
    // queries are answered without a walk, since GetFreeAddress asks once for
    // every address it tries. Invariant: each count equals the number of
    // entries of `transactions` with that key, and no count is 0.
    using AddressCounts = std::unordered_map<uint32_t, size_t>;
    // Keyed by the identifier's bytes; looked up by a view of them, so a
    // query builds no string.
    struct KeyHash {
        using is_transparent = void;
        size_t operator()(std::string_view key) const { return std::hash<std::string_view>()(key); }
    };
    using ClientCounts = std::unordered_map<std::string, size_t, KeyHash, std::equal_to<>>;

    static std::string_view ClientKey(const ClientIdentifier& identifier);
    void IndexTransaction(const Transaction& transaction);
    void UnindexTransaction(const Transaction& transaction);
    void FileByAge(Entry& entry, int64_t second);
    void UnfileByAge(Entry& entry);
    // Ids of the transactions expired at `now`, found through the age buckets;
    // entries stamped later than their bucket are filed again on the way.
    void CollectExpiredByAge(int64_t now, std::vector<uint32_t>& expired);
    // The same by a walk over all transactions, each filed afresh.
    void CollectExpiredByWalk(int64_t now, std::vector<uint32_t>& expired);

    Clock systemClock;
    const Clock* clock;
    // By id. Lookups by id outnumber everything else, and no operation
    // depends on the order of the entries.
    Entries transactions;
    // First entry of each age bucket, by second. Invariant: no bucket is
    // empty, and every entry of `transactions` is in exactly one bucket.
    std::map<int64_t, Entry*> ageBuckets;
    AddressCounts transactionsByAddress;
    // The keys of transactionsByAddress as runs: the choice of a free address
    // steps over a whole run of offered addresses at once, however many
    // offers a flood of DISCOVERs keeps open.
    AddressRangeSet offeredAddresses;
    ClientCounts transactionsByClient;
    int64_t lastPurgeTime;
    // The latest clock reading, and whether a later one was ever earlier.
    mutable int64_t latestReading;
    mutable bool clockWentBack = false;
    // Nodes of removed entries, used again for new ones.
    std::vector<Entries::node_type> spareTransactionNodes;
    std::vector<AddressCounts::node_type> spareAddressNodes;
    std::vector<ClientCounts::node_type> spareClientNodes;
};
