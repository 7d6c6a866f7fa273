#include "foundation/AppException.h"
#include "foundation/Tools.h"
#include "support/TemporaryFolder.h"

#include "support/RaisedCode.h"
#include "support/Unprivileged.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <initializer_list>
#include <iterator>
#include <map>
#include <optional>
#include <string>

#include <grp.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

void WriteFile(const std::string& path, const std::string& contents)
{
    std::ofstream file(path, std::ios::binary | std::ios::trunc);
    file << contents;
    ASSERT_TRUE(file.good()) << path;
}

std::string ReadFile(const std::string& path)
{
    std::ifstream file(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
}

size_t CountEntries(const std::string& folder)
{
    return static_cast<size_t>(std::distance(std::filesystem::directory_iterator(folder),
                                             std::filesystem::directory_iterator()));
}

// Sets or unsets environment variables for one test and puts the former values
// back afterwards, so the tests do not depend on who runs them.
class EnvironmentGuard {
public:
    explicit EnvironmentGuard(std::initializer_list<const char*> names)
    {
        for (const char* name : names) {
            const char* value = std::getenv(name);
            saved[name] = value ? std::optional<std::string>(value) : std::nullopt;
            ::unsetenv(name);
        }
    }
    ~EnvironmentGuard()
    {
        for (const auto& [name, value] : saved) {
            if (value) {
                ::setenv(name.c_str(), value->c_str(), 1);
            } else {
                ::unsetenv(name.c_str());
            }
        }
    }
    void Set(const char* name, const std::string& value) { ::setenv(name, value.c_str(), 1); }
    void Unset(const char* name) { ::unsetenv(name); }

private:
    std::map<std::string, std::optional<std::string>> saved;
};

class CurrentDirectoryGuard {
public:
    CurrentDirectoryGuard() : saved(std::filesystem::current_path()) {}
    ~CurrentDirectoryGuard() { std::filesystem::current_path(saved); }

private:
    std::filesystem::path saved;
};

} // namespace

TEST(ToolsFilesTest, EOLStyleIsDecidedByTheFirstLineFeed)
{
    TemporaryFolder folder;
    const std::string path = folder.FilePath("settings.cfg");
    const std::string filler(511, 'a');
    const struct {
        std::string contents;
        Tools::EOLStyle style;
    } cases[] = {
        {"\nabc\r\n", Tools::EOLUnix},                    // LF as the very first byte
        {"\r\n", Tools::EOLWindows},
        {"abc\r\n", Tools::EOLWindows},
        {"abc\n", Tools::EOLUnix},
        {"a\r\nb\nc\n", Tools::EOLWindows},               // mixed: the first line decides
        {"a\nb\r\nc\r\n", Tools::EOLUnix},
        {"a\r\rb\n", Tools::EOLUnix},                     // CR not directly in front
        {filler + "\r\n", Tools::EOLWindows},             // CR byte 512, LF byte 513
        {filler + "x\n", Tools::EOLUnix},
        {filler + "\rx\n", Tools::EOLUnix},
        {std::string(1500, 'b') + "\r\nrest\n", Tools::EOLWindows},
        {"", Tools::EOLUnknown},
        {"no line end", Tools::EOLUnknown},
        {"old\rmac\r", Tools::EOLUnknown},
        {std::string(1024, 'c'), Tools::EOLUnknown},
    };
    for (const auto& testCase : cases) {
        WriteFile(path, testCase.contents);
        EXPECT_EQ(Tools::GetEOLStyle(path), testCase.style) << testCase.contents.size() << " bytes";
    }
    EXPECT_EQ(CodeRaisedBy([&] { Tools::GetEOLStyle(folder.FilePath("missing")); }), AppException::CannotOpenFile);
}

