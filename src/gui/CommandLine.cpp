#include "CommandLine.h"

#include "MainWindow.h"

#include "foundation/Tools.h"

CommandLine::CommandLine(int argumentCount, const char* const* arguments)
    : argumentCount(argumentCount)
    , arguments(arguments)
{
}

bool CommandLine::IsMinimizeRequested() const
{
    return Tools::ParameterExists(argumentCount, arguments, "-m");
}

bool CommandLine::IsStartRequested() const
{
    return Tools::ParameterExists(argumentCount, arguments, "-s");
}

bool CommandLine::IsHeadlessRequested() const
{
    return Tools::ParameterExists(argumentCount, arguments, "--headless");
}

std::optional<std::string> CommandLine::GetDataDirectory() const
{
    for (int i = 0; i < argumentCount; ++i) {
        if (Tools::ParameterExists(1, &arguments[i], "--data-dir")) {
            return i + 1 < argumentCount ? std::string(arguments[i + 1]) : std::string();
        }
    }
    return std::nullopt;
}

bool CommandLine::IsHelpRequested() const
{
    return Tools::ParameterExists(argumentCount, arguments, "--help");
}

bool CommandLine::IsVersionRequested() const
{
    return Tools::ParameterExists(argumentCount, arguments, "--version");
}

void CommandLine::ApplyTo(MainWindow& window) const
{
    if (IsMinimizeRequested()) {
        window.setWindowState(Qt::WindowMinimized);
    }
    if (IsStartRequested()) {
        window.StartServer();
    }
}
