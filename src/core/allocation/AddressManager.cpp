#include "allocation/AddressManager.h"

#include "allocation/LeaseJournal.h"
#include "allocation/LeaseJournalRecovery.h"
#include "config/Settings.h"
#include "engine/TransactionManager.h"
#include "foundation/AppException.h"
#include "foundation/GroupReader.h"
#include "foundation/Precondition.h"
#include "foundation/Tools.h"
#include "wire/DHCPMessage.h"
#include "wire/MessageOptions.h"

#include <algorithm>
#include <filesystem>
#include <optional>
#include <system_error>

namespace {

// Hands one change of the table to the journal, or the whole table when the
// journal has lost records and wants it; called with the table's lock held.
template <typename Record>
void Journal(LeaseJournal* journal, const LeaseTable& leases, Record record)
{
    if (journal == nullptr) {
        return;
    }
    if (journal->WantsSnapshot()) {
        journal->RecordSnapshot(leases.Rows());
    } else {
        record(*journal);
    }
}

bool IsRegularFile(const std::string& path)
{
    std::error_code error;
    return std::filesystem::is_regular_file(path, error);
}

} // namespace

AddressManager::AddressManager(Settings* settings, TransactionManager* transactionManager, const Clock* clock)
    : settings(settings), transactionManager(transactionManager), clock(clock != nullptr ? clock : &systemClock)
{
    PRECONDITION(settings != nullptr);
    PRECONDITION(transactionManager != nullptr);
    try {
        LoadLeases();
    } catch (const AppException&) {
        // Whatever went wrong, the server starts with an empty table.
    }
}

AddressManager::~AddressManager()
{
    // A run that never learned a listening address writes nothing, and so
    // does one whose table is still what its file held, or that never held a
    // row: a server that never started leaves no file behind. Nor does one
    // that leaves a journal for the next start to replay, which would then no
    // longer continue the file.
    if (settings->GetPreferredListeningAddress().IsZero() || LeaseJournalRecovery::IsPending(leasesFilePath)) {
        return;
    }
    {
        const std::lock_guard lock(leasesMutex);
        const uint64_t fileVersion = syncedFile.path == leasesFilePath ? syncedFile.tableVersion : 0;
        if (leases.GetVersion() == fileVersion) {
            return;
        }
    }
    try {
        SaveLeases();
    } catch (...) {
        // A destructor must not throw; a failed save is silent anyway.
    }
}

// ---- Choice of an address ---------------------------------------------------

IPv4Address AddressManager::GetAddressForClient(const DHCPMessage& discover)
{
    const HardwareAddress& client = discover.GetHardwareAddress();

    // 1. A reservation wins outright; the client's own row goes.
    const IPv4Address reserved = GetReservedAddress(client);
    if (!reserved.IsZero()) {
        const std::lock_guard lock(leasesMutex);
        const int row = leases.FindFirstByHardwareAddress(client);
        if (row != LeaseTable::NOT_FOUND) {
            EraseLeaseLocked(leases.At(static_cast<size_t>(row)).GetIPAddress());
        }
        return reserved;
    }

    // 2. The client's own row, expired or not, while it lies in the pool.
    //    A row on 0.0.0.0 (only a file can hold one) reads as no row.
    {
        const std::lock_guard lock(leasesMutex);
        const IPv4Address leased = GetLeasedAddressLocked(client);
        if (!leased.IsZero()) {
            if (leased >= settings->GetPoolStartAddress() && leased <= settings->GetPoolEndAddress()) {
                return leased;
            }
            EraseLeaseLocked(leased);
        }
    }

    // 3. The address the client asked for, when anybody may have it. No
    //    option 50 just means the lowest free address follows; asking for
    //    the option first spares the getter's OptionNotPresent, an exception
    //    on most DISCOVERs that would cost several times the rest of the
    //    choice.
    const MessageOptions& options = discover.Options();
    if (options.IsOptionPresent(MessageOptions::RequestedIPAddress)) {
        const IPv4Address requested = options.GetRequestedIPAddress();
        if (IsAddressAvailable(requested)) {
            return requested;
        }
    }

    // 4. The lowest free address of the pool.
    return GetFreeAddress();
}

