#include "ModalWatcher.h"

#include <QAbstractButton>
#include <QApplication>

ModalWatcher::ModalWatcher()
{
    connect(&timer, &QTimer::timeout, this, &ModalWatcher::Look);
    timer.start(10);
}

ModalWatcher::~ModalWatcher() = default;

void ModalWatcher::OnDialog(const QString& className, std::function<void(QDialog*)> handler)
{
    handlers.push_back({className, std::move(handler)});
}

void ModalWatcher::OnEveryBox(std::function<void(const SeenBox&)> observer)
{
    boxObserver = std::move(observer);
}

ModalWatcher::SeenBox ModalWatcher::OnlyBox() const
{
    return boxes.size() == 1 ? boxes.front() : SeenBox{};
}

void ModalWatcher::Clear()
{
    boxes.clear();
    unexpectedDialogs.clear();
}

void ModalWatcher::Look()
{
    QWidget* modal = QApplication::activeModalWidget();
    if (modal == nullptr) {
        return;
    }
    if (auto* box = qobject_cast<QMessageBox*>(modal)) {
        if (!box->isVisible()) {
            return;
        }
        const SeenBox seen{box->windowTitle(), box->text(), box->icon()};
        boxes.push_back(seen);
        if (boxObserver) {
            boxObserver(seen);
        }
        const QList<QAbstractButton*> buttons = box->buttons();
        if (!buttons.isEmpty()) {
            buttons.first()->click();
        } else {
            box->reject();
        }
        return;
    }
    auto* dialog = qobject_cast<QDialog*>(modal);
    if (dialog == nullptr || handledDialogs.contains(QPointer<QDialog>(dialog))) {
        return;
    }
    handledDialogs.append(QPointer<QDialog>(dialog));
    const QString className = QString::fromLatin1(dialog->metaObject()->className());
    if (!handlers.empty() && handlers.front().className == className) {
        std::function<void(QDialog*)> handle = std::move(handlers.front().handle);
        handlers.pop_front();
        QPointer<QDialog> target(dialog);
        // From the event loop, not from this timer's slot: the handler may
        // open nested modal windows, and this timer must keep running then.
        QTimer::singleShot(0, this, [handle, target] {
            if (target) {
                handle(target.data());
            }
        });
        return;
    }
    unexpectedDialogs.append(className);
    dialog->reject();
}
