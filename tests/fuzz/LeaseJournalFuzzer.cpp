// Arbitrary bytes as a lease journal: the reader must never read past the
// data, must give only records it can vouch for, and must agree with itself
// on the part it accepted; redoing the records, and replaying the bytes onto
// an empty lease file, must leave a usable table.
#include "allocation/LeaseJournalReader.h"
#include "allocation/LeaseJournalRecovery.h"
#include "allocation/LeaseTable.h"

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
    LeaseTable table;
    for (const Reader::Record& record : contents.records) {
        Reader::Apply(record, table);
    }
    Require(table.Rows().size() == table.Size(), "the table's rows and size disagree");
    const auto replayed =
        LeaseJournalRecovery::Replay(std::string(), std::string(reinterpret_cast<const char*>(data), size));
    if (replayed) {
        Require(replayed->size() == table.Size(), "replay and redo disagree");
    }
    return 0;
}