IPv4Address AddressManager::GetFreeAddress()
{
    const IPv4Address poolStart = settings->GetPoolStartAddress();
    const IPv4Address poolEnd = settings->GetPoolEndAddress();
    if (poolStart > poolEnd) {
        throw AppException(AppException::NoAvailableAddresses);
    }
    // Only the pool start's own subnet can hold an available address, and
    // that subnet is one run of addresses: [network, broadcast].
    const uint32_t first = poolStart.ToUint32();
    const uint32_t last =
        std::min(poolEnd.ToUint32(), poolStart.GetBroadcastAddress(settings->GetSubnetMask()).ToUint32());

    const std::lock_guard lock(leasesMutex);
    const int64_t now = clock->Now();
    freeAddresses.Update(leases, addressReservations, now);
    // Always from the bottom: the lowest available address wins. The index
    // steps over reserved and leased addresses, the transactions over offered
    // ones, each a whole run at a time, until both agree on a candidate; that
    // one is confirmed by the exact test. The walk stops at `last` itself, so
    // it cannot wrap.
    std::optional<uint32_t> candidate = first;
    while (candidate) {
        const std::optional<uint32_t> untaken = freeAddresses.LowestUntaken(*candidate, last);
        candidate = untaken ? transactionManager->LowestNotOffered(*untaken, last) : std::nullopt;
        if (!candidate || *candidate != *untaken) {
            continue;
        }
        const IPv4Address address = IPv4Address::FromUint32(*candidate);
        if (IsAddressAvailableLocked(address, now)) {
            return address;
        }
        candidate = *candidate == last ? std::nullopt : std::optional<uint32_t>(*candidate + 1);
    }
    throw AppException(AppException::NoAvailableAddresses);
}

bool AddressManager::IsAddressAvailable(const IPv4Address& address) const
{
    const std::lock_guard lock(leasesMutex);
    return IsAddressAvailableLocked(address, clock->Now());
}

bool AddressManager::IsAddressAvailableLocked(const IPv4Address& address, int64_t now) const
{
    // Every test must pass; their order does not change the answer.
    const IPv4Address poolStart = settings->GetPoolStartAddress();
    const uint8_t mask = settings->GetSubnetMask();
    return address >= poolStart && address <= settings->GetPoolEndAddress() &&
           address.GetBroadcastAddress(mask) == poolStart.GetBroadcastAddress(mask) &&
           addressReservations.FindByIPAddress(address) == ReservationTable::NONE &&
           !leases.HasActiveLease(address, now) && !transactionManager->TransactionExistsForAddress(address);
}

// ---- Leases -----------------------------------------------------------------

int AddressManager::FindLeaseIndex(const HardwareAddress& hardwareAddress) const
{
    const std::lock_guard lock(leasesMutex);
    return leases.FindFirstByHardwareAddress(hardwareAddress);
}

IPv4Address AddressManager::GetLeasedAddress(const HardwareAddress& hardwareAddress) const
{
    const std::lock_guard lock(leasesMutex);
    return GetLeasedAddressLocked(hardwareAddress);
}

IPv4Address AddressManager::GetLeasedAddressLocked(const HardwareAddress& hardwareAddress) const
{
    const int row = leases.FindFirstByHardwareAddress(hardwareAddress);
    return row == LeaseTable::NOT_FOUND ? IPv4Address() : leases.At(static_cast<size_t>(row)).GetIPAddress();
}

bool AddressManager::IsAddressLeasedTo(const HardwareAddress& hardwareAddress, const IPv4Address& address) const
{
    return GetLeasedAddress(hardwareAddress) == address;
}

void AddressManager::AddLease(const HardwareAddress& hardwareAddress, const IPv4Address& address, int32_t duration)
{
    const std::lock_guard lock(leasesMutex);
    const int64_t now = clock->Now();
    leases.Reserve(ExpectedLeaseCount());
    // Whoever held this address loses the row; the new one goes to the end.
    leases.EraseFirstByIPAddress(address);
    const Lease lease(hardwareAddress, address, duration, now);
    leases.Append(lease);
    freeAddresses.Refresh(address.ToUint32(), leases, addressReservations, now);
    Journal(journal, leases, [&](LeaseJournal& target) { target.RecordAdd(lease); });
}

