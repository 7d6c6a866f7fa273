#include "support/TemporaryFolder.h"

#include <cstdlib>
#include <filesystem>
#include <stdexcept>
#include <system_error>

TemporaryFolder::TemporaryFolder()
{
    std::string pattern = "/tmp/tarnvel-test-XXXXXX";
    if (::mkdtemp(pattern.data()) == nullptr) {
        throw std::runtime_error("cannot create a temporary folder under /tmp");
    }
    path = pattern;
}

TemporaryFolder::~TemporaryFolder()
{
    // A test may have taken permissions away; give them back, each folder
    // before the iterator enters it, so the contents can go without root.
    std::error_code ignored;
    std::filesystem::permissions(path, std::filesystem::perms::owner_all, std::filesystem::perm_options::add,
                                 ignored);
    std::filesystem::recursive_directory_iterator it(path, ignored);
    while (!ignored && it != std::filesystem::recursive_directory_iterator()) {
        if (it->is_directory(ignored) && !it->is_symlink(ignored)) {
            std::filesystem::permissions(it->path(), std::filesystem::perms::owner_all,
                                         std::filesystem::perm_options::add, ignored);
        }
        it.increment(ignored);
    }
    std::filesystem::remove_all(path, ignored);
}

std::string TemporaryFolder::FilePath(const std::string& name) const
{
    return path + "/" + name;
}