TEST(ToolsFilesTest, NormalizeEOLBringsFilesToCrLfAndRefusesFilesWithoutLineEnds)
{
    TemporaryFolder folder;
    const std::string path = folder.FilePath("settings.cfg");

    WriteFile(path, "a\r\nb\nc\n");
    Tools::NormalizeEOL(path);
    EXPECT_EQ(ReadFile(path), "a\r\nb\nc\n");

    WriteFile(path, "a\nb\n\nc");
    Tools::NormalizeEOL(path);
    EXPECT_EQ(ReadFile(path), "a\r\nb\r\n\r\nc");
    EXPECT_EQ(Tools::GetEOLStyle(path), Tools::EOLWindows);

    // LF first: every LF gets a CR, so the CR LF line ends in CR CR LF.
    WriteFile(path, "a\nb\r\nc\n");
    Tools::NormalizeEOL(path);
    EXPECT_EQ(ReadFile(path), "a\r\nb\r\r\nc\r\n");

    for (const char* contents : {"", "single line without end", "x\r"}) {
        WriteFile(path, contents);
        EXPECT_EQ(CodeRaisedBy([&] { Tools::NormalizeEOL(path); }), AppException::UnsupportedEOLStyle) << contents;
        EXPECT_EQ(ReadFile(path), contents);
    }
    EXPECT_EQ(CodeRaisedBy([&] { Tools::NormalizeEOL(folder.FilePath("missing")); }), AppException::CannotOpenFile);
    EXPECT_FALSE(Tools::FileExists(folder.FilePath("missing")));
    EXPECT_EQ(CountEntries(folder.Path()), 1u);
}

TEST(ToolsFilesTest, ConvertEOLToUnixDropsEveryCarriageReturn)
{
    TemporaryFolder folder;
    const std::string path = folder.FilePath("file.txt");
    WriteFile(path, "a\r\nb\rc\r\n\r\n");
    Tools::ConvertEOL(path, Tools::EOLWindows, Tools::EOLUnix);
    EXPECT_EQ(ReadFile(path), "a\nbc\n\n");
    Tools::ConvertEOL(path, Tools::EOLUnix, Tools::EOLWindows);
    EXPECT_EQ(ReadFile(path), "a\r\nbc\r\n\r\n");
    EXPECT_EQ(CodeRaisedBy([&] { Tools::ConvertEOL(folder.FilePath("missing"), Tools::EOLUnix, Tools::EOLWindows); }),
              AppException::CannotOpenFile);
}

TEST(ToolsFilesTest, SanitizePathDropsForbiddenCharactersSlashRunsAndLaterColons)
{
    EXPECT_EQ(Tools::SanitizePath("C:/logs//a?.txt"), "C:/logs/a.txt");
    EXPECT_EQ(Tools::SanitizePath("C:\\logs\\\\a.txt"), "C:/logs/a.txt");
    EXPECT_EQ(Tools::SanitizePath("/var//log\\/\\\\x.log"), "/var/log/x.log");
    EXPECT_EQ(Tools::SanitizePath("C:/a:b/c:d"), "C:/ab/cd");
    EXPECT_EQ(Tools::SanitizePath("a\"b*c<d>e?f|g"), "abcdefg");
    EXPECT_EQ(Tools::SanitizePath("logs//"), "logs/");
    EXPECT_EQ(Tools::SanitizePath("\\\\server\\share"), "/server/share");
    EXPECT_EQ(Tools::SanitizePath("my log.txt"), "my log.txt");
    EXPECT_EQ(Tools::SanitizePath(""), "");
}

TEST(ToolsFilesTest, AppendToPathJoinsWithOneSlash)
{
    EXPECT_EQ(Tools::AppendToPath("/var/lib", "x"), "/var/lib/x");
    EXPECT_EQ(Tools::AppendToPath("/var/lib/", "x"), "/var/lib/x");
    EXPECT_EQ(Tools::AppendToPath("/var/lib//", "//x/y"), "/var/lib/x/y");
    EXPECT_EQ(Tools::AppendToPath("/", "x"), "/x");
    EXPECT_EQ(Tools::AppendToPath("/", "/x"), "/x");
    EXPECT_EQ(Tools::AppendToPath("", "x"), "x");
    EXPECT_EQ(Tools::AppendToPath("relative", "Tarnvel/DHCP Server"), "relative/Tarnvel/DHCP Server");
}

