#pragma once

#include <cstdlib>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <system_error>

// A fresh, uniquely named folder under /tmp that lives as long as the object;
// the destructor removes it with everything in it.
class TemporaryFolder {
public:
    TemporaryFolder()
    {
        std::string pattern = "/tmp/tarnvel-test-XXXXXX";
        if (::mkdtemp(pattern.data()) == nullptr) {
            throw std::runtime_error("cannot create a temporary folder under /tmp");
        }
        path = pattern;
    }
    ~TemporaryFolder()
    {
        // A test may have taken permissions away; give them back, each folder
        // before the iterator enters it, so the contents can go without root.
        namespace fs = std::filesystem;
        std::error_code ignored;
        fs::permissions(path, fs::perms::owner_all, fs::perm_options::add, ignored);
        for (fs::recursive_directory_iterator it(path, ignored), end; !ignored && it != end; it.increment(ignored)) {
            if (it->is_directory(ignored) && !it->is_symlink(ignored)) {
                fs::permissions(it->path(), fs::perms::owner_all, fs::perm_options::add, ignored);
            }
        }
        fs::remove_all(path, ignored);
    }
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;

    // The folder's absolute path, without a trailing '/'.
    const std::string& Path() const { return path; }
    // The path of `name` inside the folder; nothing is created.
    std::string FilePath(const std::string& name) const { return path + "/" + name; }

private:
    std::string path;
};
