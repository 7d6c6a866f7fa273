#include "WindowBase.h"

#include <QWidget>

void WindowBase::ShowMessage(QWidget* window, const QString& text, QMessageBox::Icon icon)
{
    QMessageBox box;
    box.setIcon(icon);
    box.setWindowTitle(window->windowTitle());
    box.setText(text);
    box.exec();
}

void WindowBase::ShowMessage(QWidget* window, const std::string& text, QMessageBox::Icon icon)
{
    ShowMessage(window, QString::fromStdString(text), icon);
}