TEST(ToolsFilesTest, FileAndFolderQueriesAndCurrentDirectory)
{
    TemporaryFolder folder;
    const CurrentDirectoryGuard restoreCurrent;
    const std::string file = folder.FilePath("file");
    const std::string sub = folder.FilePath("sub");
    WriteFile(file, "x");

    EXPECT_TRUE(Tools::FileExists(file));
    EXPECT_FALSE(Tools::DirectoryExists(file));
    EXPECT_TRUE(Tools::FileExists(folder.Path()));
    EXPECT_TRUE(Tools::DirectoryExists(folder.Path()));
    EXPECT_FALSE(Tools::FileExists(sub));
    EXPECT_FALSE(Tools::DirectoryExists(sub));

    Tools::CreateDirectory(sub);
    EXPECT_TRUE(Tools::DirectoryExists(sub));
    Tools::CreateDirectory(sub); // exists already: ignored
    Tools::CreateDirectory(folder.FilePath("a/b")); // one level only: ignored
    EXPECT_FALSE(Tools::FileExists(folder.FilePath("a")));

    Tools::SetCurrentDirectory(sub);
    EXPECT_EQ(Tools::GetCurrentDirectory(), sub);
    Tools::SetCurrentDirectory(folder.FilePath("missing")); // ignored
    EXPECT_EQ(Tools::GetCurrentDirectory(), sub);

    std::string contents = "untouched";
    EXPECT_FALSE(Tools::ReadWholeFile(folder.FilePath("missing"), contents));
    EXPECT_TRUE(Tools::ReadWholeFile(file, contents));
    EXPECT_EQ(contents, "x");
}

TEST(ToolsFilesTest, TempDirectoryComesFromTEMPOrTheUserStateFolder)
{
    TemporaryFolder folder;
    EnvironmentGuard environment{"TEMP", "HOME", "XDG_STATE_HOME"};

    environment.Set("TEMP", "/var/tmp/leases");
    EXPECT_EQ(Tools::GetTempDirectory(), "/var/tmp/leases/");
    environment.Set("TEMP", "/var/tmp/leases/");
    EXPECT_EQ(Tools::GetTempDirectory(), "/var/tmp/leases/");
    EXPECT_EQ(Tools::GetEnvironmentVariable("TEMP"), "/var/tmp/leases/");

    environment.Unset("TEMP");
    EXPECT_EQ(Tools::GetEnvironmentVariable("TEMP"), "");
    EXPECT_EQ(CodeRaisedBy([] { Tools::GetTempDirectory(); }), AppException::CannotGetKnownDirectory);

    const std::string home = folder.FilePath("home");
    environment.Set("HOME", home);
    EXPECT_EQ(Tools::GetTempDirectory(), home + "/.local/state/quorvy/");
    EXPECT_TRUE(Tools::DirectoryExists(home + "/.local/state/quorvy"));

    const std::string state = folder.FilePath("state");
    environment.Set("XDG_STATE_HOME", state);
    EXPECT_EQ(Tools::GetTempDirectory(), state + "/quorvy/");
    EXPECT_TRUE(Tools::DirectoryExists(state + "/quorvy"));

    // A relative XDG path is not trusted; an empty TEMP counts as unset.
    environment.Set("XDG_STATE_HOME", "relative/state");
    environment.Set("TEMP", "");
    EXPECT_EQ(Tools::GetTempDirectory(), home + "/.local/state/quorvy/");
}

TEST(ToolsFilesTest, DataDirectoryIsTheCurrentFolderUnlessThatIsAProgramFolder)
{
    TemporaryFolder folder;
    const CurrentDirectoryGuard restoreCurrent;
    EnvironmentGuard environment{"HOME", "XDG_DATA_HOME"};
    const std::string home = folder.FilePath("home");
    const std::string work = folder.FilePath("work");
    std::filesystem::create_directory(home);
    std::filesystem::create_directory(work);
    environment.Set("HOME", home);
    const std::string underHome = home + "/.local/share/Tarnvel/DHCP Server";

    Tools::SetCurrentDirectory(work);
    EXPECT_EQ(Tools::GetDataDirectory(), work);
    EXPECT_FALSE(Tools::FileExists(home + "/.local"));

    for (const char* programFolder : {"/", "/usr", "/usr/bin", "/opt"}) {
        Tools::SetCurrentDirectory(programFolder);
        ASSERT_EQ(Tools::GetCurrentDirectory(), programFolder);
        EXPECT_EQ(Tools::GetDataDirectory(), underHome) << programFolder;
    }
    EXPECT_TRUE(Tools::DirectoryExists(underHome));

    // The home folder itself, also when HOME has a trailing slash or goes
    // through a symbolic link, but not a folder inside it.
    Tools::SetCurrentDirectory(home);
    EXPECT_EQ(Tools::GetDataDirectory(), underHome);
    environment.Set("HOME", home + "/");
    EXPECT_EQ(Tools::GetDataDirectory(), underHome);
    const std::string link = folder.FilePath("link-to-home");
    std::filesystem::create_directory_symlink(home, link);
    environment.Set("HOME", link);
    EXPECT_EQ(Tools::GetDataDirectory(), link + "/.local/share/Tarnvel/DHCP Server");
    environment.Set("HOME", home);
    Tools::SetCurrentDirectory(home + "/.local");
    EXPECT_EQ(Tools::GetDataDirectory(), home + "/.local");

    const std::string data = folder.FilePath("xdg-data");
    environment.Set("XDG_DATA_HOME", data);
    Tools::SetCurrentDirectory("/usr");
    EXPECT_EQ(Tools::GetDataDirectory(), data + "/Tarnvel/DHCP Server");
    EXPECT_TRUE(Tools::DirectoryExists(data + "/Tarnvel/DHCP Server"));

    environment.Unset("XDG_DATA_HOME");
    environment.Unset("HOME");
    EXPECT_EQ(CodeRaisedBy([] { Tools::GetDataDirectory(); }), AppException::CannotGetKnownDirectory);
    Tools::SetCurrentDirectory(work);
    EXPECT_EQ(Tools::GetDataDirectory(), work);
}

