#include "allocation/LeaseJournal.h"

#include "allocation/AddressManager.h"
#include "allocation/StorageWarnings.h"
#include "foundation/AppException.h"
#include "foundation/Crc32c.h"
#include "foundation/LittleEndian.h"
#include "foundation/Tools.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <random>

namespace {

using Reader = LeaseJournalReader;

// Room for the largest record.
using RecordBuffer = uint8_t[Reader::RECORD_HEADER_SIZE + Reader::MAX_PAYLOAD];

// Fills in the record header of the payload already at out + 7.
size_t SealRecord(Reader::RecordType type, size_t length, uint8_t* out)
{
    LittleEndian::Put(out + 4, length, 2);
    out[6] = static_cast<uint8_t>(type);
    LittleEndian::Put(out, Crc32c::Compute(out + 4, 3 + length), 4);
    return Reader::RECORD_HEADER_SIZE + length;
}

size_t EncodeLease(Reader::RecordType type, const Lease& lease, uint8_t* out)
{
    uint8_t* payload = out + Reader::RECORD_HEADER_SIZE;
    const HardwareAddress& client = lease.GetHardwareAddress();
    const IPv4Address address = lease.GetIPAddress();
    LittleEndian::Put(payload, static_cast<uint32_t>(lease.GetStartTime()), 4);
    LittleEndian::Put(payload + 4, static_cast<uint32_t>(lease.GetDuration()), 4);
    for (int i = 0; i < 4; ++i) {
        payload[8 + i] = address[i];
    }
    LittleEndian::Put(payload + 12, client.GetType(), 4);
    payload[16] = client.GetLength();
    std::memcpy(payload + 17, client.GetBytes(), client.GetLength());
    return SealRecord(type, 17u + client.GetLength(), out);
}

size_t EncodeAddress(Reader::RecordType type, const IPv4Address& address, uint8_t* out)
{
    for (int i = 0; i < 4; ++i) {
        out[Reader::RECORD_HEADER_SIZE + i] = address[i];
    }
    return SealRecord(type, 4, out);
}

bool WriteWhole(int descriptor, const std::string& data)
{
    size_t done = 0;
    while (done < data.size()) {
        const ssize_t written = ::write(descriptor, data.data() + done, data.size() - done);
        if (written < 0 && errno == EINTR) {
            continue;
        }
        if (written <= 0) {
            return false;
        }
        done += static_cast<size_t>(written);
    }
    return true;
}

} // namespace

// A descriptor shared by the writer, the sync thread and a compaction: the
// last of them to let go closes it.
struct LeaseJournal::OpenFile {
    explicit OpenFile(int descriptor) : descriptor(descriptor) {}
    ~OpenFile() { ::close(descriptor); }
    OpenFile(const OpenFile&) = delete;
    OpenFile& operator=(const OpenFile&) = delete;
    const int descriptor;
};

LeaseJournal::LeaseJournal(const std::string& leaseFilePath, StorageWarnings* warnings)
    : paths(Paths::For(leaseFilePath)), warnings(warnings)
{
}

LeaseJournal::~LeaseJournal()
{
    if (!finished) {
        StopBackground();
        Finish(false);
    }
}

std::unique_ptr<LeaseJournal> LeaseJournal::Open(AddressManager& addresses, StorageWarnings& warnings)
{
    auto journal = std::make_unique<LeaseJournal>(addresses.GetLeasesFilePath(), &warnings);
    journal->Lock();
    LeaseJournalRecovery::Result recovered = LeaseJournalRecovery::Run(journal->GetPaths(), warnings);
    if (recovered.journalFound) {
        addresses.ReplaceLeases(std::move(recovered.rows));
    }
    journal->Begin(addresses.GetLeases(), recovered.leaseFileBytes);
    addresses.AttachJournal(journal.get());
    return journal;
}

void LeaseJournal::Lock()
{
    TakeLock(true);
}

bool LeaseJournal::TakeLock(bool throwWhenHeld)
{
    if (lockDescriptor >= 0) {
        return true;
    }
    const int descriptor = ::open(paths.lock.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644);
    if (descriptor >= 0 && ::flock(descriptor, LOCK_EX | LOCK_NB) == 0) {
        lockDescriptor = descriptor;
        return true;
    }
    const int error = errno;
    if (descriptor >= 0) {
        ::close(descriptor);
    }
    if (error == EWOULDBLOCK && throwWhenHeld) {
        throw AppException(AppException::LeaseFileInUse);
    }
    const std::lock_guard lock(mutex);
    FailLocked(error);
    return false;
}

