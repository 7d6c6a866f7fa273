#include "allocation/StorageWarnings.h"

#include <cstdio>

namespace {

const char* Describe(StorageWarnings::Kind kind)
{
    switch (kind) {
    case StorageWarnings::Kind::WriteFailed:
        return "cannot write the lease journal; the server keeps answering, but leases granted from now on are lost "
               "if the program ends without a clean stop";
    case StorageWarnings::Kind::WriteRecovered:
        return "the lease journal can be written again; the whole lease table has been written";
    case StorageWarnings::Kind::JournalDamaged:
        return "the lease journal was damaged; the leases recorded before the damage were restored, and the journal "
               "was kept aside";
    case StorageWarnings::Kind::JournalNotContinuing:
        return "a lease journal that does not continue the lease file beside it was not replayed, and was kept aside";
    }
    return "lease storage problem";
}

} // namespace

void StorageWarnings::Add(Kind kind, const std::string& path, const std::string& detail)
{
    std::fprintf(stderr, "quorvy: %s: %s%s%s\n", path.c_str(), Describe(kind), detail.empty() ? "" : ": ",
                 detail.c_str());
    const std::lock_guard lock(mutex);
    pending.push_back(Warning{kind, path, detail});
}

std::vector<StorageWarnings::Warning> StorageWarnings::Take()
{
    const std::lock_guard lock(mutex);
    std::vector<Warning> taken;
    taken.swap(pending);
    return taken;
}
