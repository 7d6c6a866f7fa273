#pragma once

#include "allocation/FenwickTree.h"
#include "allocation/HardwareAddressHash.h"
#include "allocation/Lease.h"
#include "foundation/HardwareAddress.h"
#include "foundation/IPv4Address.h"

#include <cstddef>
#include <cstdint>
#include <limits>
#include <unordered_map>
#include <vector>

// The rows of the lease table in table order, with indexes by IP address and
// by hardware address. Not thread-safe: AddressManager holds the lock. Every
// operation but the whole-table ones (Rows, Assign) costs O(log n) or less,
// O(k log n) for an address or client with k rows.
//
// Rows live in slots (rowsBySlot), in table order. Erasing a row only marks
// its slot, so that no row behind it moves; a FenwickTree of the live slots
// turns a slot into a row position and back, and the slots are compacted once
// more than half of them are marked. Each row also carries a serial number that only
// grows (a new row gets a larger one), so the serials are sorted in slot
// order and neither an erase nor a compaction renumbers the indexes: they
// name rows by serial, and a serial finds its slot by binary search.
//
// AddLease keeps one row per IP address, but a lease file may hold several;
// the indexes therefore keep every row of a key, in table order, and "first
// row" always means the one nearest the front.
class LeaseTable {
public:
    static constexpr int NOT_FOUND = -1;
    static constexpr int64_t NEVER = std::numeric_limits<int64_t>::max();

    size_t Size() const { return liveRows; }
    // Precondition: index < Size().
    const Lease& At(size_t index) const;
    // Copies of all rows, in table order.
    std::vector<Lease> Rows() const;

    // Position of the first row of this client, or NOT_FOUND.
    int FindFirstByHardwareAddress(const HardwareAddress& hardwareAddress) const;
    // Some row with this address has not expired at `now`.
    bool HasActiveLease(const IPv4Address& address, int64_t now) const;
    // The first second after `now` at which HasActiveLease for this address
    // may answer otherwise, as long as its rows do not change; NEVER when no
    // row has the address.
    int64_t NextStateChange(const IPv4Address& address, int64_t now) const;
    // Calls visit(address value) once for each address that some row has.
    template <typename Visit>
    void ForEachIPAddress(Visit visit) const
    {
        for (const auto& entry : rowsByIPAddress) {
            visit(entry.first);
        }
    }
    size_t IPAddressCount() const { return rowsByIPAddress.size(); }

    void Append(const Lease& lease);
    // Room for `rows` rows, so that the table grows to them without moving
    // its rows or rehashing its indexes: that is work in proportion to the
    // whole table, and it would fall on one unlucky lease.
    void Reserve(size_t rows);
    // Erases the first row with this address and closes the gap; nothing
    // when there is none. Returns whether there was one.
    bool EraseFirstByIPAddress(const IPv4Address& address);
    // Ends the lease of the first row with this address, if any. Returns
    // whether there was one.
    bool ExpireFirstByIPAddress(const IPv4Address& address, int64_t now);
    // Replaces every row by `newRows`, in their order.
    void Assign(std::vector<Lease> newRows);

    // Grows with every change of the rows, so a caller can tell whether the
    // table is still the one it saw.
    uint64_t GetVersion() const { return version; }

private:
    uint64_t version = 0;
    using Serial = uint64_t;

    // The serials of the rows of one key, ascending (so in table order).
    // Nearly every key has one row, which is kept without an allocation.
    // Never empty: a key without rows leaves its index.
    class SerialList {
    public:
        explicit SerialList(Serial first) : first(first) {}
        Serial Front() const { return first; }
        // Precondition: `serial` is above every serial of the list.
        void PushBack(Serial serial) { more.push_back(serial); }
        // Removes `serial`, which the list holds; true when none remains.
        bool Remove(Serial serial);
        template <typename Visit>
        void ForEach(Visit visit) const
        {
            visit(first);
            for (const Serial serial : more) {
                visit(serial);
            }
        }

    private:
        Serial first;
        std::vector<Serial> more;
    };

    size_t SlotOf(Serial serial) const;
    size_t PositionOf(Serial serial) const;
    void IndexRow(const Lease& lease, Serial serial);
    void UnindexRow(const Lease& lease, Serial serial);
    void CompactIfSparse();

    // Invariant: rowsBySlot, serials and live have one entry per slot;
    // serials ascend strictly; liveSlots holds `live` and its total is
    // liveRows; the indexes hold exactly the serials of the live slots, each
    // under its key. (Not named `slots`: Qt defines that as a macro.)
    std::vector<Lease> rowsBySlot;
    std::vector<Serial> serials;
    std::vector<uint8_t> live;
    FenwickTree liveSlots;
    size_t liveRows = 0;
    Serial nextSerial = 0;
    std::unordered_map<uint32_t, SerialList> rowsByIPAddress;
    std::unordered_map<HardwareAddress, SerialList, HardwareAddressHash> rowsByHardwareAddress;
};
