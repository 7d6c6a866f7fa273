#pragma once

#include <QMessageBox>
#include <QString>

#include <string>

class QWidget;

// Mix-in of the windows that tell the user something: a modal box that
// carries the window's title. No data, no virtual operations.
class WindowBase {
public:
    // A parentless box with the given icon, titled like `window`, with its
    // default button only; runs modally and is gone when this returns.
    static void ShowMessage(QWidget* window, const QString& text, QMessageBox::Icon icon);
    // `text` is UTF-8, as the core's English error texts are.
    static void ShowMessage(QWidget* window, const std::string& text, QMessageBox::Icon icon);
};
