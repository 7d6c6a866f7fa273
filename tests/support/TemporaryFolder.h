#pragma once

#include <string>

// A fresh, uniquely named folder under /tmp that lives as long as the object;
// the destructor removes it with everything in it.
class TemporaryFolder {
public:
    TemporaryFolder();
    ~TemporaryFolder();

    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;

    // The folder's absolute path, without a trailing '/'.
    const std::string& Path() const { return path; }
    // The path of `name` inside the folder; nothing is created.
    std::string FilePath(const std::string& name) const { return path + "/" + name; }

private:
    std::string path;
};
