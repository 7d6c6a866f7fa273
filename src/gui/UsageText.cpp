#include "UsageText.h"

#include "engine/DHCPServer.h"

#include <algorithm>
#include <cstddef>
#include <sstream>
#include <vector>

namespace {

constexpr std::size_t LINE_WIDTH = 79;
constexpr std::size_t OPTION_INDENT = 2;

// The ways to call the program, one synopsis line each.
const std::vector<const char*>& Synopses()
{
    static const std::vector<const char*> synopses = {
        "[-m] [-s]", "--headless [--data-dir DIR]", "--help | --version"};
    return synopses;
}

struct OptionRow {
    const char* switches;
    const char* description;
};

// One row per switch, in the order of the synopsis. A new switch is one more
// row; the column of the descriptions follows the longest switch.
const std::vector<OptionRow>& OptionRows()
{
    static const std::vector<OptionRow> rows = {
        {"-m", "start minimised: into the system tray when \"Minimize to system tray\" "
               "(\"Minimalizuj do tacki systemowej\") is ticked and the desktop has a tray, "
               "else onto the task bar"},
        {"-s", "start the server at once, as the start button does"},
        {"--headless", "serve without a window and without a display: settings.cfg must "
                       "exist and name a pool, a mask and PreferredListeningAddress; it is "
                       "only read. Messages go to standard error, one line each; SIGTERM, "
                       "SIGINT and SIGHUP stop the server"},
        {"--data-dir DIR", "with --headless: the folder of settings.cfg, the default log.txt "
                           "and the lease files (without it, the window's folders below)"},
        {"--help", "print this text and exit"},
        {"--version", "print the name and version and exit"},
    };
    return rows;
}

// Paragraphs under a heading, each wrapped to the line width and indented.
// help2man makes the sections before "Options:" subsections of the manual
// page's description, and "Files:" its FILES section.
struct Section {
    const char* heading;
    std::vector<const char*> paragraphs;
};

const std::vector<Section>& SectionsBeforeOptions()
{
    static const std::vector<Section> sections = {
        {"Privileges",
         {"The server listens on UDP port 67. Binding it needs root or the capability "
          "cap_net_bind_service on the program file (setcap cap_net_bind_service=+ep), "
          "unless net.ipv4.ip_unprivileged_port_start of the network namespace is 67 or "
          "lower. Without it the program says that it must be run by root and ends.",
          "The Debian package grants the capability and lets only members of the group "
          "tarnvel-dhcp run /usr/bin/quorvy. Join it with \"sudo usermod -aG tarnvel-dhcp "
          "USER\" and log in again. Its service quorvy.service, not enabled on "
          "installation, runs \"quorvy --headless --data-dir /var/lib/tarnvel-dhcp\" with "
          "that group and the capability alone."}},
        {"Exit status",
         {"0 when the program was closed or stopped by a signal; 1 when the window could not "
          "start. With --headless: 78 for missing, unreadable or invalid settings or no "
          "PreferredListeningAddress, 69 when that address is on no interface or port 67 "
          "is taken, 77 without the privilege for port 67, 64 for --data-dir without a "
          "folder."}},
        {"Signals",
         {"SIGTERM, SIGINT and SIGHUP close the program as Quit does: the server stops, "
          "and the settings, the leases and the last log lines are saved (with --headless, "
          "settings.cfg is left as it is)."}},
    };
    return sections;
}

const std::vector<Section>& SectionsAfterOptions()
{
    static const std::vector<Section> sections = {
        {"Files",
         {"settings.cfg and the default log.txt live in the data folder: the current "
          "directory, unless that is /, a folder under /usr or /opt, or the home folder "
          "itself (as when the application menu starts the program); then the folder "
          "\"Tarnvel/DHCP Server\" in $XDG_DATA_HOME, by default ~/.local/share.",
          "The lease files, one for each listening address, go to $TEMP when it is set, "
          "else to $XDG_STATE_HOME/quorvy, by default ~/.local/state/quorvy.",
          "The window speaks English when the catalog quorvy_en.qm lies beside the program "
          "or in ../share/tarnvel-dhcp-server/ next to the program's folder (the package "
          "installs /usr/share/tarnvel-dhcp-server/quorvy_en.qm), and Polish without it."}},
    };
    return sections;
}

// Words of `text` in lines of at most LINE_WIDTH columns; the first line
// continues after `firstPrefix`, the others start with `indent` spaces. A
// word longer than a line gets a line of its own.
void WriteWrapped(std::ostream& out, const std::string& firstPrefix, std::size_t indent,
                  const std::string& text)
{
    std::istringstream words(text);
    std::string line = firstPrefix;
    std::size_t wordsOnLine = 0;
    std::string word;
    while (words >> word) {
        if (wordsOnLine > 0 && line.size() + 1 + word.size() > LINE_WIDTH) {
            out << line << '\n';
            line.assign(indent, ' ');
            wordsOnLine = 0;
        }
        if (wordsOnLine > 0) {
            line += ' ';
        }
        line += word;
        ++wordsOnLine;
    }
    out << line << '\n';
}

void WriteOptions(std::ostream& out)
{
    std::size_t widest = 0;
    for (const auto& row : OptionRows()) {
        widest = std::max(widest, std::string(row.switches).size());
    }
    const std::size_t column = OPTION_INDENT + widest + 2;
    out << "\nOptions:\n";
    for (const auto& row : OptionRows()) {
        std::string prefix(OPTION_INDENT, ' ');
        prefix += row.switches;
        prefix.resize(column, ' ');
        WriteWrapped(out, prefix, column, row.description);
    }
    out << "Any other argument is ignored. Switches count in any order and in capitals.\n";
}

void WriteSections(std::ostream& out, const std::vector<Section>& sections)
{
    for (const auto& section : sections) {
        out << '\n' << section.heading << ":\n";
        const char* separator = "";
        for (const char* paragraph : section.paragraphs) {
            out << separator;
            WriteWrapped(out, std::string(OPTION_INDENT, ' '), OPTION_INDENT, paragraph);
            separator = "\n";
        }
    }
}

} // namespace

std::string UsageText::Help()
{
    std::ostringstream out;
    const char* lead = "Usage: ";
    for (const char* synopsis : Synopses()) {
        out << lead << "quorvy " << synopsis << '\n';
        lead = "  or:  ";
    }
    WriteWrapped(out, "", 0,
                 "Tarnvel DHCP Server: hands out IPv4 addresses on the local network from one "
                 "pool, with mask, gateway, DNS servers and lease time, configured and watched "
                 "in a desktop window, or without one as a service.");
    WriteSections(out, SectionsBeforeOptions());
    WriteOptions(out);
    WriteSections(out, SectionsAfterOptions());
    return out.str();
}

std::string UsageText::Version()
{
    return "quorvy (Tarnvel DHCP Server) " + DHCPServer::GetVersion() + "\n";
}
