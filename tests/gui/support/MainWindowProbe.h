#pragma once

#include "MainWindow.h"

#include <QAction>
#include <QComboBox>
#include <QImage>
#include <QLineEdit>
#include <QMenu>
#include <QPushButton>
#include <QStringList>
#include <QSystemTrayIcon>

// Reaches the parts of a MainWindow by their object names, as a user finds
// them by their labels; a test asserts on what the window shows.
class MainWindowProbe {
public:
    explicit MainWindowProbe(MainWindow& window) : window(window) {}

    static const QStringList& FieldNames();

    QLineEdit* Field(const QString& name) const { return window.findChild<QLineEdit*>(name); }
    void SetField(const QString& name, const QString& text) const { Field(name)->setText(text); }
    QComboBox* ListeningAddress() const { return window.findChild<QComboBox*>("comboBoxListeningAddress"); }
    QPushButton* StartStopButton() const { return window.findChild<QPushButton*>("pushButtonStartStop"); }
    QAction* Action(const QString& name) const { return window.findChild<QAction*>(name); }
    QSystemTrayIcon* TrayIcon() const { return window.findChild<QSystemTrayIcon*>(); }
    QMenu* TrayMenu() const { return TrayIcon() != nullptr ? TrayIcon()->contextMenu() : nullptr; }

    // True when every field and the combo have this enabled state.
    bool IsFormEnabled(bool enabled) const;
    // The pictures as they would be painted, for comparing with a resource.
    QImage WindowIconImage() const;
    QImage TrayIconImage() const;
    static QImage ResourceImage(const QString& name);

    // A form that the server accepts: the pool inside the first fake address's subnet.
    void EnterValidForm() const;

private:
    MainWindow& window;
};