size_t AddressManager::ExpectedLeaseCount() const
{
    // As many rows as the pool has addresses, up to a /16: room made once,
    // for a table that usually fills its pool; larger pools grow as they go.
    constexpr uint32_t MOST_ROWS_RESERVED = 65536;
    const uint32_t start = settings->GetPoolStartAddress().ToUint32();
    const uint32_t end = settings->GetPoolEndAddress().ToUint32();
    return start > end ? 0 : std::min(end - start, MOST_ROWS_RESERVED - 1) + 1;
}

void AddressManager::RemoveLease(const IPv4Address& address)
{
    const std::lock_guard lock(leasesMutex);
    EraseLeaseLocked(address);
}

void AddressManager::EraseLeaseLocked(const IPv4Address& address)
{
    if (!leases.EraseFirstByIPAddress(address)) {
        return;
    }
    freeAddresses.Refresh(address.ToUint32(), leases, addressReservations, clock->Now());
    Journal(journal, leases, [&](LeaseJournal& target) { target.RecordErase(address); });
}

void AddressManager::ReleaseLease(const IPv4Address& address)
{
    const std::lock_guard lock(leasesMutex);
    const int64_t now = clock->Now();
    if (!leases.ExpireFirstByIPAddress(address, now)) {
        return;
    }
    freeAddresses.Refresh(address.ToUint32(), leases, addressReservations, now);
    Journal(journal, leases, [&](LeaseJournal& target) { target.RecordExpire(address, now); });
}

size_t AddressManager::GetLeaseCount() const
{
    const std::lock_guard lock(leasesMutex);
    return leases.Size();
}

Lease AddressManager::GetLease(size_t index) const
{
    const std::lock_guard lock(leasesMutex);
    PRECONDITION(index < leases.Size());
    return leases.At(index);
}

std::vector<Lease> AddressManager::GetLeases() const
{
    const std::lock_guard lock(leasesMutex);
    return leases.Rows();
}

// ---- Lease file -------------------------------------------------------------

void AddressManager::SetLeasesFilePath(const std::string& path)
{
    leasesFilePath = path;
}

std::string AddressManager::GetLeasesFilePath() const
{
    return leasesFilePath;
}

void AddressManager::LoadLeases()
{
    LoadLeases(leasesFilePath);
}

void AddressManager::LoadLeases(const std::string& path)
{
    if (!Tools::FileExists(path)) {
        throw AppException(AppException::FileNotExists);
    }
    // Taken before the read: a file changed in between is read again next time.
    const std::string fingerprint = Tools::FileFingerprint(path);
    {
        const std::lock_guard lock(leasesMutex);
        if (IsSyncedWithLocked(path, fingerprint)) {
            return;
        }
    }
    // A folder, a FIFO or a device would never give a proper end of file.
    std::string contents;
    if (!IsRegularFile(path) || !Tools::ReadWholeFile(path, contents)) {
        throw AppException(AppException::FileReadingError);
    }
    UnserializeLeases(ByteString(contents.begin(), contents.end()));
    const std::lock_guard lock(leasesMutex);
    syncedFile = {path, fingerprint, leases.GetVersion()};
}

bool AddressManager::IsSyncedWithLocked(const std::string& path, const std::string& fingerprint) const
{
    return !fingerprint.empty() && syncedFile.path == path && syncedFile.fingerprint == fingerprint &&
           syncedFile.tableVersion == leases.GetVersion();
}

void AddressManager::SaveLeases()
{
    SaveLeases(leasesFilePath);
}

bool AddressManager::TrySaveLeases()
{
    return TrySaveLeases(leasesFilePath);
}

void AddressManager::AttachJournal(LeaseJournal* newJournal)
{
    const std::lock_guard lock(leasesMutex);
    journal = newJournal;
}

void AddressManager::SaveLeases(const std::string& path)
{
    // Silent on failure: the old file stays, and the next stop tries again.
    TrySaveLeases(path);
}

