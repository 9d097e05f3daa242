#pragma once

#include <QDialog>

namespace Ui {
class ServerOutputDialog;
}

// A snapshot of what the gateway has printed since it was started.
class ServerOutputDialog : public QDialog
{
    Q_OBJECT
public:
    explicit ServerOutputDialog(QWidget* parent = nullptr);
    ~ServerOutputDialog() override;

    void Init(const QString& text);

private:
    Ui::ServerOutputDialog* ui;
};