void LeaseJournal::Begin(const std::vector<Lease>& rows, const std::string& leaseFileBytes)
{
    const ByteString encoded = Lease::SerializeRows(rows);
    const std::string bytes(encoded.begin(), encoded.end());
    const auto state = Reader::FileState::Of(encoded.data(), encoded.size());
    const uint64_t id = NewId();
    {
        const std::lock_guard lock(mutex);
        compactionBytes =
            compactionLimit != 0 ? compactionLimit : std::max<uint64_t>(COMPACTION_BYTES, 2 * bytes.size());
    }
    syncThread = std::thread(&LeaseJournal::SyncLoop, this);
    compactionThread = std::thread(&LeaseJournal::CompactionLoop, this);
    if (lockDescriptor < 0) {
        return; // Failed already; the first change tries again.
    }
    // The fresh journal exists and is synced before the lease file changes:
    // whichever of the two a crash leaves, recovery finds a continuing pair.
    const int descriptor = ::open(paths.fresh.c_str(), O_CREAT | O_TRUNC | O_WRONLY | O_CLOEXEC, 0644);
    auto fresh = descriptor >= 0 ? std::make_shared<OpenFile>(descriptor) : nullptr;
    bool done = fresh && WriteWhole(descriptor, Header(Reader::BaseKind::LeaseFile, id, state.size, state.crc)) &&
                ::fdatasync(descriptor) == 0;
    done = done && (bytes == leaseFileBytes || Tools::ReplaceFileContents(paths.leaseFile, bytes));
    int error = errno;
    if (done) {
        ::unlink(paths.previous.c_str());
        done = ::rename(paths.fresh.c_str(), paths.journal.c_str()) == 0;
        error = errno;
        Tools::SyncFolderOf(paths.journal);
    }
    const std::lock_guard lock(mutex);
    if (!done) {
        ::unlink(paths.fresh.c_str());
        FailLocked(error);
        return;
    }
    file = std::move(fresh);
    journalId = id;
    offset = Reader::HEADER_SIZE;
}

// ---- Records -----------------------------------------------------------------

void LeaseJournal::RecordAdd(const Lease& lease)
{
    RecordBuffer record;
    Write(record, EncodeLease(Reader::RecordType::Add, lease, record));
}

void LeaseJournal::RecordErase(const IPv4Address& address)
{
    RecordBuffer record;
    Write(record, EncodeAddress(Reader::RecordType::Erase, address, record));
}

void LeaseJournal::RecordExpire(const IPv4Address& address, int64_t moment)
{
    RecordBuffer record;
    LittleEndian::Put(record + Reader::RECORD_HEADER_SIZE + 4, static_cast<uint64_t>(moment), 8);
    for (int i = 0; i < 4; ++i) {
        record[Reader::RECORD_HEADER_SIZE + i] = address[i];
    }
    Write(record, SealRecord(Reader::RecordType::Expire, 12, record));
}

bool LeaseJournal::WantsSnapshot()
{
    const std::lock_guard lock(mutex);
    return failing && !stopping && Clock::now() >= nextAttempt;
}

void LeaseJournal::RecordSnapshot(const std::vector<Lease>& rows)
{
    std::string records;
    records.reserve((rows.size() + 1) * (Reader::RECORD_HEADER_SIZE + 23));
    RecordBuffer record;
    records.append(reinterpret_cast<const char*>(record), SealRecord(Reader::RecordType::Clear, 0, record));
    for (const Lease& lease : rows) {
        records.append(reinterpret_cast<const char*>(record), EncodeLease(Reader::RecordType::Append, lease, record));
    }
    const std::lock_guard lock(mutex);
    const bool written = file ? WriteLocked(reinterpret_cast<const uint8_t*>(records.data()), records.size())
                              : CreateStandaloneLocked(records);
    if (!written) {
        nextAttempt = Clock::now() + RETRY_INTERVAL;
        return;
    }
    failing = false;
    warnings->Add(StorageWarnings::Kind::WriteRecovered, paths.journal);
    MaybeCompactLocked();
}

void LeaseJournal::Write(const uint8_t* data, size_t length)
{
    const std::lock_guard lock(mutex);
    // While failing, records are dropped: the next snapshot holds them all.
    if (failing || stopping) {
        return;
    }
    if (!WriteLocked(data, length)) {
        FailLocked(errno);
        return;
    }
    MaybeCompactLocked();
}

bool LeaseJournal::WriteLocked(const uint8_t* data, size_t length)
{
    if (!file) {
        errno = EBADF;
        return false;
    }
    size_t done = 0;
    while (done < length) {
        const ssize_t written = ::pwrite(file->descriptor, data + done, length - done, static_cast<off_t>(offset + done));
        if (written < 0 && errno == EINTR) {
            continue;
        }
        if (written <= 0) {
            const int error = written == 0 ? ENOSPC : errno;
            // A torn record would read as damage once later records follow
            // it; the next write starts at `offset` again in any case.
            if (done > 0 && ::ftruncate(file->descriptor, static_cast<off_t>(offset)) != 0) {
                // Left for the next write to cover.
            }
            errno = error;
            return false;
        }
        done += static_cast<size_t>(written);
    }
    offset += length;
    ++writes;
    return true;
}

