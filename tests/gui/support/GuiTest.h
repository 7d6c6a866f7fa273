#pragma once

#include "support/FakeDatagramSocket.h"
#include "support/ManualClock.h"

#include "MainWindow.h"

#include "engine/ServerPlatform.h"
#include "foundation/IPv4Address.h"

#include <QAction>
#include <QComboBox>
#include <QDialog>
#include <QImage>
#include <QLineEdit>
#include <QMessageBox>
#include <QPointer>
#include <QPushButton>
#include <QSystemTrayIcon>
#include <QTemporaryDir>
#include <QTimer>

#include <deque>
#include <functional>
#include <vector>

// A machine for one test: a temporary data folder that is the current
// directory (settings.cfg and log.txt land there) until the next test's, TEMP
// pointing into it for the lease files, and a server platform whose sockets
// are fakes, so that no test touches a real network interface.
class GuiTestEnvironment {
public:
    static inline const IPv4Address FIRST_ADDRESS{10, 77, 0, 1};
    static inline const IPv4Address SECOND_ADDRESS{10, 77, 1, 1};

    GuiTestEnvironment();
    ServerPlatform MakePlatform(std::vector<IPv4Address> addresses = {FIRST_ADDRESS, SECOND_ADDRESS},
                                bool privileged = true);
    QString FilePath(const QString& name) const { return folder.filePath(name); }
    QByteArray ReadFile(const QString& name) const;
    void WriteFile(const QString& name, const QByteArray& contents) const;

    FakeDatagramSocket::Network network;
    ManualClock clock;

private:
    QTemporaryDir folder;
};

// Answers the modal windows that a test provokes, so that no test waits for a
// user. A timer looks at QApplication::activeModalWidget(): a QMessageBox is
// recorded and closed by its first button; a dialog of the class that the
// next handler names goes to that handler, which must close it; any other
// dialog is recorded as unexpected and rejected, so a failing test ends
// instead of hanging.
class ModalWatcher {
public:
    struct Box {
        QString title;
        QString text;
        QMessageBox::Icon icon = QMessageBox::NoIcon;
    };

    ModalWatcher();
    void OnDialog(const QString& className, std::function<void(QDialog*)> handler);
    // The one box seen, or an empty record when there were none or several.
    Box OnlyBox() const { return boxes.size() == 1 ? boxes.front() : Box{}; }
    // True when every handler was used and no other dialog came up.
    bool AllAnswered() const { return handlers.empty() && unexpectedDialogs.isEmpty(); }

    std::vector<Box> boxes;
    QStringList unexpectedDialogs;
    // Runs on each box before it is closed.
    std::function<void(QMessageBox*)> beforeClosingBox;

private:
    void Look();

    QTimer timer;
    std::deque<std::pair<QString, std::function<void(QDialog*)>>> handlers;
    QList<QPointer<QDialog>> handledDialogs;
};

// The parts of a MainWindow, found by their object names as a user finds
// them by their labels.
struct MainWindowProbe {
    MainWindow& window;

    QLineEdit* Field(const char* name) const { return window.findChild<QLineEdit*>(name); }
    QComboBox* ListeningAddress() const { return window.findChild<QComboBox*>("comboBoxListeningAddress"); }
    QPushButton* StartStopButton() const { return window.findChild<QPushButton*>("pushButtonStartStop"); }
    QAction* Action(const char* name) const { return window.findChild<QAction*>(name); }
    QSystemTrayIcon* TrayIcon() const { return window.findChild<QSystemTrayIcon*>(); }
    // True when every field of the form and the address combo have this state.
    bool IsFormEnabled(bool enabled) const;
    // A form that the server accepts: the pool inside FIRST_ADDRESS's subnet.
    void EnterValidForm() const;
};

// The pictures as painted, for comparing an icon with an embedded resource.
QImage Picture(const QIcon& icon, int size);
QImage Picture(const char* resource);
