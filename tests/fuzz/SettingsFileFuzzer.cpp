// Feeds arbitrary bytes to the settings file reader, wired as the server wires
// it. Whatever the reader leaves behind must be a model that Save writes and
// Load reads back unchanged: saving the reloaded model writes the same file.
#include "config/SettingsFile.h"
#include "foundation/AppException.h"
#include "foundation/Tools.h"

#include "support/AllocationWorld.h"

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <system_error>

#include <unistd.h>

namespace {

// One folder for each process: parallel fuzzing jobs never share files.
std::string workFolder;

void RemoveWorkFolder()
{
    std::error_code ignored;
    std::filesystem::remove_all(workFolder, ignored);
}

struct Server : AllocationWorld {
    Server() { addresses.SetLeasesFilePath(workFolder + "/leases.dat"); }

    // True when the file loads without any complaint.
    bool Load(const std::string& path)
    {
        try {
            settings.Load(path);
            return true;
        } catch (const AppException&) {
            return false;
        }
    }

    // The saved file's text; false when it cannot be written (a full disk, say).
    bool Save(const std::string& path, std::string& text) const
    {
        try {
            settings.Save(path);
        } catch (const AppException&) {
            return false;
        }
        return Tools::ReadWholeFile(path, text);
    }
};

void Require(bool condition, const char* what)
{
    if (!condition) {
        std::fprintf(stderr, "settings round trip broken: %s\n", what);
        std::abort();
    }
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    // Every save syncs to disk; TMPDIR may point at a memory file system to run faster.
    const char* base = std::getenv("TMPDIR");
    std::string pattern = std::string(base != nullptr && *base != '\0' ? base : "/tmp") +
                          "/tarnvel-settings-fuzz-" + std::to_string(::getpid()) + "-XXXXXX";
    if (::mkdtemp(pattern.data()) == nullptr) {
        std::perror("mkdtemp");
        std::abort();
    }
    workFolder = pattern;
    std::atexit(RemoveWorkFolder);
    // The working directory stays: libFuzzer's corpus paths are relative to it.
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const std::string inputPath = workFolder + "/input.cfg";
    if (!std::ofstream(inputPath, std::ios::binary).write(reinterpret_cast<const char*>(data),
                                                          static_cast<std::streamsize>(size))) {
        return 0;
    }
    Server loaded;
    loaded.Load(inputPath);
    // A log path near the line limit comes back two quotes longer than the
    // limit; that line alone would be refused on reading, by design.
    const std::string logPath = loaded.settings.GetLogFilePath();
    if (logPath.size() > SettingsFile::MAX_LINE_LENGTH - std::string("LogFilePath \"\"").size()) {
        return 0;
    }
    // Cleaning a path drops a later ':' but folds only slashes that stood side
    // by side before, so "a/:/b" reads as "a//b" and is read back as "a/b". A
    // second cleaning changes nothing more.
    loaded.settings.SetLogFilePath(Tools::SanitizePath(logPath));
    std::string saved;
    std::string savedAgain;
    if (!loaded.Save(workFolder + "/saved.cfg", saved)) {
        return 0;
    }
    Server reloaded;
    Require(reloaded.Load(workFolder + "/saved.cfg"), "the saved file does not load cleanly");
    Require(reloaded.Save(workFolder + "/saved-again.cfg", savedAgain), "the reloaded settings cannot be saved");
    Require(saved == savedAgain, "the reloaded settings differ");
    return 0;
}
