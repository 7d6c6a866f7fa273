#include "foundation/Tools.h"

#include "support/FileText.h"
#include "support/RaisedCode.h"
#include "support/TemporaryFolder.h"
#include "support/Unprivileged.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <initializer_list>
#include <iterator>
#include <map>
#include <optional>
#include <string>

#include <sys/stat.h>

namespace {

size_t CountEntries(const std::string& folder)
{
    return static_cast<size_t>(std::distance(std::filesystem::directory_iterator(folder), {}));
}

// Clears the named variables for one test and puts the former values back.
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
            value ? ::setenv(name.c_str(), value->c_str(), 1) : ::unsetenv(name.c_str());
        }
    }

private:
    std::map<std::string, std::optional<std::string>> saved;
};

class CurrentDirectoryGuard {
public:
    ~CurrentDirectoryGuard() { std::filesystem::current_path(saved); }

private:
    std::filesystem::path saved = std::filesystem::current_path();
};

} // namespace

TEST(ToolsFilesTest, EOLStyleIsDecidedByTheByteBeforeTheFirstLineFeed)
{
    TemporaryFolder folder;
    const std::string path = folder.FilePath("settings.cfg");
    const std::string filler(511, 'a');
    const struct {
        std::string contents;
        Tools::EOLStyle style;
    } cases[] = {
        {"\nabc\r\n", Tools::EOLUnix},        {"abc\r\n", Tools::EOLWindows},
        {"a\r\nb\nc\n", Tools::EOLWindows},    {"a\nb\r\nc\r\n", Tools::EOLUnix}, // mixed: the first decides
        {"a\r\rb\n", Tools::EOLUnix},          {filler + "\r\n", Tools::EOLWindows}, // CR byte 512, LF byte 513
        {filler + "\rx\n", Tools::EOLUnix},    {std::string(1500, 'b') + "\r\nrest\n", Tools::EOLWindows},
        {"", Tools::EOLUnknown},               {"old\rmac\r", Tools::EOLUnknown},
        {std::string(1024, 'c'), Tools::EOLUnknown},
    };
    for (const auto& row : cases) {
        ASSERT_TRUE(WriteText(path, row.contents));
        EXPECT_EQ(Tools::GetEOLStyle(path), row.style) << row.contents.size() << " bytes";
    }
    EXPECT_EQ(CodeRaisedBy([&] { Tools::GetEOLStyle(folder.FilePath("missing")); }), AppException::CannotOpenFile);
}

TEST(ToolsFilesTest, NormalizeAndConvertLineEnds)
{
    TemporaryFolder folder;
    const std::string path = folder.FilePath("settings.cfg");
    const struct {
        const char* before;
        const char* after;
    } normalized[] = {
        {"a\r\nb\nc\n", "a\r\nb\nc\n"},       // CR LF first: left alone
        {"a\nb\n\nc", "a\r\nb\r\n\r\nc"},
        {"a\nb\r\nc\n", "a\r\nb\r\r\nc\r\n"}, // LF first: every LF gets a CR
    };
    for (const auto& row : normalized) {
        ASSERT_TRUE(WriteText(path, row.before));
        Tools::NormalizeEOL(path);
        EXPECT_EQ(ReadText(path), row.after) << row.before;
    }
    for (const char* contents : {"", "single line without end", "x\r"}) {
        ASSERT_TRUE(WriteText(path, contents));
        EXPECT_EQ(CodeRaisedBy([&] { Tools::NormalizeEOL(path); }), AppException::UnsupportedEOLStyle) << contents;
        EXPECT_EQ(ReadText(path), contents);
    }
    EXPECT_EQ(CodeRaisedBy([&] { Tools::NormalizeEOL(folder.FilePath("missing")); }), AppException::CannotOpenFile);

    ASSERT_TRUE(WriteText(path, "a\r\nb\rc\r\n"));
    Tools::ConvertEOL(path, Tools::EOLWindows, Tools::EOLUnix);
    EXPECT_EQ(ReadText(path), "a\nbc\n"); // every CR goes
    EXPECT_EQ(CountEntries(folder.Path()), 1u);
}

