#include "engine/TransactionManager.h"

#include "foundation/Precondition.h"

#include <vector>

namespace {

// Removed entries leave their nodes here for the next entries, so that the
// steady flow of exchanges allocates nothing; a purge frees what is beyond
// this many.
constexpr size_t MAX_SPARE_NODES = 1024;

template <typename Map>
void RemoveEntry(Map& map, typename Map::iterator entry, std::vector<typename Map::node_type>& spareNodes)
{
    typename Map::node_type node = map.extract(entry);
    if (spareNodes.size() < MAX_SPARE_NODES) {
        spareNodes.push_back(std::move(node));
    }
}

// Precondition: `key` is not in `map`.
template <typename Map, typename Key, typename Value>
typename Map::iterator AddEntry(Map& map, const Key& key, Value&& value,
                                std::vector<typename Map::node_type>& spareNodes)
{
    if (spareNodes.empty()) {
        return map.emplace(typename Map::key_type(key), std::forward<Value>(value)).first;
    }
    typename Map::node_type node = std::move(spareNodes.back());
    spareNodes.pop_back();
    node.key() = key;
    node.mapped() = std::forward<Value>(value);
    return map.insert(std::move(node)).position;
}

template <typename Counts, typename Key>
void Increment(Counts& counts, const Key& key, std::vector<typename Counts::node_type>& spareNodes)
{
    const auto entry = counts.find(key);
    if (entry != counts.end()) {
        ++entry->second;
    } else {
        AddEntry(counts, key, size_t{1}, spareNodes);
    }
}

template <typename Counts, typename Key>
void Decrement(Counts& counts, const Key& key, std::vector<typename Counts::node_type>& spareNodes)
{
    const auto entry = counts.find(key);
    // Invariant: every indexed transaction has been counted.
    PRECONDITION(entry != counts.end() && entry->second > 0);
    if (--entry->second == 0) {
        RemoveEntry(counts, entry, spareNodes);
    }
}

} // namespace

TransactionManager::TransactionManager(const Clock* clock)
    : clock(clock != nullptr ? clock : &systemClock), lastPurgeTime(this->clock->Now()), latestReading(lastPurgeTime)
{
    spareTransactionNodes.reserve(MAX_SPARE_NODES);
    spareAddressNodes.reserve(MAX_SPARE_NODES);
    spareClientNodes.reserve(MAX_SPARE_NODES);
}

bool TransactionManager::TransactionExists(uint32_t id) const
{
    return transactions.contains(id);
}

Transaction& TransactionManager::Transactions(uint32_t id)
{
    const auto entry = transactions.find(id);
    PRECONDITION(entry != transactions.end());
    return entry->second.transaction;
}

void TransactionManager::AddTransaction(uint32_t id, const IPv4Address& offeredAddress,
                                        const ClientIdentifier& clientIdentifier)
{
    PRECONDITION(!TransactionExists(id));
    PRECONDITION(!clientIdentifier.IsEmpty());
    const int64_t now = Now();
    Entry& entry = AddEntry(transactions, id, Entry{Transaction(id, offeredAddress, clientIdentifier, now), now},
                            spareTransactionNodes)
                       ->second;
    FileByAge(entry, now);
    IndexTransaction(entry.transaction);
}

void TransactionManager::RemoveTransaction(uint32_t id)
{
    const auto entry = transactions.find(id);
    PRECONDITION(entry != transactions.end());
    UnfileByAge(entry->second);
    UnindexTransaction(entry->second.transaction);
    RemoveEntry(transactions, entry, spareTransactionNodes);
}

bool TransactionManager::TransactionExistsForAddress(const IPv4Address& address) const
{
    return transactionsByAddress.contains(address.ToUint32());
}

bool TransactionManager::TransactionExistsForClient(const ClientIdentifier& identifier) const
{
    PRECONDITION(!identifier.IsEmpty());
    return transactionsByClient.contains(ClientKey(identifier));
}

int64_t TransactionManager::Now() const
{
    const int64_t now = clock->Now();
    if (now < latestReading) {
        clockWentBack = true;
    }
    latestReading = now;
    return now;
}

