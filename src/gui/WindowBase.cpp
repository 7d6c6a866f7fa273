#include "WindowBase.h"

#include <QWidget>

void WindowBase::ShowMessage(QWidget* window, const QString& text, QMessageBox::Icon icon)
{
    QMessageBox box;
    // Closing a box never ends the program, also while the main window
    // waits hidden in the tray and the box is the only window on screen.
    box.setAttribute(Qt::WA_QuitOnClose, false);
    box.setIcon(icon);
    box.setWindowTitle(window->windowTitle());
    box.setText(text);
    box.exec();
}

void WindowBase::ShowMessage(QWidget* window, const std::string& text, QMessageBox::Icon icon)
{
    ShowMessage(window, QString::fromStdString(text), icon);
}
