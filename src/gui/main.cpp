#include "CommandLine.h"
#include "HeadlessRunner.h"
#include "MainWindow.h"
#include "SignalCloser.h"
#include "UsageText.h"

#include "foundation/AppException.h"

#include <QApplication>
#include <QCoreApplication>
#include <QTranslator>

#include <cstdio>
#include <string>

namespace {

// The English catalog beside the program (a build, or a copy that carries it)
// or in the data folder of an installation, ../share/tarnvel-dhcp-server from
// the program's folder (/usr/share/tarnvel-dhcp-server for the package). Its
// presence decides the language: English when it loads, Polish (the source
// texts) otherwise.
void LoadCatalog(QTranslator& translator)
{
    const QString programFolder = QCoreApplication::applicationDirPath();
    if (!translator.load(programFolder + "/quorvy_en")) {
        (void)translator.load(programFolder + "/../share/tarnvel-dhcp-server/quorvy_en");
    }
}

// "--help" and "--version" are answered before QApplication exists, so they
// work without a display. Returns whether one was answered.
bool PrintRequestedText(const CommandLine& commandLine)
{
    std::string text;
    if (commandLine.IsHelpRequested()) {
        text = UsageText::Help();
    } else if (commandLine.IsVersionRequested()) {
        text = UsageText::Version();
    } else {
        return false;
    }
    std::fputs(text.c_str(), stdout);
    return true;
}

} // namespace

int main(int argc, char* argv[])
{
    const CommandLine commandLine(argc, argv);
    if (PrintRequestedText(commandLine)) {
        return std::fflush(stdout) == 0 ? 0 : 1;
    }
    if (commandLine.IsHeadlessRequested()) {
        // Before any QApplication: this run needs no display.
        return HeadlessRunner(commandLine.GetDataDirectory()).Run();
    }

    QApplication application(argc, argv);
    QTranslator translator;
    LoadCatalog(translator);
    QCoreApplication::installTranslator(&translator);

    SignalCloser signalCloser;
    try {
        MainWindow window;
        signalCloser.SetWindow(&window);
        window.setVisible(true);
        // Read after QApplication has taken its own arguments out.
        CommandLine(argc, argv).ApplyTo(window);
        // A signal during a box of "-s" came before the loop could see it.
        const int status = signalCloser.IsClosing() ? 0 : QApplication::exec();
        signalCloser.SetWindow(nullptr);
        return status;
    } catch (const AppException&) {
        // The window has shown its critical box already.
        return 1;
    }
}