void LeaseJournal::FailLocked(int error)
{
    nextAttempt = Clock::now() + RETRY_INTERVAL;
    if (!failing) {
        failing = true;
        warnings->Add(StorageWarnings::Kind::WriteFailed, paths.journal, std::strerror(error));
    }
}

bool LeaseJournal::CreateStandaloneLocked(const std::string& records)
{
    // No journal is open (the start could not make one): a new one that
    // needs no lease file, made whole under a temporary name.
    if (lockDescriptor < 0 && !TakeLock(false)) {
        return false;
    }
    const uint64_t id = NewId();
    const int descriptor = ::open(paths.fresh.c_str(), O_CREAT | O_TRUNC | O_WRONLY | O_CLOEXEC, 0644);
    if (descriptor < 0) {
        return false;
    }
    auto created = std::make_shared<OpenFile>(descriptor);
    const std::string contents = Header(Reader::BaseKind::Standalone, id, 0, 0) + records;
    if (!WriteWhole(descriptor, contents) || ::fdatasync(descriptor) != 0 ||
        ::rename(paths.fresh.c_str(), paths.journal.c_str()) != 0) {
        ::unlink(paths.fresh.c_str());
        return false;
    }
    ::unlink(paths.previous.c_str()); // Superseded by the snapshot.
    Tools::SyncFolderOf(paths.journal);
    file = std::move(created);
    journalId = id;
    offset = contents.size();
    ++writes;
    return true;
}

// ---- Compaction ----------------------------------------------------------------

void LeaseJournal::MaybeCompactLocked()
{
    if (offset < compactionBytes || compacting || stopping) {
        return;
    }
    // A journal.old left by a failed compaction is folded in first; the
    // active journal already follows it.
    if (!Tools::FileExists(paths.previous) && !SwitchLocked()) {
        compactionBytes *= 2;
        return;
    }
    // The compaction thread waits for this; nothing here waits for it.
    compacting = true;
    compactionTarget = file;
    compactionTargetId = journalId;
    compactionWake.notify_one();
}

bool LeaseJournal::SwitchLocked()
{
    if (::rename(paths.journal.c_str(), paths.previous.c_str()) != 0) {
        return false;
    }
    const uint64_t id = NewId();
    const int descriptor = ::open(paths.journal.c_str(), O_CREAT | O_EXCL | O_WRONLY | O_CLOEXEC, 0644);
    auto next = descriptor >= 0 ? std::make_shared<OpenFile>(descriptor) : nullptr;
    if (!next || !WriteWhole(descriptor, Header(Reader::BaseKind::AfterJournal, id, journalId, 0))) {
        next.reset();
        ::unlink(paths.journal.c_str());
        ::rename(paths.previous.c_str(), paths.journal.c_str());
        return false;
    }
    file = std::move(next);
    journalId = id;
    offset = Reader::HEADER_SIZE;
    ++writes;
    return true;
}

void LeaseJournal::CompactionLoop()
{
    // Background work: on a CPU shared with the receive thread it takes
    // little of the time the receive thread needs, yet still finishes under
    // a flood.
    constexpr int BACKGROUND_NICE = 10;
    ::setpriority(PRIO_PROCESS, static_cast<id_t>(::gettid()), BACKGROUND_NICE);
    std::unique_lock lock(mutex);
    while (true) {
        compactionWake.wait(lock, [this] { return compactionTarget != nullptr || stopping; });
        // A stop saves the whole table anyway: a compaction not yet begun is
        // dropped, one under way ends first (StopBackground joins).
        if (stopping) {
            return;
        }
        const std::shared_ptr<OpenFile> target = std::move(compactionTarget);
        const uint64_t targetId = compactionTargetId;
        compactionTarget.reset();
        lock.unlock();
        Compact(target, targetId);
        lock.lock();
    }
}

