#pragma once

#include <QDialog>
#include <QList>
#include <QMessageBox>
#include <QObject>
#include <QPointer>
#include <QString>
#include <QTimer>

#include <deque>
#include <functional>
#include <vector>

// Answers the modal windows that a test provokes, so that no test waits for a
// user. Started before the call that opens them, a timer looks at
// QApplication::activeModalWidget():
// - a QMessageBox is recorded (title, text, icon) and closed by its button;
// - a dialog of the class that the next handler names is given to that
//   handler, which must close it; the handler runs from the event loop, so it
//   may itself provoke nested boxes;
// - any other modal dialog is recorded as unexpected and rejected, so that a
//   failing test ends instead of hanging.
class ModalWatcher : public QObject {
    Q_OBJECT

public:
    struct SeenBox {
        QString title;
        QString text;
        QMessageBox::Icon icon = QMessageBox::NoIcon;
    };

    ModalWatcher();
    ~ModalWatcher() override;

    void OnDialog(const QString& className, std::function<void(QDialog*)> handler);
    // Runs when a box is seen, before it is closed: for looking at the rest
    // of the program at that moment.
    void OnEveryBox(std::function<void(const SeenBox&)> observer);

    const std::vector<SeenBox>& Boxes() const { return boxes; }
    QStringList UnexpectedDialogs() const { return unexpectedDialogs; }
    int PendingHandlers() const { return static_cast<int>(handlers.size()); }
    // The one box seen, or an empty record when there were none or several.
    SeenBox OnlyBox() const;
    void Clear();

private slots:
    void Look();

private:
    struct Handler {
        QString className;
        std::function<void(QDialog*)> handle;
    };

    QTimer timer;
    std::deque<Handler> handlers;
    std::function<void(const SeenBox&)> boxObserver;
    std::vector<SeenBox> boxes;
    QStringList unexpectedDialogs;
    QList<QPointer<QDialog>> handledDialogs;
};
