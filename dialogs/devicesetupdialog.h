#pragma once

#include <QDialog>
#include <QList>
#include <QString>

class CDeviceInfo;
class Ui_DeviceSetupDialog;

// Modal editor of one device; accepting writes the node and hands the values on.
class DeviceSetupDialog : public QDialog
{
    Q_OBJECT
public:
    DeviceSetupDialog(CDeviceInfo* device, QWidget* parent = nullptr);
    ~DeviceSetupDialog() override;

    void Init();

signals:
    // Entries 1, 4, 5 and 6 are single characters whose codes are the numbers.
    void signalInfoDevice(QList<QString> info, bool flagSaveEnable);

private slots:
    void on_DeviceSetupDialog_accepted();

private:
    Ui_DeviceSetupDialog* ui;
    CDeviceInfo* m_device;
    QString m_oldName;
};