void LeaseJournal::Compact(std::shared_ptr<OpenFile> target, uint64_t targetId)
{
    // The switch's rename and creation first, so that no later step can
    // reach the disk before them.
    Tools::SyncFolderOf(paths.journal);
    const auto step = [this](CompactionStep reached) { return !proceed || proceed(reached); };
    std::string leaseFileBytes;
    std::string previousBytes;
    bool done = step(CompactionStep::Switched) &&
                (!Tools::FileExists(paths.leaseFile) || Tools::ReadWholeFile(paths.leaseFile, leaseFileBytes)) &&
                Tools::ReadWholeFile(paths.previous, previousBytes);
    const auto rows = done ? LeaseJournalRecovery::Replay(leaseFileBytes, previousBytes) : std::nullopt;
    if (rows) {
        const ByteString encoded = Lease::SerializeRows(*rows);
        const auto state = Reader::FileState::Of(encoded.data(), encoded.size());
        // Slot B names the snapshot before the snapshot becomes the lease
        // file: a crash between the two finds journal.old still continuing L.
        const std::string slot = Slot(Reader::BaseKind::LeaseFile, targetId, state.size, state.crc);
        const auto bind = [&] {
            return step(CompactionStep::SnapshotWritten) &&
                   ::pwrite(target->descriptor, slot.data(), slot.size(), Reader::SLOT_B_OFFSET) ==
                       static_cast<ssize_t>(slot.size()) &&
                   ::fdatasync(target->descriptor) == 0 && step(CompactionStep::Bound);
        };
        done = Tools::ReplaceFileContents(paths.leaseFile, std::string(encoded.begin(), encoded.end()), bind) &&
               step(CompactionStep::Renamed) && ::unlink(paths.previous.c_str()) == 0;
        Tools::SyncFolderOf(paths.journal);
    }
    const std::lock_guard lock(mutex);
    if (!rows || !done) {
        // journal.old stays and is folded in at the next attempt, or at the
        // next start; the limit grows so that attempts do not follow each
        // other closely.
        compactionBytes *= 2;
        std::fprintf(stderr, "quorvy: %s: lease journal compaction failed; it will be tried again later\n",
                     paths.journal.c_str());
    }
    compacting = false;
}

// ---- Sync, stop ------------------------------------------------------------------

void LeaseJournal::SyncLoop()
{
    std::unique_lock lock(mutex);
    uint64_t synced = writes;
    while (!stopping) {
        wake.wait_for(lock, SYNC_INTERVAL, [this] { return stopping; });
        if (writes == synced || !file) {
            continue;
        }
        // Synced without the lock: the receive thread must not wait for the
        // disk.
        const std::shared_ptr<OpenFile> target = file;
        const uint64_t mark = writes;
        lock.unlock();
        const bool ok = ::fdatasync(target->descriptor) == 0;
        lock.lock();
        if (ok) {
            synced = mark;
        }
    }
}

void LeaseJournal::StopBackground()
{
    {
        const std::lock_guard lock(mutex);
        stopping = true;
    }
    wake.notify_all();
    compactionWake.notify_all();
    if (syncThread.joinable()) {
        syncThread.join();
    }
    if (compactionThread.joinable()) {
        compactionThread.join();
    }
}

void LeaseJournal::Finish(bool leaseFileSaved)
{
    const std::lock_guard lock(mutex);
    if (leaseFileSaved) {
        // The saved lease file holds everything: its rename must be on disk
        // before the journals that also hold it go.
        Tools::SyncFolderOf(paths.leaseFile);
        ::unlink(paths.journal.c_str());
        ::unlink(paths.previous.c_str());
        Tools::SyncFolderOf(paths.journal);
    } else if (file) {
        ::fdatasync(file->descriptor);
    }
    file.reset();
    if (lockDescriptor >= 0) {
        ::close(lockDescriptor);
        lockDescriptor = -1;
    }
    finished = true;
}

void LeaseJournal::SetCompactionLimit(uint64_t bytes, std::function<bool(CompactionStep)> proceedAfter)
{
    const std::lock_guard lock(mutex);
    compactionLimit = bytes;
    proceed = std::move(proceedAfter);
}

uint64_t LeaseJournal::GetSize()
{
    const std::lock_guard lock(mutex);
    return file ? offset : 0;
}

// ---- Format ------------------------------------------------------------------------

std::string LeaseJournal::Slot(Reader::BaseKind kind, uint64_t id, uint64_t value, uint32_t crc)
{
    uint8_t slot[Reader::SLOT_SIZE] = {};
    slot[4] = static_cast<uint8_t>(kind);
    LittleEndian::Put(slot + 8, id, 8);
    LittleEndian::Put(slot + 16, value, 8);
    LittleEndian::Put(slot + 24, crc, 4);
    LittleEndian::Put(slot, Crc32c::Compute(slot + 4, Reader::SLOT_SIZE - 4), 4);
    return std::string(reinterpret_cast<const char*>(slot), sizeof slot);
}

std::string LeaseJournal::Header(Reader::BaseKind kind, uint64_t id, uint64_t value, uint32_t crc)
{
    std::string header(reinterpret_cast<const char*>(Reader::MAGIC), sizeof Reader::MAGIC);
    header += Slot(kind, id, value, crc);
    header.append(Reader::HEADER_SIZE - header.size(), '\0');
    return header;
}

uint64_t LeaseJournal::NewId()
{
    std::random_device device;
    return (uint64_t(device()) << 32) | device();
}
