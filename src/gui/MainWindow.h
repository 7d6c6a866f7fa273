#pragma once

#include "WindowBase.h"

#include "allocation/StorageWarnings.h"
#include "engine/ServerPlatform.h"

#include <QIcon>
#include <QMainWindow>
#include <QSystemTrayIcon>

#include <functional>
#include <memory>

class AppException;
class DHCPServer;
class LogBrowserDialog;
class QAction;
class QEvent;
class QLineEdit;
class QMenu;
class QTimer;

namespace Ui {
class MainWindow;
}

// The program's face and the owner of the engine: the form of the basic
// parameters, the start/stop button, the menus of every dialog and the tray
// icon. The form is read into the settings only when the server starts, when
// the reservations open and when the program closes.
class MainWindow : public QMainWindow, public WindowBase {
    Q_OBJECT

public:
    // The server on this machine. Raises AppException after it has shown its
    // critical box when the program cannot start.
    explicit MainWindow(QWidget* parent = nullptr);
    // The same on a machine of the caller's making: fake addresses, sockets
    // and privileges, so that the window can be driven without a network.
    explicit MainWindow(ServerPlatform platform, QWidget* parent = nullptr);
    // Stops a running server, then reads the form and saves the settings.
    ~MainWindow() override;

    // What the start button does, unless the server already runs.
    void StartServer();

protected:
    bool event(QEvent* event) override;
    // Without a tray the window minimises normally, so that it stays in reach.
    virtual bool IsSystemTrayAvailable() const;

private slots:
    void on_actionLog_triggered();
    void on_actionLogSettings_triggered();
    void on_comboBoxListeningAddress_currentIndexChanged(int index);
    void on_actionAbout_triggered();
    void on_actionToggleMinimizeToTray_triggered();
    void trayIconActivated(QSystemTrayIcon::ActivationReason reason);
    void showWindowFromTray();
    void on_actionShowLeases_triggered();
    void on_actionAdditionalOptions_triggered();
    void on_actionAddressReservations_triggered();
    void on_pushButtonStartStop_clicked();
    // Shows what the engine has reported about the lease files since the
    // last look; polled by storageWarningTimer while the server runs.
    void ShowStorageWarnings();

private:
    MainWindow(const std::function<std::unique_ptr<DHCPServer>()>& makeServer, QWidget* parent);

    void BuildForm();
    void CreateTrayIcon();
    void CreateTrayIconMenu();
    void LoadSettings();
    void FillForm();
    void ReadForm();
    void SetFormEnabled(bool enabled);
    void SetWindowIcons(const QIcon& icon);
    void ShowWindow();
    void HideWindow();
    void HideToTray();
    void UpdateLogActions();
    void ShowStartFailure(const AppException& exception);
    // The box text of a storage warning; empty for one that needs no box.
    static QString StorageWarningText(const StorageWarnings::Warning& warning);
    void ShowProgramStartFailure(const AppException& exception);

    std::unique_ptr<Ui::MainWindow> ui;
    QSystemTrayIcon* trayIcon = nullptr;
    std::unique_ptr<QMenu> trayIconMenu;
    QIcon trayIconActive;
    QIcon trayIconInactive;
    QIcon windowIconActive;
    QIcon windowIconInactive;
    std::unique_ptr<DHCPServer> dhcpServer;
    bool minimizeToTray = false;
    bool fillingListeningAddresses = false;
    std::unique_ptr<LogBrowserDialog> logBrowserDialog;
    QAction* trayActionLog = nullptr;
    QAction* trayActionShowWindow = nullptr;
    QAction* trayActionQuit = nullptr;
    QAction* trayActionStartStop = nullptr;
    QTimer* storageWarningTimer = nullptr; // child of the window
    bool showingStorageWarning = false;
};
