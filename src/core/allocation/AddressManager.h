#pragma once

#include "allocation/AddressReservation.h"
#include "allocation/FreeAddressIndex.h"
#include "allocation/Lease.h"
#include "allocation/LeaseTable.h"
#include "allocation/ReservationTable.h"
#include "foundation/Clock.h"
#include "foundation/HardwareAddress.h"
#include "foundation/IPv4Address.h"

#include <cstddef>
#include <mutex>
#include <string>
#include <vector>

class DHCPMessage;
class LeaseJournal;
class Settings;
class TransactionManager;

// Decides which address a client gets and remembers who has what: the lease
// table (written by the receive thread, read by the live view, so guarded by
// a lock) and the reservation table (changed only while the server is
// stopped). Addresses: 0.0.0.0 stands for none.
//
// No choice walks the pool or a table: the lowest free address comes from an
// index of the taken addresses (FreeAddressIndex), and every lookup goes
// through the tables' own indexes, so a DISCOVER costs about the same with
// ten leases as with sixty thousand.
class AddressManager {
public:
    static constexpr const char* DEFAULT_LEASES_FILE = "leases.dat";

    // Loads "leases.dat" from the working directory, swallowing every failure.
    // `clock` must outlive the manager; null means the system clock.
    AddressManager(Settings* settings, TransactionManager* transactionManager, const Clock* clock = nullptr);
    // Saves the leases when a preferred listening address is set.
    ~AddressManager();

    AddressManager(const AddressManager&) = delete;
    AddressManager& operator=(const AddressManager&) = delete;

    // ---- Choice of an address ----
    // Reservation, own lease inside the pool, requested address, lowest free
    // address. Raises NoAvailableAddresses.
    IPv4Address GetAddressForClient(const DHCPMessage& discover);
    // Raises NoAvailableAddresses.
    IPv4Address GetFreeAddress();
    bool IsAddressAvailable(const IPv4Address& address) const;

    // ---- Leases ----
    int FindLeaseIndex(const HardwareAddress& hardwareAddress) const;
    IPv4Address GetLeasedAddress(const HardwareAddress& hardwareAddress) const;
    bool IsAddressLeasedTo(const HardwareAddress& hardwareAddress, const IPv4Address& address) const;
    void AddLease(const HardwareAddress& hardwareAddress, const IPv4Address& address, int32_t duration);
    void RemoveLease(const IPv4Address& address);
    void ReleaseLease(const IPv4Address& address);
    size_t GetLeaseCount() const;
    // Precondition: index < GetLeaseCount(). A row can vanish between the two
    // calls while the server runs; a view takes GetLeases() instead.
    Lease GetLease(size_t index) const;
    // All rows in table order, copied under the lock: what a live view shows.
    std::vector<Lease> GetLeases() const;
    int64_t Now() const { return clock->Now(); }

    // ---- Lease file ----
    void SetLeasesFilePath(const std::string& path);
    std::string GetLeasesFilePath() const;
    // Raises FileNotExists (table unchanged); a damaged file raises
    // FileReadingError and leaves the table unchanged too.
    void LoadLeases();
    void LoadLeases(const std::string& path);
    // Silent on failure; the old file stays intact.
    void SaveLeases();
    void SaveLeases(const std::string& path);
    ByteString SerializeLeases() const;
    // Takes the bytes apart completely before it replaces any row.
    void UnserializeLeases(const ByteString& data);
    // Replaces every row, as a load does.
    void ReplaceLeases(std::vector<Lease> rows);
    // The same, false when the file could not be written.
    bool TrySaveLeases();
    bool TrySaveLeases(const std::string& path);

    // ---- Lease journal ----
    // From now on every change of the lease table is recorded in `journal`
    // (null: none), before the operation that makes it returns. Not owned.
    void AttachJournal(LeaseJournal* journal);

    // ---- Reservations ----
    size_t GetReservationCount() const;
    // Precondition: index < GetReservationCount().
    AddressReservation GetReservation(size_t index) const;
    IPv4Address GetReservedAddress(const HardwareAddress& hardwareAddress) const;
    // Raise ReservationOutsidePoolSubnet, HardwareAddressAlreadyReserved,
    // IPAddressAlreadyReserved; the table is untouched then.
    void AddReservation(const AddressReservation& reservation);
    void ReplaceReservation(size_t index, const AddressReservation& reservation);
    void RemoveReservation(size_t index);

private:
    // The parts of the public operations that run with leasesMutex held.
    bool IsAddressAvailableLocked(const IPv4Address& address, int64_t now) const;
    IPv4Address GetLeasedAddressLocked(const HardwareAddress& hardwareAddress) const;
    // Erases the first row with this address and tells the index.
    void EraseLeaseLocked(const IPv4Address& address);
    // The number of rows the lease table makes room for ahead of need.
    size_t ExpectedLeaseCount() const;
    // Tells the index of a change of the reservation of `address`.
    void ReservationChanged(const IPv4Address& address);
    // Raises the codes of the reservation checks; skips row `skippedIndex`.
    void CheckReservation(const AddressReservation& reservation, size_t skippedIndex) const;

    // Invariant: leases and freeAddresses are read or written only with
    // leasesMutex held; the receive thread writes them while the live view
    // reads the rows. freeAddresses learns of every change of either table.
    LeaseTable leases;
    FreeAddressIndex freeAddresses;
    mutable std::mutex leasesMutex;
    LeaseJournal* journal = nullptr; // guarded by leasesMutex
    ReservationTable addressReservations;
    Settings* settings;
    TransactionManager* transactionManager;
    Clock systemClock;
    const Clock* clock;
    std::string leasesFilePath = DEFAULT_LEASES_FILE;

    // The file the table last matched exactly, by a load or a save. Loading
    // that file again while neither it nor the table has changed would put
    // the same rows back, so it is skipped: the listening address is set
    // several times on the way to a start, and each time asks for a load.
    struct SyncedFile {
        std::string path;
        std::string fingerprint;
        uint64_t tableVersion = 0;
    };
    SyncedFile syncedFile; // guarded by leasesMutex
    static ByteString Encode(const std::vector<Lease>& rows);
    bool IsSyncedWithLocked(const std::string& path, const std::string& fingerprint) const;
};
