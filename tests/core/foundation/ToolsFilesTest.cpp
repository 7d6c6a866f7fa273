#include "foundation/Tools.h"

#include "support/FileText.h"
#include "support/RaisedCode.h"
#include "support/ScopedEnvironment.h"
#include "support/TemporaryFolder.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <iterator>
#include <string>
#include <utility>

#include <sys/stat.h>

namespace {

size_t CountEntries(const std::string& folder)
{
    return static_cast<size_t>(std::distance(std::filesystem::directory_iterator(folder), {}));
}

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
    ScopedEnvironment environment;
    for (const char* name : {"TEMP", "HOME", "XDG_STATE_HOME", "XDG_DATA_HOME"}) {
        environment.Unset(name);
    }
    Tools::SetCurrentDirectory("/");
    EXPECT_EQ(CodeRaisedBy([] { Tools::GetTempDirectory(); }), AppException::CannotGetKnownDirectory);
    EXPECT_EQ(CodeRaisedBy([] { Tools::GetDataDirectory(); }), AppException::CannotGetKnownDirectory);
    environment.Set("TEMP", "/var/tmp/leases");
    EXPECT_EQ(Tools::GetTempDirectory(), "/var/tmp/leases/");

    const std::string home = folder.FilePath("home");
    std::filesystem::create_directories(home + "/inside");
    environment.Set("HOME", home);
    environment.Set("TEMP", ""); // empty counts as unset
    EXPECT_EQ(Tools::GetTempDirectory(), home + "/.local/state/quorvy/");
    EXPECT_TRUE(Tools::DirectoryExists(home + "/.local/state/quorvy"));
    environment.Set("XDG_STATE_HOME", folder.FilePath("state"));
    EXPECT_EQ(Tools::GetTempDirectory(), folder.FilePath("state") + "/quorvy/");
    environment.Set("XDG_STATE_HOME", "relative/state"); // a relative path is not trusted
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
    environment.Set("HOME", (link + "/"));
    EXPECT_EQ(Tools::GetDataDirectory(), link + "/.local/share/Tarnvel/DHCP Server");
    environment.Set("XDG_DATA_HOME", folder.FilePath("xdg"));
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
}
