// Loaded into the real program with LD_PRELOAD by ProgramStartTest: once the
// application object exists, every message box that comes up is written to
// standard output as "BOX <icon>|<title>|<text>" and closed by its first
// button, as a user would answer it. The program itself is not changed.

#include <QAbstractButton>
#include <QApplication>
#include <QMessageBox>
#include <QTimer>

#include <cstdio>

namespace {

void AnswerBoxes()
{
    auto* timer = new QTimer(QCoreApplication::instance());
    QObject::connect(timer, &QTimer::timeout, [] {
        auto* box = qobject_cast<QMessageBox*>(QApplication::activeModalWidget());
        if (box == nullptr || !box->isVisible()) {
            return;
        }
        const QString line = QStringLiteral("BOX %1|%2|%3\n").arg(int(box->icon())).arg(box->windowTitle(), box->text());
        std::fputs(line.toUtf8().constData(), stdout);
        std::fflush(stdout);
        box->buttons().isEmpty() ? box->reject() : box->buttons().first()->click();
    });
    timer->start(10);
}

} // namespace

Q_COREAPP_STARTUP_FUNCTION(AnswerBoxes)