TEST(ToolsFilesTest, SanitizeAndAppendPaths)
{
    const struct {
        const char* path;
        const char* sanitized;
    } cases[] = {
        {"C:/logs//a?.txt", "C:/logs/a.txt"},   {"C:\\logs\\\\a.txt", "C:/logs/a.txt"},
        {"/var//log\\/\\\\x.log", "/var/log/x.log"}, {"C:/a:b/c:d", "C:/ab/cd"}, // only the first ':' stays
        {"a\"b*c<d>e?f|g", "abcdefg"},          {"\\\\server\\share", "/server/share"},
        {"logs//", "logs/"},                    {"my log.txt", "my log.txt"}, {"", ""},
    };
    for (const auto& row : cases) {
        EXPECT_EQ(Tools::SanitizePath(row.path), row.sanitized) << row.path;
    }
    EXPECT_EQ(Tools::AppendToPath("/var/lib//", "//x/y"), "/var/lib/x/y");
    EXPECT_EQ(Tools::AppendToPath("/", "/x"), "/x");
    EXPECT_EQ(Tools::AppendToPath("", "x"), "x");
}

TEST(ToolsFilesTest, TempDirectoryComesFromTEMPOrTheUserStateFolder)
{
    TemporaryFolder folder;
    const EnvironmentGuard environment{"TEMP", "HOME", "XDG_STATE_HOME"};
    EXPECT_EQ(CodeRaisedBy([] { Tools::GetTempDirectory(); }), AppException::CannotGetKnownDirectory);

    ::setenv("TEMP", "/var/tmp/leases", 1);
    EXPECT_EQ(Tools::GetTempDirectory(), "/var/tmp/leases/");
    ::setenv("TEMP", "/var/tmp/leases/", 1);
    EXPECT_EQ(Tools::GetTempDirectory(), "/var/tmp/leases/");

    const std::string home = folder.FilePath("home");
    ::setenv("HOME", home.c_str(), 1);
    ::setenv("TEMP", "", 1); // empty counts as unset
    EXPECT_EQ(Tools::GetTempDirectory(), home + "/.local/state/quorvy/");
    EXPECT_TRUE(Tools::DirectoryExists(home + "/.local/state/quorvy"));

    ::setenv("XDG_STATE_HOME", folder.FilePath("state").c_str(), 1);
    EXPECT_EQ(Tools::GetTempDirectory(), folder.FilePath("state") + "/quorvy/");
    EXPECT_TRUE(Tools::DirectoryExists(folder.FilePath("state/quorvy")));
    ::setenv("XDG_STATE_HOME", "relative/state", 1); // a relative path is not trusted
    EXPECT_EQ(Tools::GetTempDirectory(), home + "/.local/state/quorvy/");
}

