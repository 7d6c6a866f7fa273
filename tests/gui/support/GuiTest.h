#pragma once

#include "support/FakeDatagramSocket.h"
#include "support/FakeServerPlatform.h"
#include "support/ManualClock.h"
#include "support/ScopedEnvironment.h"

#include "MainWindow.h"

#include <QAbstractButton>
#include <QAction>
#include <QApplication>
#include <QComboBox>
#include <QDialog>
#include <QDir>
#include <QFile>
#include <QImage>
#include <QLineEdit>
#include <QMessageBox>
#include <QPointer>
#include <QPushButton>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QTimer>

#include <algorithm>
#include <deque>
#include <functional>
#include <vector>

// A machine for one test: a temporary data folder that is the current
// directory (settings.cfg and log.txt land there), TEMP pointing into it for
// the lease files (both put back afterwards), and a server platform whose sockets are fakes, so that no
// test touches a real network interface.
class GuiTestEnvironment {
public:
    static inline const IPv4Address FIRST_ADDRESS{10, 77, 0, 1};
    static inline const IPv4Address SECOND_ADDRESS{10, 77, 1, 1};

    GuiTestEnvironment()
    {
        QDir::setCurrent(folder.path());
        environment.Set("TEMP", folder.path().toStdString());
    }

    ServerPlatform MakePlatform(std::vector<IPv4Address> addresses = {FIRST_ADDRESS, SECOND_ADDRESS},
                                bool privileged = true)
    {
        return FakeServerPlatform(network, &clock, [addresses] { return addresses; }, privileged);
    }

    QByteArray ReadFile(const QString& name) const
    {
        QFile file(folder.filePath(name));
        return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
    }

    void WriteFile(const QString& name, const QByteArray& contents) const
    {
        QFile file(folder.filePath(name));
        if (file.open(QIODevice::WriteOnly | QIODevice::Truncate)) {
            file.write(contents);
        }
    }

    FakeDatagramSocket::Network network;
    ManualClock clock;

private:
    QTemporaryDir folder;
    ScopedEnvironment environment; // goes first: the old working directory comes back before the folder goes
};

// Answers the modal windows that a test provokes, so that no test waits for a
// user: a QMessageBox is recorded and closed by its first button; a dialog of
// the class that the next handler names goes to that handler, which must
// close it; any other dialog is recorded as unexpected and rejected.
class ModalWatcher {
public:
    struct Box {
        QString title;
        QString text;
        QMessageBox::Icon icon = QMessageBox::NoIcon;
    };

    ModalWatcher()
    {
        QObject::connect(&timer, &QTimer::timeout, [this] { Look(); });
        timer.start(10);
    }

    void OnDialog(const QString& className, std::function<void(QDialog*)> handler)
    {
        handlers.emplace_back(className, std::move(handler));
    }
    // The one box seen, or an empty record when there were none or several.
    Box OnlyBox() const { return boxes.size() == 1 ? boxes.front() : Box{}; }
    // True when every handler was used and no other dialog came up.
    bool AllAnswered() const { return handlers.empty() && unexpectedDialogs.isEmpty(); }

    std::vector<Box> boxes;
    QStringList unexpectedDialogs;
    // Runs on each box before it is closed.
    std::function<void(QMessageBox*)> beforeClosingBox;

private:
    void Look()
    {
        QWidget* modal = QApplication::activeModalWidget();
        if (auto* box = qobject_cast<QMessageBox*>(modal)) {
            if (box->isVisible()) {
                boxes.push_back({box->windowTitle(), box->text(), box->icon()});
                if (beforeClosingBox) {
                    beforeClosingBox(box);
                }
                box->buttons().isEmpty() ? box->reject() : box->buttons().first()->click();
            }
            return;
        }
        auto* dialog = qobject_cast<QDialog*>(modal);
        if (dialog == nullptr || handledDialogs.contains(dialog)) {
            return;
        }
        handledDialogs.append(dialog);
        if (handlers.empty() || handlers.front().first != dialog->metaObject()->className()) {
            unexpectedDialogs.append(dialog->metaObject()->className());
            dialog->reject();
            return;
        }
        // From the event loop, not from this timer's slot: the handler may
        // open nested modal windows, and this timer must keep running then.
        QTimer::singleShot(0, [handle = std::move(handlers.front().second), target = QPointer<QDialog>(dialog)] {
            if (target) {
                handle(target);
            }
        });
        handlers.pop_front();
    }

    QTimer timer;
    std::deque<std::pair<QString, std::function<void(QDialog*)>>> handlers;
    QList<QPointer<QDialog>> handledDialogs;
};

// The parts of a MainWindow, found by their object names as a user finds them by their labels.
struct MainWindowProbe {
    MainWindow& window;

    QLineEdit* Field(const char* name) const { return window.findChild<QLineEdit*>(name); }
    QComboBox* ListeningAddress() const { return window.findChild<QComboBox*>("comboBoxListeningAddress"); }
    QPushButton* StartStopButton() const { return window.findChild<QPushButton*>("pushButtonStartStop"); }
    QAction* Action(const char* name) const { return window.findChild<QAction*>(name); }
    QSystemTrayIcon* TrayIcon() const { return window.findChild<QSystemTrayIcon*>(); }

    // True when all seven fields of the form and the address combo have this state.
    bool IsFormEnabled(bool enabled) const
    {
        const QList<QLineEdit*> fields = window.findChildren<QLineEdit*>(QRegularExpression("^lineEdit"));
        const bool allAlike = std::all_of(fields.begin(), fields.end(),
                                          [enabled](QLineEdit* field) { return field->isEnabled() == enabled; });
        return allAlike && fields.size() == 7 && ListeningAddress()->isEnabled() == enabled;
    }

    // A form that the server accepts: the pool inside FIRST_ADDRESS's subnet.
    void EnterValidForm() const
    {
        const char* const form[][2] = {
            {"lineEditPoolStartAddress", "10.77.0.100"}, {"lineEditPoolEndAddress", "10.77.0.199"},
            {"lineEditSubnetMask", "255.255.255.0"},     {"lineEditDefaultGateway", "10.77.0.1"},
            {"lineEditDNSAddress1", "10.77.0.1"},        {"lineEditDNSAddress2", ""},
            {"lineEditLeaseDuration", "600"}};
        for (const auto& [name, text] : form) {
            Field(name)->setText(text);
        }
    }
};

// A picture as painted, for comparing an icon with an embedded resource.
inline QImage Picture(const QIcon& icon, int size)
{
    return icon.pixmap(size, size).toImage().convertToFormat(QImage::Format_ARGB32);
}
