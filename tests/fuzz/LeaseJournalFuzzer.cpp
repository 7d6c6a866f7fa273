// Arbitrary bytes as a lease journal: the reader must never read past the
// data, must give only records it can vouch for, and must agree with itself
// on the part it accepted; redoing the records, and replaying the bytes onto
// an empty lease file, must leave a usable table.
#include "allocation/LeaseJournalReader.h"
#include "allocation/LeaseJournalRecovery.h"
#include "allocation/LeaseReplayTable.h"
#include "allocation/LeaseTable.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <string>

namespace {

using Reader = LeaseJournalReader;

void Require(bool condition, const char* what)
{
    if (!condition) {
        std::fprintf(stderr, "LeaseJournalFuzzer: %s\n", what);
        std::abort();
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const Reader::Contents contents = Reader::Read(data, size);
    Require(contents.validEnd <= size, "valid records end past the data");
    if (contents.ending == Reader::Ending::Clean && size >= Reader::HEADER_SIZE) {
        Require(contents.validEnd == size, "a clean journal with bytes left over");
    }
    if (contents.slotA.kind != Reader::BaseKind::None) {
        // The accepted part alone reads back the same, and cleanly.
        const Reader::Contents prefix = Reader::Read(data, contents.validEnd);
        Require(prefix.ending == Reader::Ending::Clean, "the accepted part is not clean by itself");
        Require(prefix.records.size() == contents.records.size(), "the accepted part gives other records");
    }
    // The replay's own table and the server's agree on every row.
    LeaseTable table;
    LeaseReplayTable replay;
    for (const Reader::Record& record : contents.records) {
        Reader::Apply(record, table);
        Reader::Apply(record, replay);
    }
    const std::vector<Lease> rows = table.Rows();
    const std::vector<Lease> replayed = replay.Rows();
    Require(rows.size() == table.Size() && replayed.size() == replay.Size(), "rows and size disagree");
    Require(std::equal(rows.begin(), rows.end(), replayed.begin(), replayed.end(),
                       [](const Lease& a, const Lease& b) {
                           return a.GetHardwareAddress() == b.GetHardwareAddress() &&
                                  a.GetIPAddress() == b.GetIPAddress() && a.GetStartTime() == b.GetStartTime() &&
                                  a.GetDuration() == b.GetDuration();
                       }),
            "the replay table and the lease table disagree");
    const auto fromFile =
        LeaseJournalRecovery::Replay(std::string(), std::string(reinterpret_cast<const char*>(data), size));
    if (fromFile) {
        Require(fromFile->size() == table.Size(), "replay and redo disagree");
    }
    return 0;
}