void TransactionManager::RemoveExpiredTransactions()
{
    const int64_t now = Now();
    if (now - lastPurgeTime <= PURGE_INTERVAL) {
        return;
    }
    // Collected first, removed afterwards, so the lists are not disturbed.
    std::vector<uint32_t> expired;
    if (clockWentBack) {
        clockWentBack = false;
        CollectExpiredByWalk(now, expired);
    } else {
        CollectExpiredByAge(now, expired);
    }
    for (const uint32_t id : expired) {
        RemoveTransaction(id);
    }
    lastPurgeTime = Now();
}

void TransactionManager::CollectExpiredByAge(int64_t now, std::vector<uint32_t>& expired)
{
    std::vector<Entry*> stampedLater;
    for (auto bucket = ageBuckets.begin(); bucket != ageBuckets.end() && now - bucket->first > TRANSACTION_TIMEOUT;
         ++bucket) {
        for (Entry* entry = bucket->second; entry != nullptr; entry = entry->next) {
            const Transaction& transaction = entry->transaction;
            if (now - transaction.GetLastMessageTime() > TRANSACTION_TIMEOUT) {
                expired.push_back(transaction.GetID());
            } else {
                stampedLater.push_back(entry);
            }
        }
    }
    for (Entry* entry : stampedLater) {
        UnfileByAge(*entry);
        FileByAge(*entry, entry->transaction.GetLastMessageTime());
    }
}

void TransactionManager::CollectExpiredByWalk(int64_t now, std::vector<uint32_t>& expired)
{
    for (auto& [id, entry] : transactions) {
        if (now - entry.transaction.GetLastMessageTime() > TRANSACTION_TIMEOUT) {
            expired.push_back(id);
        }
        UnfileByAge(entry);
        FileByAge(entry, entry.transaction.GetLastMessageTime());
    }
}

void TransactionManager::FileByAge(Entry& entry, int64_t second)
{
    Entry*& first = ageBuckets[second];
    entry.bucketSecond = second;
    entry.previous = nullptr;
    entry.next = first;
    if (first != nullptr) {
        first->previous = &entry;
    }
    first = &entry;
}

void TransactionManager::UnfileByAge(Entry& entry)
{
    if (entry.next != nullptr) {
        entry.next->previous = entry.previous;
    }
    if (entry.previous != nullptr) {
        entry.previous->next = entry.next;
        return;
    }
    const auto bucket = ageBuckets.find(entry.bucketSecond);
    // Invariant: an entry without a predecessor heads its bucket.
    PRECONDITION(bucket != ageBuckets.end() && bucket->second == &entry);
    if (entry.next != nullptr) {
        bucket->second = entry.next;
    } else {
        ageBuckets.erase(bucket);
    }
}

size_t TransactionManager::GetTransactionCount() const
{
    return transactions.size();
}

std::string_view TransactionManager::ClientKey(const ClientIdentifier& identifier)
{
    // Two identifiers are equal when length and bytes are; the bytes as a
    // string carry both.
    return std::string_view(reinterpret_cast<const char*>(identifier.GetBytes()), identifier.GetLength());
}

std::optional<uint32_t> TransactionManager::LowestNotOffered(uint32_t first, uint32_t last) const
{
    return offeredAddresses.LowestMissing(first, last);
}

void TransactionManager::IndexTransaction(const Transaction& transaction)
{
    const uint32_t address = transaction.GetOfferedAddress().ToUint32();
    Increment(transactionsByAddress, address, spareAddressNodes);
    if (transactionsByAddress.at(address) == 1) {
        offeredAddresses.Insert(address);
    }
    Increment(transactionsByClient, ClientKey(transaction.GetClientIdentifier()), spareClientNodes);
}

void TransactionManager::UnindexTransaction(const Transaction& transaction)
{
    const uint32_t address = transaction.GetOfferedAddress().ToUint32();
    Decrement(transactionsByAddress, address, spareAddressNodes);
    if (!transactionsByAddress.contains(address)) {
        offeredAddresses.Erase(address);
    }
    Decrement(transactionsByClient, ClientKey(transaction.GetClientIdentifier()), spareClientNodes);
}
