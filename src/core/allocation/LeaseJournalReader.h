#pragma once

#include "allocation/Lease.h"
#include "foundation/IPv4Address.h"

#include <cstddef>
#include <cstdint>
#include <vector>

// Reads a lease journal: the changes made to the lease table since the lease
// file it continues was written. All integers are least significant byte
// first.
//
// File layout
//
//   offset  size  content
//   0       8     magic "TVLEASEJ"
//   8       28    slot A: what this journal continues, written at its creation
//   36      28    slot B: all zero, or written once by the compaction that
//                 wrote the lease file this journal continues from then on
//   64      ...   records, back to back, up to the end of the file
//
// A slot: crc32c of the slot's bytes 4..27 (4), kind (1), three zero bytes,
// the journal's own id (8, random), then 12 bytes that depend on the kind:
//   1 LeaseFile     the lease file's size (8) and crc32c of its bytes (4):
//                   the records apply to exactly that file (a missing file
//                   counts as an empty one);
//   2 AfterJournal  the id of the journal that was active before this one
//                   (8) and four zero bytes: the records apply once that
//                   journal has been applied (a compaction is under way);
//   3 Standalone    twelve zero bytes: the journal begins with Clear and
//                   rebuilds the whole table, whatever the lease file holds.
// A slot whose checksum does not match counts as absent; slot B is only ever
// of kind LeaseFile.
//
// A record: crc32c (4) of the length, type and payload, payload length (2),
// type (1), payload (at most MAX_PAYLOAD bytes):
//   1 Add     startTime (4, signed), duration (4, signed), IPv4 address (4,
//             first octet first), hardware type (4), hardware address length
//             (1, at most 16), its bytes: the first row with that address is
//             erased, then the lease is appended (what AddLease does);
//   2 Erase   IPv4 address (4): the first row with that address is erased;
//   3 Expire  IPv4 address (4), the moment (8, signed seconds): the first row
//             with that address is expired at that moment;
//   4 Clear   no payload: every row goes;
//   5 Append  as Add, without the erase (a row of a whole-table snapshot,
//             which may hold several rows of one address).
// Redoing a record twice leaves the table as once, but for Erase on an
// address held by several rows, which only a snapshot can bring about.
//
// Endings. The records are read up to the first one that is incomplete, has a
// wrong checksum or does not decode. If no complete valid record starts
// anywhere after it, the rest is a write torn by a crash and is ignored
// (TornTail). Otherwise the file is damaged in the middle (Damaged): only the
// records before the damage are given. A file shorter than the header is a
// journal whose creation was cut short: no records, TornTail (Clean when
// empty). A file of header size or more without magic or a valid slot A is
// Damaged as a whole.
class LeaseJournalReader {
public:
    static constexpr uint8_t MAGIC[8] = {'T', 'V', 'L', 'E', 'A', 'S', 'E', 'J'};
    static constexpr size_t SLOT_A_OFFSET = 8;
    static constexpr size_t SLOT_B_OFFSET = 36;
    static constexpr size_t SLOT_SIZE = 28;
    static constexpr size_t HEADER_SIZE = 64;
    static constexpr size_t RECORD_HEADER_SIZE = 7;
    static constexpr size_t MAX_PAYLOAD = 33;

    enum class BaseKind : uint8_t { None = 0, LeaseFile = 1, AfterJournal = 2, Standalone = 3 };
    enum class RecordType : uint8_t { Add = 1, Erase = 2, Expire = 3, Clear = 4, Append = 5 };
    enum class Ending { Clean, TornTail, Damaged };

    // The state of a lease file a journal can name: its size and checksum.
    struct FileState {
        uint64_t size = 0;
        uint32_t crc = 0;
        static FileState Of(const uint8_t* data, size_t size);
        bool operator==(const FileState& other) const = default;
    };

    struct Slot {
        BaseKind kind = BaseKind::None; // None: absent or damaged
        uint64_t journalId = 0;
        FileState leaseFile;           // LeaseFile
        uint64_t previousJournalId = 0; // AfterJournal
    };

    struct Record {
        RecordType type = RecordType::Clear;
        Lease lease;         // Add, Append
        IPv4Address address; // Erase, Expire
        int64_t moment = 0;  // Expire
    };

    struct Contents {
        Slot slotA;
        Slot slotB;
        std::vector<Record> records;
        Ending ending = Ending::Clean;
        // Where the valid records end, and where the damage begins (Damaged).
        size_t validEnd = 0;
        size_t damageOffset = 0;
    };

    static Contents Read(const uint8_t* data, size_t size);
    // Decodes the slot at `slot`, SLOT_SIZE bytes.
    static Slot ReadSlot(const uint8_t* slot);
    // Redoes one record on `table`: a LeaseTable, or a LeaseReplayTable,
    // which offer the same four changes.
    template <typename Table>
    static void Apply(const Record& record, Table& table)
    {
        switch (record.type) {
        case RecordType::Add:
            table.EraseFirstByIPAddress(record.lease.GetIPAddress());
            table.Append(record.lease);
            break;
        case RecordType::Append:
            table.Append(record.lease);
            break;
        case RecordType::Erase:
            table.EraseFirstByIPAddress(record.address);
            break;
        case RecordType::Expire:
            table.ExpireFirstByIPAddress(record.address, record.moment);
            break;
        case RecordType::Clear:
            table.Assign({});
            break;
        }
    }

private:
    // The record at `data`, within `size` bytes: its full length, or 0 when
    // no complete valid record starts there.
    static size_t ReadRecord(const uint8_t* data, size_t size, Record& record);
    static bool DecodePayload(RecordType type, const uint8_t* payload, size_t length, Record& record);
};