TEST(ToolsFilesTest, DataDirectoryIsTheCurrentFolderUnlessThatIsAProgramFolder)
{
    TemporaryFolder folder;
    const CurrentDirectoryGuard restoreCurrent;
    const EnvironmentGuard environment{"HOME", "XDG_DATA_HOME"};
    const std::string home = folder.FilePath("home");
    const std::string work = folder.FilePath("work");
    std::filesystem::create_directories(home + "/inside");
    std::filesystem::create_directory(work);
    ::setenv("HOME", home.c_str(), 1);
    const std::string underHome = home + "/.local/share/Tarnvel/DHCP Server";

    Tools::SetCurrentDirectory(work);
    EXPECT_EQ(Tools::GetDataDirectory(), work);
    EXPECT_FALSE(Tools::FileExists(home + "/.local"));
    for (const char* programFolder : {"/", "/usr", "/usr/bin", "/opt"}) {
        Tools::SetCurrentDirectory(programFolder);
        EXPECT_EQ(Tools::GetDataDirectory(), underHome) << programFolder;
    }
    EXPECT_TRUE(Tools::DirectoryExists(underHome));

    // The home folder itself, also with a trailing slash or through a link,
    // but not a folder inside it.
    Tools::SetCurrentDirectory(home);
    EXPECT_EQ(Tools::GetDataDirectory(), underHome);
    ::setenv("HOME", (home + "/").c_str(), 1);
    EXPECT_EQ(Tools::GetDataDirectory(), underHome);
    const std::string link = folder.FilePath("link-to-home");
    std::filesystem::create_directory_symlink(home, link);
    ::setenv("HOME", link.c_str(), 1);
    EXPECT_EQ(Tools::GetDataDirectory(), link + "/.local/share/Tarnvel/DHCP Server");
    Tools::SetCurrentDirectory(home + "/inside");
    EXPECT_EQ(Tools::GetDataDirectory(), home + "/inside");

    ::setenv("XDG_DATA_HOME", folder.FilePath("xdg").c_str(), 1);
    Tools::SetCurrentDirectory("/usr");
    EXPECT_EQ(Tools::GetDataDirectory(), folder.FilePath("xdg") + "/Tarnvel/DHCP Server");
    EXPECT_TRUE(Tools::DirectoryExists(folder.FilePath("xdg/Tarnvel/DHCP Server")));
    ::unsetenv("XDG_DATA_HOME");
    ::unsetenv("HOME");
    EXPECT_EQ(CodeRaisedBy([] { Tools::GetDataDirectory(); }), AppException::CannotGetKnownDirectory);
}

TEST(ToolsFilesTest, ReplaceFileContentsWritesWholeFilesAndKeepsModeAndLinks)
{
    TemporaryFolder folder;
    const std::string path = folder.FilePath("leases.dat");
    ASSERT_TRUE(Tools::ReplaceFileContents(path, std::string("new\0file", 8)));
    EXPECT_EQ(ReadText(path), std::string("new\0file", 8));

    ::chmod(path.c_str(), 0640);
    const std::string big(100000, 'z');
    ASSERT_TRUE(Tools::ReplaceFileContents(path, big));
    EXPECT_EQ(ReadText(path), big);
    struct stat status;
    ASSERT_EQ(::stat(path.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777, 0640u);

    const std::string link = folder.FilePath("settings-link.cfg");
    std::filesystem::create_symlink(path, link);
    ASSERT_TRUE(Tools::ReplaceFileContents(link, "through the link"));
    EXPECT_TRUE(std::filesystem::is_symlink(link));
    EXPECT_EQ(ReadText(path), "through the link");
    EXPECT_EQ(CountEntries(folder.Path()), 2u); // no temporary file left behind
}

TEST(ToolsFilesTest, AFailedReplaceLeavesTheOldFile)
{
    TemporaryFolder folder;
    // A folder as the target, and a folder that does not exist.
    const std::string target = folder.FilePath("settings.cfg");
    std::filesystem::create_directory(target);
    EXPECT_FALSE(Tools::ReplaceFileContents(target, "new"));
    EXPECT_TRUE(Tools::DirectoryExists(target));
    EXPECT_FALSE(Tools::ReplaceFileContents(folder.FilePath("missing-folder/file"), "new"));
    EXPECT_EQ(CountEntries(folder.Path()), 1u);

    // A folder without write access: the old file stays, no temporary file.
    const std::string locked = folder.FilePath("locked");
    const std::string path = locked + "/settings.cfg";
    std::filesystem::create_directory(locked);
    ASSERT_TRUE(WriteText(path, "old\n"));
    ::chmod(path.c_str(), 0666);
    ::chmod(locked.c_str(), 0555);
    ::chmod(folder.Path().c_str(), 0755);
    // Bit 0: the write was refused; bit 1: the line end conversion raised FileWritingError.
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
    EXPECT_EQ(ReadText(path), "old\n");
    EXPECT_EQ(CountEntries(locked), 1u);
}
