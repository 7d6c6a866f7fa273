#include "foundation/Tools.h"

#include "support/FileText.h"
#include "support/RaisedCode.h"
#include "support/TemporaryFolder.h"

#include <gtest/gtest.h>

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <iterator>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <sys/resource.h>
#include <sys/stat.h>

namespace {

size_t CountEntries(const std::string& folder)
{
    return static_cast<size_t>(std::distance(std::filesystem::directory_iterator(folder), {}));
}

// Clears HOME, TEMP and the XDG folders for one test; puts them and the current folder back.
struct EnvironmentGuard {
    static constexpr const char* NAMES[] = {"TEMP", "HOME", "XDG_STATE_HOME", "XDG_DATA_HOME"};

    EnvironmentGuard()
    {
        for (const char* name : NAMES) {
            saved.push_back(std::getenv(name) ? std::optional<std::string>(std::getenv(name)) : std::nullopt);
            ::unsetenv(name);
        }
    }
    ~EnvironmentGuard()
    {
        for (size_t i = 0; i < saved.size(); ++i) {
            saved[i] ? ::setenv(NAMES[i], saved[i]->c_str(), 1) : ::unsetenv(NAMES[i]);
        }
        std::filesystem::current_path(current);
    }

    std::vector<std::optional<std::string>> saved;
    std::filesystem::path current = std::filesystem::current_path();
};

} // namespace

TEST(ToolsFilesTest, LineEndsAreDetectedNormalizedAndConverted)
{
    TemporaryFolder folder;
    const std::string path = folder.FilePath("settings.cfg");
    // The byte before the first line feed decides.
    const std::pair<std::string, Tools::EOLStyle> styles[] = {
        {"\nabc\r\n", Tools::EOLUnix},        {"a\r\nb\nc\n", Tools::EOLWindows},
        {"a\r\rb\n", Tools::EOLUnix},          {std::string(511, 'a') + "\r\n", Tools::EOLWindows}, // CR byte 512
        {std::string(1500, 'b') + "\r\nrest\n", Tools::EOLWindows},
        {"", Tools::EOLUnknown},               {"old\rmac\r", Tools::EOLUnknown},
    };
    for (const auto& [contents, style] : styles) {
        ASSERT_TRUE(WriteText(path, contents));
        EXPECT_EQ(Tools::GetEOLStyle(path), style) << contents.size() << " bytes";
    }
    EXPECT_EQ(CodeRaisedBy([&] { Tools::GetEOLStyle(folder.FilePath("missing")); }), AppException::CannotOpenFile);

    const std::pair<const char*, const char*> normalized[] = {
        {"a\r\nb\nc\n", "a\r\nb\nc\n"},       // CR LF first: left alone
        {"a\nb\r\nc\n", "a\r\nb\r\r\nc\r\n"}, // LF first: every LF gets a CR
    };
    for (const auto& [before, after] : normalized) {
        ASSERT_TRUE(WriteText(path, before));
        Tools::NormalizeEOL(path);
        EXPECT_EQ(ReadText(path), after) << before;
    }
    for (const char* contents : {"", "single line without end", "x\r"}) {
        ASSERT_TRUE(WriteText(path, contents));
        EXPECT_EQ(CodeRaisedBy([&] { Tools::NormalizeEOL(path); }), AppException::UnsupportedEOLStyle) << contents;
        EXPECT_EQ(ReadText(path), contents);
    }
    ASSERT_TRUE(WriteText(path, "a\r\nb\rc\r\n"));
    Tools::ConvertEOL(path, Tools::EOLWindows, Tools::EOLUnix);
    EXPECT_EQ(ReadText(path), "a\nbc\n"); // every CR goes
    EXPECT_EQ(CountEntries(folder.Path()), 1u);
}

TEST(ToolsFilesTest, SanitizeAndAppendPaths)
{
    const std::pair<const char*, const char*> cases[] = {
        {"C:/logs//a?.txt", "C:/logs/a.txt"},  {"/var//log\\/\\\\x.log", "/var/log/x.log"},
        {"C:/a:b/c:d", "C:/ab/cd"}, // only the first ':' stays
        {"a\"b*c<d>e?f|g", "abcdefg"},         {"\\\\server\\share", "/server/share"},
        {"my log.txt", "my log.txt"},
    };
    for (const auto& [path, sanitized] : cases) {
        EXPECT_EQ(Tools::SanitizePath(path), sanitized) << path;
    }
    EXPECT_EQ(Tools::AppendToPath("/var/lib//", "//x/y"), "/var/lib/x/y");
    EXPECT_EQ(Tools::AppendToPath("", "x"), "x");
}

