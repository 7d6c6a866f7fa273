#pragma once

#include "foundation/ByteString.h"

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

// Free helpers shared by the core and the desktop application: strings,
// 64-bit integer bytes, text files, paths and the program's folders.
namespace Tools {

// ---- Strings ---------------------------------------------------------------

// Removes leading and trailing blanks (character 32 only; tabs stay).
void Trim(std::string& text);
// Splits at `separator` after folding every run of separators into one. A
// separator at either end leaves an empty item there; the list is never empty.
std::vector<std::string> Split(const std::string& text, char separator);
std::vector<std::string> SplitBySpace(const std::string& text);
int CountChar(const std::string& text, char character);
void ToLower(std::string& text);
bool StartsWith(const std::string& text, const std::string& prefix);
// Decimal digits only: no sign, no blanks, not empty. A value beyond the
// signed 32-bit range is refused like any other bad text.
// Raises StringNotValidInteger.
int32_t StringToInt(const std::string& text);
std::string IntToString(int64_t value);
bool IsPowerOfTwo(uint32_t value);

// ---- Bytes -----------------------------------------------------------------

// Two's complement, least significant byte first, 8 bytes.
ByteString Int64ToBytes(int64_t value);
// Precondition: serializedData.size() == 8.
int64_t BytesToInt64(const ByteString& serializedData);

// ---- End of line -----------------------------------------------------------

enum EOLStyle { EOLWindows = 0, EOLUnix = 1, EOLUnknown = 2 };

// The style of the first line end of the file. Raises CannotOpenFile,
// FileReadingError.
EOLStyle GetEOLStyle(const std::string& path);
// Rewrites the file with the other style (LF -> CR LF, or every CR dropped).
// Raises CannotOpenFile, FileReadingError, FileWritingError.
void ConvertEOL(const std::string& path, EOLStyle from, EOLStyle to);
// Brings the file to CR LF unless it already is. Raises UnsupportedEOLStyle
// for a file without any line end, and what the two above raise.
void NormalizeEOL(const std::string& path);

// ---- Files and folders -----------------------------------------------------

bool FileExists(const std::string& path);
// Device, inode, size and modification time of the file, as one text. Equal
// texts mean the file was not replaced or written in between. Empty when the
// file cannot be queried, or when it was modified less than 50 ms ago: the
// file system stamps times by a coarse clock tick, so a write within that
// tick could leave the same text behind.
std::string FileFingerprint(const std::string& path);
bool DirectoryExists(const std::string& path);
// One level; a failure is ignored.
void CreateDirectory(const std::string& path);
// A failure is ignored.
void SetCurrentDirectory(const std::string& path);
std::string GetCurrentDirectory();
// Joins with exactly one '/' between the two parts.
std::string AppendToPath(const std::string& path, const std::string& more);
// The variable's value; empty when it is not set.
std::string GetEnvironmentVariable(const std::string& name);
// $TEMP with '/' appended, else ${XDG_STATE_HOME:-$HOME/.local/state}/quorvy/,
// which survives reboots, created if missing. Raises CannotGetKnownDirectory
// when neither TEMP nor HOME is set.
std::string GetTempDirectory();
// Where settings and the default log live: the current folder, unless that is
// a program folder ("/", anything starting with /usr or /opt, or the home
// folder itself); then ${XDG_DATA_HOME:-$HOME/.local/share}/Tarnvel/DHCP Server,
// created if missing. Raises CannotGetKnownDirectory when that is needed and
// HOME is not set.
std::string GetDataDirectory();
// Drops " * < > ? |, writes each run of '/' or '\' as one '/', keeps only the
// first ':'.
std::string SanitizePath(const std::string& path);

// Reads the whole file. Returns false when it cannot be opened or read.
bool ReadWholeFile(const std::string& path, std::string& contents);
// Writes a temporary file in the same folder, flushes it to disk and renames
// it over `path`, so the old file stays intact unless the new one is complete.
// The new file keeps the old one's mode, and a symbolic link at `path` stays a
// link to the rewritten file. Returns false (and leaves the old file) on any
// failure.
bool ReplaceFileContents(const std::string& path, const std::string& contents);
// The same, with `beforeRename` called once the new contents are on disk under
// their temporary name and before they take the place of the old file; when
// it returns false nothing is replaced and the result is false.
bool ReplaceFileContents(const std::string& path, const std::string& contents,
                         const std::function<bool()>& beforeRename);
// Makes the latest creations, renames and removals of names in the folder of
// `path` durable; false when the folder cannot be synced.
bool SyncFolderOf(const std::string& path);

// ---- Process ---------------------------------------------------------------

// True when an argument, trimmed and lower-cased, equals the trimmed and
// lower-cased parameter. Index 0, the program's path, is visited too.
bool ParameterExists(int argumentCount, const char* const* arguments, const std::string& parameter);
void SleepMilliseconds(unsigned milliseconds);

} // namespace Tools
