#include "engine/TransactionManager.h"

#include "foundation/Precondition.h"

#include <vector>

namespace {

void Increment(std::unordered_map<uint32_t, size_t>& counts, uint32_t key)
{
    ++counts[key];
}

template <typename Counts>
void Increment(Counts& counts, std::string_view key)
{
    const auto entry = counts.find(key);
    if (entry != counts.end()) {
        ++entry->second;
    } else {
        counts.emplace(std::string(key), 1);
    }
}

template <typename Counts, typename Key>
void Decrement(Counts& counts, const Key& key)
{
    const auto entry = counts.find(key);
    // Invariant: every indexed transaction has been counted.
    PRECONDITION(entry != counts.end() && entry->second > 0);
    if (--entry->second == 0) {
        counts.erase(entry);
    }
}

} // namespace

TransactionManager::TransactionManager(const Clock* clock)
    : clock(clock != nullptr ? clock : &systemClock), lastPurgeTime(this->clock->Now())
{
}

bool TransactionManager::TransactionExists(uint32_t id) const
{
    return transactions.contains(id);
}

Transaction& TransactionManager::Transactions(uint32_t id)
{
    const auto entry = transactions.find(id);
    PRECONDITION(entry != transactions.end());
    return entry->second;
}

void TransactionManager::AddTransaction(uint32_t id, const IPv4Address& offeredAddress,
                                        const ClientIdentifier& clientIdentifier)
{
    PRECONDITION(!TransactionExists(id));
    PRECONDITION(!clientIdentifier.IsEmpty());
    const auto entry = transactions.try_emplace(id, id, offeredAddress, clientIdentifier, clock->Now()).first;
    IndexTransaction(entry->second);
}

void TransactionManager::RemoveTransaction(uint32_t id)
{
    const auto entry = transactions.find(id);
    PRECONDITION(entry != transactions.end());
    UnindexTransaction(entry->second);
    transactions.erase(entry);
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

void TransactionManager::RemoveExpiredTransactions()
{
    const int64_t now = clock->Now();
    if (now - lastPurgeTime <= PURGE_INTERVAL) {
        return;
    }
    // Collected first, removed afterwards, so the walk is not disturbed.
    std::vector<uint32_t> expired;
    for (const auto& [id, transaction] : transactions) {
        if (now - transaction.GetLastMessageTime() > TRANSACTION_TIMEOUT) {
            expired.push_back(id);
        }
    }
    for (const uint32_t id : expired) {
        RemoveTransaction(id);
    }
    lastPurgeTime = clock->Now();
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

void TransactionManager::IndexTransaction(const Transaction& transaction)
{
    Increment(transactionsByAddress, transaction.GetOfferedAddress().ToUint32());
    Increment(transactionsByClient, ClientKey(transaction.GetClientIdentifier()));
}

void TransactionManager::UnindexTransaction(const Transaction& transaction)
{
    Decrement(transactionsByAddress, transaction.GetOfferedAddress().ToUint32());
    Decrement(transactionsByClient, ClientKey(transaction.GetClientIdentifier()));
}