bool AddressManager::TrySaveLeases(const std::string& path)
{
    std::vector<Lease> rows;
    uint64_t version = 0;
    {
        const std::lock_guard lock(leasesMutex);
        rows = leases.Rows();
        version = leases.GetVersion();
    }
    const ByteString data = Encode(rows);
    if (!Tools::ReplaceFileContents(path, std::string(data.begin(), data.end()))) {
        return false;
    }
    const std::string fingerprint = Tools::FileFingerprint(path);
    const std::lock_guard lock(leasesMutex);
    syncedFile = {path, fingerprint, version};
    return true;
}

ByteString AddressManager::SerializeLeases() const
{
    // Copied under the lock, encoded outside it.
    return Encode(GetLeases());
}

ByteString AddressManager::Encode(const std::vector<Lease>& rows)
{
    return Lease::SerializeRows(rows);
}

void AddressManager::UnserializeLeases(const ByteString& data)
{
    // Every row is decoded, in place, before the table is touched: damaged
    // data raises FileReadingError and leaves the table as it was.
    ReplaceLeases(Lease::UnserializeRows(data.data(), data.size()));
}

void AddressManager::ReplaceLeases(std::vector<Lease> rows)
{
    const std::lock_guard lock(leasesMutex);
    leases.Assign(std::move(rows));
    // Rebuilt at the next choice, so that loading stays a plain copy.
    freeAddresses.Invalidate();
}

// ---- Reservations -----------------------------------------------------------

size_t AddressManager::GetReservationCount() const
{
    return addressReservations.Size();
}

AddressReservation AddressManager::GetReservation(size_t index) const
{
    PRECONDITION(index < addressReservations.Size());
    return addressReservations.At(index);
}

IPv4Address AddressManager::GetReservedAddress(const HardwareAddress& hardwareAddress) const
{
    const size_t row = addressReservations.FindByHardwareAddress(hardwareAddress);
    return row == ReservationTable::NONE ? IPv4Address() : addressReservations.At(row).GetIPAddress();
}

void AddressManager::AddReservation(const AddressReservation& reservation)
{
    CheckReservation(reservation, ReservationTable::NONE);
    addressReservations.Append(reservation);
    ReservationChanged(reservation.GetIPAddress());
}

void AddressManager::ReplaceReservation(size_t index, const AddressReservation& reservation)
{
    PRECONDITION(index < addressReservations.Size());
    CheckReservation(reservation, index);
    const IPv4Address replaced = addressReservations.At(index).GetIPAddress();
    addressReservations.Replace(index, reservation);
    ReservationChanged(replaced);
    ReservationChanged(reservation.GetIPAddress());
}

void AddressManager::RemoveReservation(size_t index)
{
    PRECONDITION(index < addressReservations.Size());
    const IPv4Address removed = addressReservations.At(index).GetIPAddress();
    addressReservations.Remove(index);
    ReservationChanged(removed);
}

void AddressManager::ReservationChanged(const IPv4Address& address)
{
    // The index shares the lease lock with the table it follows.
    const std::lock_guard lock(leasesMutex);
    freeAddresses.Refresh(address.ToUint32(), leases, addressReservations, clock->Now());
}

void AddressManager::CheckReservation(const AddressReservation& reservation, size_t skippedIndex) const
{
    // The subnet comes first.
    if (reservation.GetIPAddress().GetBroadcastAddress(settings->GetSubnetMask()) != settings->GetBroadcastAddress()) {
        throw AppException(AppException::ReservationOutsidePoolSubnet);
    }
    // Then the rows in order: the earlier clashing row decides, and within
    // one row the hardware address is tested first. Each key occurs in at
    // most one row, so the two lookups stand for the walk.
    const auto unlessSkipped = [skippedIndex](size_t row) { return row == skippedIndex ? ReservationTable::NONE : row; };
    const size_t clientRow = unlessSkipped(addressReservations.FindByHardwareAddress(reservation.GetHardwareAddress()));
    const size_t addressRow = unlessSkipped(addressReservations.FindByIPAddress(reservation.GetIPAddress()));
    if (clientRow != ReservationTable::NONE && clientRow <= addressRow) {
        throw AppException(AppException::HardwareAddressAlreadyReserved);
    }
    if (addressRow != ReservationTable::NONE) {
        throw AppException(AppException::IPAddressAlreadyReserved);
    }
}
