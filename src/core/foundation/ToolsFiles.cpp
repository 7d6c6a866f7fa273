// The file side of Tools: line ends, folders, paths and whole-file I/O.
#include "foundation/Tools.h"

#include "foundation/AppException.h"
#include "foundation/Precondition.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <system_error>
#include <ctime>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace Tools {

namespace {

struct FileCloser {
    void operator()(std::FILE* file) const { std::fclose(file); }
};
using FilePointer = std::unique_ptr<std::FILE, FileCloser>;

FilePointer OpenForReading(const std::string& path)
{
    FilePointer file(std::fopen(path.c_str(), "rb"));
    if (!file) {
        throw AppException(AppException::CannotOpenFile);
    }
    return file;
}

std::string ReadAll(const std::string& path)
{
    const FilePointer file = OpenForReading(path);
    std::string contents;
    char chunk[4096];
    size_t count;
    while ((count = std::fread(chunk, 1, sizeof chunk, file.get())) > 0) {
        contents.append(chunk, count);
    }
    if (std::ferror(file.get())) {
        throw AppException(AppException::FileReadingError);
    }
    return contents;
}

bool WriteAll(int descriptor, const std::string& contents)
{
    size_t written = 0;
    while (written < contents.size()) {
        const ssize_t result = ::write(descriptor, contents.data() + written, contents.size() - written);
        if (result < 0) {
            if (errno == EINTR) {
                continue;
            }
            return false;
        }
        written += static_cast<size_t>(result);
    }
    return true;
}

bool IsSlash(char character)
{
    return character == '/' || character == '\\';
}

std::string HomeDirectory()
{
    return GetEnvironmentVariable("HOME");
}

// ${name:-$HOME/fallback}, or empty when neither is set. A relative value is
// ignored, as the XDG base directory rules ask: it would depend on the folder
// the program happens to be started in.
std::string XdgDirectory(const char* name, const char* fallbackUnderHome)
{
    const std::string value = GetEnvironmentVariable(name);
    if (!value.empty() && value.front() == '/') {
        return value;
    }
    const std::string home = HomeDirectory();
    return home.empty() ? std::string() : AppendToPath(home, fallbackUnderHome);
}

void CreateDirectories(const std::string& path)
{
    std::error_code ignored;
    std::filesystem::create_directories(path, ignored);
}

// True when both texts name the same existing folder, whatever trailing
// slashes or symbolic links either goes through.
bool IsSameFolder(const std::string& first, const std::string& second)
{
    std::error_code error;
    return !first.empty() && !second.empty() && std::filesystem::equivalent(first, second, error) && !error;
}

// The file a write to `path` must replace: the target of a symbolic link, so
// that renaming over it keeps the link; `path` itself otherwise.
std::string ResolveLinks(const std::string& path)
{
    std::error_code error;
    if (!std::filesystem::is_symlink(path, error)) {
        return path;
    }
    const auto target = std::filesystem::canonical(path, error);
    return error ? path : target.string();
}

} // namespace

EOLStyle GetEOLStyle(const std::string& path)
{
    const FilePointer file = OpenForReading(path);
    // The byte in front of the first LF decides, also across chunk borders.
    int previous = -1;
    char chunk[512];
    size_t count;
    while ((count = std::fread(chunk, 1, sizeof chunk, file.get())) > 0) {
        for (size_t i = 0; i < count; ++i) {
            if (chunk[i] == '\n') {
                return previous == '\r' ? EOLWindows : EOLUnix;
            }
            previous = static_cast<unsigned char>(chunk[i]);
        }
    }
    if (std::ferror(file.get())) {
        throw AppException(AppException::FileReadingError);
    }
    return EOLUnknown;
}

void ConvertEOL(const std::string& path, EOLStyle from, EOLStyle to)
{
    PRECONDITION(from != EOLUnknown && to != EOLUnknown && from != to);
    const std::string contents = ReadAll(path);
    std::string converted;
    converted.reserve(contents.size() + contents.size() / 16);
    for (const char character : contents) {
        if (to == EOLWindows && character == '\n') {
            converted += "\r\n";
        } else if (to == EOLUnix && character == '\r') {
            continue;
        } else {
            converted += character;
        }
    }
    if (!ReplaceFileContents(path, converted)) {
        throw AppException(AppException::FileWritingError);
    }
}

void NormalizeEOL(const std::string& path)
{
    switch (GetEOLStyle(path)) {
    case EOLUnknown:
        throw AppException(AppException::UnsupportedEOLStyle);
    case EOLUnix:
        ConvertEOL(path, EOLUnix, EOLWindows);
        break;
    case EOLWindows:
        break;
    }
}

bool FileExists(const std::string& path)
{
    struct stat status;
    return ::stat(path.c_str(), &status) == 0;
}

std::string FileFingerprint(const std::string& path)
{
    constexpr int64_t SETTLED_NANOSECONDS = 50'000'000;
    struct stat status;
    timespec now;
    if (::stat(path.c_str(), &status) != 0 || ::clock_gettime(CLOCK_REALTIME, &now) != 0) {
        return std::string();
    }
    const auto nanoseconds = [](const timespec& time) {
        return static_cast<int64_t>(time.tv_sec) * 1'000'000'000 + time.tv_nsec;
    };
    if (nanoseconds(now) - nanoseconds(status.st_mtim) < SETTLED_NANOSECONDS) {
        return std::string();
    }
    return std::to_string(status.st_dev) + ':' + std::to_string(status.st_ino) + ':' +
           std::to_string(status.st_size) + ':' + std::to_string(status.st_mtim.tv_sec) + '.' +
           std::to_string(status.st_mtim.tv_nsec);
}

