#include "GuiTest.h"

#include <QAbstractButton>
#include <QApplication>
#include <QDir>
#include <QFile>
#include <QRegularExpression>

GuiTestEnvironment::GuiTestEnvironment()
{
    Q_ASSERT(folder.isValid());
    QDir::setCurrent(folder.path());
    qputenv("TEMP", folder.path().toLocal8Bit());
}

ServerPlatform GuiTestEnvironment::MakePlatform(std::vector<IPv4Address> addresses, bool privileged)
{
    ServerPlatform platform;
    platform.detectLocalAddresses = [addresses] { return addresses; };
    platform.createSocket = [this] { return std::make_unique<FakeDatagramSocket>(network); };
    platform.canBindPrivilegedPort = [privileged] { return privileged; };
    platform.clock = &clock;
    return platform;
}

QByteArray GuiTestEnvironment::ReadFile(const QString& name) const
{
    QFile file(FilePath(name));
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

void GuiTestEnvironment::WriteFile(const QString& name, const QByteArray& contents) const
{
    QFile file(FilePath(name));
    if (file.open(QIODevice::WriteOnly | QIODevice::Truncate)) {
        file.write(contents);
    }
}

ModalWatcher::ModalWatcher()
{
    QObject::connect(&timer, &QTimer::timeout, [this] { Look(); });
    timer.start(10);
}

void ModalWatcher::OnDialog(const QString& className, std::function<void(QDialog*)> handler)
{
    handlers.emplace_back(className, std::move(handler));
}

void ModalWatcher::Look()
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
    if (!handlers.empty() && handlers.front().first == dialog->metaObject()->className()) {
        auto handle = std::move(handlers.front().second);
        handlers.pop_front();
        // From the event loop, not from this timer's slot: the handler may
        // open nested modal windows, and this timer must keep running then.
        QTimer::singleShot(0, [handle, target = QPointer<QDialog>(dialog)] {
            if (target) {
                handle(target);
            }
        });
        return;
    }
    unexpectedDialogs.append(dialog->metaObject()->className());
    dialog->reject();
}

bool MainWindowProbe::IsFormEnabled(bool enabled) const
{
    const QList<QLineEdit*> fields = window.findChildren<QLineEdit*>(QRegularExpression("^lineEdit"));
    for (QLineEdit* field : fields) {
        if (field->isEnabled() != enabled) {
            return false;
        }
    }
    return fields.size() == 7 && ListeningAddress()->isEnabled() == enabled;
}

void MainWindowProbe::EnterValidForm() const
{
    Field("lineEditPoolStartAddress")->setText("10.77.0.100");
    Field("lineEditPoolEndAddress")->setText("10.77.0.199");
    Field("lineEditSubnetMask")->setText("255.255.255.0");
    Field("lineEditDefaultGateway")->setText("10.77.0.1");
    Field("lineEditDNSAddress1")->setText("10.77.0.1");
    Field("lineEditDNSAddress2")->setText("");
    Field("lineEditLeaseDuration")->setText("600");
}

QImage Picture(const QIcon& icon, int size)
{
    return icon.pixmap(size, size).toImage().convertToFormat(QImage::Format_ARGB32);
}

QImage Picture(const char* resource)
{
    return QImage(resource).convertToFormat(QImage::Format_ARGB32);
}