TEST(ToolsFilesTest, ReplaceFileContentsWritesWholeFilesAndKeepsModeAndLinks)
{
    TemporaryFolder folder;
    const std::string path = folder.FilePath("leases.dat");

    ASSERT_TRUE(Tools::ReplaceFileContents(path, std::string("new\0file", 8)));
    EXPECT_EQ(ReadFile(path), std::string("new\0file", 8));

    ASSERT_TRUE(Tools::ReplaceFileContents(path, ""));
    EXPECT_EQ(ReadFile(path), "");

    ::chmod(path.c_str(), 0640);
    const std::string big(100000, 'z');
    ASSERT_TRUE(Tools::ReplaceFileContents(path, big));
    EXPECT_EQ(ReadFile(path), big);
    struct stat status;
    ASSERT_EQ(::stat(path.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777, 0640u);

    // A symbolic link stays a link, and its target gets the new contents.
    const std::string link = folder.FilePath("settings-link.cfg");
    std::filesystem::create_symlink(path, link);
    ASSERT_TRUE(Tools::ReplaceFileContents(link, "through the link"));
    EXPECT_TRUE(std::filesystem::is_symlink(link));
    EXPECT_EQ(ReadFile(path), "through the link");

    // No temporary file is left behind.
    EXPECT_EQ(CountEntries(folder.Path()), 2u);
}

TEST(ToolsFilesTest, ReplaceFileContentsFailsCleanlyOnADirectoryTarget)
{
    TemporaryFolder folder;
    const std::string target = folder.FilePath("settings.cfg");
    std::filesystem::create_directory(target);
    WriteFile(folder.FilePath("settings.cfg/inside"), "keep");

    EXPECT_FALSE(Tools::ReplaceFileContents(target, "new"));
    EXPECT_TRUE(Tools::DirectoryExists(target));
    EXPECT_EQ(ReadFile(folder.FilePath("settings.cfg/inside")), "keep");
    EXPECT_EQ(CountEntries(folder.Path()), 1u);

    EXPECT_FALSE(Tools::ReplaceFileContents(folder.FilePath("missing-folder/file"), "new"));
    EXPECT_EQ(CountEntries(folder.Path()), 1u);
}

TEST(ToolsFilesTest, ReplaceFileContentsLeavesTheOldFileInAFolderWithoutWriteAccess)
{
    TemporaryFolder folder;
    const std::string locked = folder.FilePath("locked");
    const std::string path = locked + "/settings.cfg";
    std::filesystem::create_directory(locked);
    WriteFile(path, "old\n");
    ::chmod(path.c_str(), 0666);
    ::chmod(locked.c_str(), 0555);
    ::chmod(folder.Path().c_str(), 0755);

    // Exit codes: bit 0 set when the write was refused, bit 1 when the line
    // end conversion raised FileWritingError.
    const int result = RunUnprivileged([&] {
        const bool refused = !Tools::ReplaceFileContents(path, "new\n");
        const bool conversionRefused =
            CodeRaisedBy([&] { Tools::NormalizeEOL(path); }) == AppException::FileWritingError;
        return (refused ? 1 : 0) | (conversionRefused ? 2 : 0);
    });
    if (result < 0) {
        GTEST_SKIP() << "cannot drop root privileges to test a folder without write access";
    }
    EXPECT_EQ(result, 3);
    EXPECT_EQ(ReadFile(path), "old\n");
    EXPECT_EQ(CountEntries(locked), 1u);
}
