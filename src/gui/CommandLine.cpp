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
