#pragma once

#include <optional>
#include <string>

class MainWindow;

// The switches of the command line: "-m" and "-s" for the window, "--headless"
// with its "--data-dir DIR" for a run without one, and "--help" and
// "--version". Switches are matched as ParameterExists matches them (trimmed,
// in any case); anything else on the command line is ignored without a word.
class CommandLine {
public:
    // `arguments` must outlive this object; index 0, the program, is looked at too.
    CommandLine(int argumentCount, const char* const* arguments);

    // "-m": minimise the window once it is shown.
    bool IsMinimizeRequested() const;
    // "-s": start the server as the start button would.
    bool IsStartRequested() const;
    // "--headless": serve without a window (HeadlessRunner).
    bool IsHeadlessRequested() const;
    // The argument behind "--data-dir", as given; nullopt without the switch,
    // and an empty text when nothing follows it.
    std::optional<std::string> GetDataDirectory() const;

    // "--help" and "--version": print and exit, before any window exists.
    bool IsHelpRequested() const;
    bool IsVersionRequested() const;

    // Minimises first and starts second, so that a box of a failing start
    // comes up over the window already minimised or in the tray.
    void ApplyTo(MainWindow& window) const;

private:
    int argumentCount;
    const char* const* arguments;
};
