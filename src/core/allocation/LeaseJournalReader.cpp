#include "allocation/LeaseJournalReader.h"

#include "foundation/Crc32c.h"
#include "foundation/HardwareAddress.h"
#include "foundation/LittleEndian.h"

#include <algorithm>
#include <cstring>

namespace {

constexpr size_t ADD_FIXED_PAYLOAD = 17; // before the hardware address bytes

} // namespace

LeaseJournalReader::FileState LeaseJournalReader::FileState::Of(const uint8_t* data, size_t size)
{
    return FileState{size, Crc32c::Compute(data, size)};
}

LeaseJournalReader::Contents LeaseJournalReader::Read(const uint8_t* data, size_t size)
{
    Contents contents;
    if (size < HEADER_SIZE) {
        contents.ending = size == 0 ? Ending::Clean : Ending::TornTail;
        return contents;
    }
    contents.slotA = ReadSlot(data + SLOT_A_OFFSET);
    contents.slotB = ReadSlot(data + SLOT_B_OFFSET);
    if (std::memcmp(data, MAGIC, sizeof MAGIC) != 0 || contents.slotA.kind == BaseKind::None) {
        contents.slotA = contents.slotB = Slot();
        contents.ending = Ending::Damaged;
        return contents;
    }
    if (contents.slotB.kind != BaseKind::LeaseFile) {
        contents.slotB = Slot();
    }
    // A renewal of an Ethernet client is 30 bytes: room made once.
    contents.records.reserve((size - HEADER_SIZE) / 30);
    size_t offset = HEADER_SIZE;
    Record record;
    while (offset < size) {
        const size_t length = ReadRecord(data + offset, size - offset, record);
        if (length == 0) {
            break;
        }
        contents.records.push_back(record);
        offset += length;
    }
    contents.validEnd = offset;
    if (offset == size) {
        return contents;
    }
    // A valid record anywhere behind the bad one means damage, not a crash
    // in the middle of the last write.
    contents.ending = Ending::TornTail;
    for (size_t later = offset + 1; later + RECORD_HEADER_SIZE <= size; ++later) {
        if (ReadRecord(data + later, size - later, record) != 0) {
            contents.ending = Ending::Damaged;
            contents.damageOffset = offset;
            break;
        }
    }
    return contents;
}

LeaseJournalReader::Slot LeaseJournalReader::ReadSlot(const uint8_t* slot)
{
    Slot result;
    const auto kind = static_cast<BaseKind>(slot[4]);
    const bool known = kind == BaseKind::LeaseFile || kind == BaseKind::AfterJournal || kind == BaseKind::Standalone;
    if (!known || LittleEndian::Get32(slot) != Crc32c::Compute(slot + 4, SLOT_SIZE - 4)) {
        return result;
    }
    result.kind = kind;
    result.journalId = LittleEndian::Get64(slot + 8);
    if (kind == BaseKind::LeaseFile) {
        result.leaseFile = FileState{LittleEndian::Get64(slot + 16), LittleEndian::Get32(slot + 24)};
    } else if (kind == BaseKind::AfterJournal) {
        result.previousJournalId = LittleEndian::Get64(slot + 16);
    }
    return result;
}

size_t LeaseJournalReader::ReadRecord(const uint8_t* data, size_t size, Record& record)
{
    if (size < RECORD_HEADER_SIZE) {
        return 0;
    }
    const size_t length = LittleEndian::Get(data + 4, 2);
    if (length > MAX_PAYLOAD || RECORD_HEADER_SIZE + length > size) {
        return 0;
    }
    // The checksum covers the length and the type as well as the payload.
    if (LittleEndian::Get32(data) != Crc32c::Compute(data + 4, 3 + length)) {
        return 0;
    }
    const auto type = static_cast<RecordType>(data[6]);
    return DecodePayload(type, data + RECORD_HEADER_SIZE, length, record) ? RECORD_HEADER_SIZE + length : 0;
}

bool LeaseJournalReader::DecodePayload(RecordType type, const uint8_t* payload, size_t length, Record& record)
{
    record.type = type;
    switch (type) {
    case RecordType::Add:
    case RecordType::Append: {
        if (length < ADD_FIXED_PAYLOAD || payload[16] > HardwareAddress::MAX_LENGTH ||
            length != ADD_FIXED_PAYLOAD + payload[16]) {
            return false;
        }
        // The hardware address in its serialized form: type, then the bytes.
        uint8_t hardware[4 + HardwareAddress::MAX_LENGTH];
        std::memcpy(hardware, payload + 12, 4);
        std::memcpy(hardware + 4, payload + ADD_FIXED_PAYLOAD, payload[16]);
        HardwareAddress client;
        client.Unserialize(hardware, 4 + size_t(payload[16]));
        const auto startTime = static_cast<int32_t>(LittleEndian::Get32(payload));
        const auto duration = static_cast<int32_t>(LittleEndian::Get32(payload + 4));
        record.lease = Lease(client, IPv4Address(payload[8], payload[9], payload[10], payload[11]), duration, startTime);
        return true;
    }
    case RecordType::Erase:
        record.address = IPv4Address(payload[0], payload[1], payload[2], payload[3]);
        return length == 4;
    case RecordType::Expire:
        if (length != 12) {
            return false;
        }
        record.address = IPv4Address(payload[0], payload[1], payload[2], payload[3]);
        record.moment = static_cast<int64_t>(LittleEndian::Get64(payload + 4));
        return true;
    case RecordType::Clear:
        return length == 0;
    }
    return false;
}