bool DirectoryExists(const std::string& path)
{
    struct stat status;
    return ::stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

void CreateDirectory(const std::string& path)
{
    ::mkdir(path.c_str(), 0755);
}

void SetCurrentDirectory(const std::string& path)
{
    if (::chdir(path.c_str()) != 0) {
        // Ignored by design: the caller goes on in the folder it is in.
    }
}

std::string GetCurrentDirectory()
{
    std::error_code error;
    const auto path = std::filesystem::current_path(error);
    return error ? std::string() : path.string();
}

std::string AppendToPath(const std::string& path, const std::string& more)
{
    if (path.empty()) {
        return more;
    }
    size_t end = path.size();
    while (end > 1 && path[end - 1] == '/') {
        --end;
    }
    size_t start = 0;
    while (start < more.size() && more[start] == '/') {
        ++start;
    }
    const std::string head = path.substr(0, end);
    if (start == more.size()) {
        return head == "/" ? head : head + "/";
    }
    return (head == "/" ? head : head + "/") + more.substr(start);
}

std::string GetEnvironmentVariable(const std::string& name)
{
    const char* value = std::getenv(name.c_str());
    return value ? std::string(value) : std::string();
}

std::string GetTempDirectory()
{
    const std::string temp = GetEnvironmentVariable("TEMP");
    if (!temp.empty()) {
        return temp.back() == '/' ? temp : temp + "/";
    }
    const std::string state = XdgDirectory("XDG_STATE_HOME", ".local/state");
    if (state.empty()) {
        throw AppException(AppException::CannotGetKnownDirectory);
    }
    const std::string folder = AppendToPath(state, "quorvy");
    CreateDirectories(folder);
    return folder + "/";
}

std::string GetDataDirectory()
{
    // An unknown current folder (it was removed under us) is treated like a
    // program folder: the user's data folder is a known place to write to.
    const std::string current = GetCurrentDirectory();
    const bool programFolder = current.empty() || current == "/" || StartsWith(current, "/usr") ||
                               StartsWith(current, "/opt") || IsSameFolder(current, HomeDirectory());
    if (!programFolder) {
        return current;
    }
    const std::string data = XdgDirectory("XDG_DATA_HOME", ".local/share");
    if (data.empty()) {
        throw AppException(AppException::CannotGetKnownDirectory);
    }
    const std::string folder = AppendToPath(data, "Tarnvel/DHCP Server");
    CreateDirectories(folder);
    return folder;
}

std::string SanitizePath(const std::string& path)
{
    std::string result;
    result.reserve(path.size());
    bool colonSeen = false;
    for (size_t i = 0; i < path.size(); ++i) {
        const char character = path[i];
        switch (character) {
        case '"': case '*': case '<': case '>': case '?': case '|':
            break;
        case '/': case '\\':
            if (i + 1 >= path.size() || !IsSlash(path[i + 1])) {
                result += '/';
            }
            break;
        case ':':
            if (!colonSeen) {
                result += ':';
                colonSeen = true;
            }
            break;
        default:
            result += character;
        }
    }
    return result;
}

bool ReadWholeFile(const std::string& path, std::string& contents)
{
    try {
        contents = ReadAll(path);
        return true;
    } catch (const AppException&) {
        return false;
    }
}

bool SyncFolderOf(const std::string& path)
{
    const auto folder = std::filesystem::path(path).parent_path();
    const int descriptor = ::open(folder.empty() ? "." : folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (descriptor < 0) {
        return false;
    }
    const bool synced = ::fsync(descriptor) == 0;
    ::close(descriptor);
    return synced;
}

bool ReplaceFileContents(const std::string& path, const std::string& contents)
{
    return ReplaceFileContents(path, contents, [] { return true; });
}

bool ReplaceFileContents(const std::string& path, const std::string& contents,
                         const std::function<bool()>& beforeRename)
{
    const std::string target = ResolveLinks(path);
    // mkstemp creates 0600. The new file keeps the mode of the one it
    // replaces; a first file is an ordinary user file.
    struct stat old;
    const bool replacesFile = ::stat(target.c_str(), &old) == 0 && S_ISREG(old.st_mode);
    const mode_t mode = replacesFile ? (old.st_mode & 07777) : 0644;
    std::string temporary = target + ".XXXXXX";
    const int descriptor = ::mkstemp(temporary.data());
    if (descriptor < 0) {
        return false;
    }
    const bool written = ::fchmod(descriptor, mode) == 0 && WriteAll(descriptor, contents) && ::fsync(descriptor) == 0;
    const bool closed = ::close(descriptor) == 0;
    if (!written || !closed || !beforeRename() || ::rename(temporary.c_str(), target.c_str()) != 0) {
        ::unlink(temporary.c_str());
        return false;
    }
    SyncFolderOf(target);
    return true;
}

} // namespace Tools
