#include "CommandLine.h"
#include "HeadlessRunner.h"
#include "MainWindow.h"
#include "SignalCloser.h"

#include "foundation/AppException.h"

#include <QApplication>
#include <QCoreApplication>
#include <QTranslator>

int main(int argc, char* argv[])
{
    if (const CommandLine commandLine(argc, argv); commandLine.IsHeadlessRequested()) {
        // Before any QApplication: this run needs no display.
        return HeadlessRunner(commandLine.GetDataDirectory()).Run();
    }

    QApplication application(argc, argv);

    // The catalog beside the program decides the language: English when it
    // loads, Polish (the source texts) otherwise.
    QTranslator translator;
    (void)translator.load(QCoreApplication::applicationDirPath() + "/quorvy_en");
    QCoreApplication::installTranslator(&translator);

    SignalCloser signalCloser;
    try {
        MainWindow window;
        signalCloser.SetWindow(&window);
        window.setVisible(true);
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
