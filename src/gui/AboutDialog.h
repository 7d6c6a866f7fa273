#pragma once

#include <QDialog>

#include <memory>

namespace Ui {
class AboutDialog;
}

// The program's name, logo and version.
class AboutDialog : public QDialog {
    Q_OBJECT

public:
    explicit AboutDialog(QWidget* parent);
    ~AboutDialog() override;

private:
    std::unique_ptr<Ui::AboutDialog> ui;
};