TEST(ToolsFilesTest, TempAndDataDirectoriesFollowTheEnvironment)
{
    TemporaryFolder folder;
    const EnvironmentGuard environment;
    Tools::SetCurrentDirectory("/");
    EXPECT_EQ(CodeRaisedBy([] { Tools::GetTempDirectory(); }), AppException::CannotGetKnownDirectory);
    EXPECT_EQ(CodeRaisedBy([] { Tools::GetDataDirectory(); }), AppException::CannotGetKnownDirectory);
    ::setenv("TEMP", "/var/tmp/leases", 1);
    EXPECT_EQ(Tools::GetTempDirectory(), "/var/tmp/leases/");

    const std::string home = folder.FilePath("home");
    std::filesystem::create_directories(home + "/inside");
    ::setenv("HOME", home.c_str(), 1);
    ::setenv("TEMP", "", 1); // empty counts as unset
    EXPECT_EQ(Tools::GetTempDirectory(), home + "/.local/state/quorvy/");
    EXPECT_TRUE(Tools::DirectoryExists(home + "/.local/state/quorvy"));
    ::setenv("XDG_STATE_HOME", folder.FilePath("state").c_str(), 1);
    EXPECT_EQ(Tools::GetTempDirectory(), folder.FilePath("state") + "/quorvy/");
    ::setenv("XDG_STATE_HOME", "relative/state", 1); // a relative path is not trusted
    EXPECT_EQ(Tools::GetTempDirectory(), home + "/.local/state/quorvy/");

    // The data folder is the current one, unless that is a program folder or
    // the home folder itself (also through a link), but not a folder inside it.
    const std::string underHome = home + "/.local/share/Tarnvel/DHCP Server";
    Tools::SetCurrentDirectory(home + "/inside");
    EXPECT_EQ(Tools::GetDataDirectory(), home + "/inside");
    EXPECT_FALSE(Tools::FileExists(home + "/.local/share"));
    for (const std::string programFolder : {"/", "/usr/bin", "/opt", home.c_str()}) {
        Tools::SetCurrentDirectory(programFolder);
        EXPECT_EQ(Tools::GetDataDirectory(), underHome) << programFolder;
    }
    EXPECT_TRUE(Tools::DirectoryExists(underHome));
    const std::string link = folder.FilePath("link-to-home");
    std::filesystem::create_directory_symlink(home, link);
    ::setenv("HOME", (link + "/").c_str(), 1);
    EXPECT_EQ(Tools::GetDataDirectory(), link + "/.local/share/Tarnvel/DHCP Server");
    ::setenv("XDG_DATA_HOME", folder.FilePath("xdg").c_str(), 1);
    EXPECT_EQ(Tools::GetDataDirectory(), folder.FilePath("xdg") + "/Tarnvel/DHCP Server");
    EXPECT_TRUE(Tools::DirectoryExists(folder.FilePath("xdg/Tarnvel/DHCP Server")));
}

TEST(ToolsFilesTest, ReplaceFileContentsKeepsModeAndLinksOrLeavesTheOldFile)
{
    TemporaryFolder folder;
    const std::string path = folder.FilePath("leases.dat");
    ASSERT_TRUE(Tools::ReplaceFileContents(path, std::string("new\0file", 8)));
    EXPECT_EQ(ReadText(path), std::string("new\0file", 8));
    ::chmod(path.c_str(), 0640);
    const std::string link = folder.FilePath("settings-link.cfg");
    std::filesystem::create_symlink(path, link);
    ASSERT_TRUE(Tools::ReplaceFileContents(link, std::string(100000, 'z')));
    EXPECT_TRUE(std::filesystem::is_symlink(link));
    EXPECT_EQ(ReadText(path), std::string(100000, 'z'));
    struct stat status;
    ASSERT_EQ(::stat(path.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777, 0640u);
    // A folder as the target, and a folder that does not exist.
    std::filesystem::create_directory(folder.FilePath("dir"));
    EXPECT_FALSE(Tools::ReplaceFileContents(folder.FilePath("dir"), "new"));
    EXPECT_FALSE(Tools::ReplaceFileContents(folder.FilePath("missing-folder/file"), "new"));
    EXPECT_EQ(CountEntries(folder.Path()), 3u); // no temporary file left behind

    // The new contents cannot be written in full (a file size limit stops the
    // temporary file, also for root): the old file stays whole, no temporary
    // file is left, and a line end conversion raises.
    const std::string old(40, '\n');
    ASSERT_TRUE(WriteText(path, old));
    struct rlimit original {};
    ASSERT_EQ(::getrlimit(RLIMIT_FSIZE, &original), 0);
    const auto previousHandler = std::signal(SIGXFSZ, SIG_IGN);
    struct rlimit small = original;
    small.rlim_cur = 64;
    ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &small), 0);
    const bool replaced = Tools::ReplaceFileContents(path, std::string(100, 'x'));
    const int converted = CodeRaisedBy([&] { Tools::NormalizeEOL(path); });
    ::setrlimit(RLIMIT_FSIZE, &original);
    std::signal(SIGXFSZ, previousHandler);
    EXPECT_FALSE(replaced);
    EXPECT_EQ(converted, AppException::FileWritingError);
    EXPECT_EQ(ReadText(path), old);
    EXPECT_EQ(CountEntries(folder.Path()), 3u);
}
