#include "dialogs/devicesetupdialog.h"

#include "ui_devicesetupdialog.h"

#include "model/deviceinfo.h"

#include <QPushButton>

namespace {
// The server reads these numbers as character codes, not digits.
QString asCode(uint16_t value)
{
    return QString(QChar(value));
}
} // namespace

DeviceSetupDialog::DeviceSetupDialog(CDeviceInfo* device, QWidget* parent)
    : QDialog(parent), ui(new Ui_DeviceSetupDialog), m_device(device)
{
    ui->setupUi(this);
    ui->buttonBox->button(QDialogButtonBox::Cancel)->setText("Отмена");
}

DeviceSetupDialog::~DeviceSetupDialog()
{
    delete ui;
}

void DeviceSetupDialog::Init()
{
    if (!m_device)
        return;
    m_oldName = QString::fromStdString(m_device->GetName());
    ui->nameEdit->setText(m_oldName);
    ui->addressBox->setValue(m_device->Addr);
    ui->exchangeBox->setCurrentIndex(m_device->bExchange ? 1 : 0);
    ui->emulationBox->setCurrentIndex(m_device->bEmulation ? 1 : 0);
    ui->maxRegsBox->setValue(m_device->MaxRegsInReqv);
    ui->maxDiscretsBox->setValue(m_device->MaxDiscretsInReqv);
    ui->maxFragmentationBox->setValue(m_device->MaxFragmentation);
}

void DeviceSetupDialog::on_DeviceSetupDialog_accepted()
{
    if (!m_device)
        return;
    QString name = ui->nameEdit->text();
    if (name.isEmpty())
        name = m_oldName;
    m_device->SetName(name.toStdString());
    m_device->Addr = uint8_t(ui->addressBox->value());
    m_device->bExchange = ui->exchangeBox->currentIndex() != 0;
    m_device->bEmulation = ui->emulationBox->currentIndex() != 0;
    m_device->MaxRegsInReqv = uint8_t(ui->maxRegsBox->value());
    m_device->MaxDiscretsInReqv = uint16_t(ui->maxDiscretsBox->value());
    m_device->MaxFragmentation = uint8_t(ui->maxFragmentationBox->value());

    QList<QString> info;
    info << name << asCode(m_device->Addr) << QString::number(m_device->bExchange ? 1 : 0)
         << QString::number(m_device->bEmulation ? 1 : 0) << asCode(m_device->MaxRegsInReqv)
         << asCode(m_device->MaxDiscretsInReqv) << asCode(m_device->MaxFragmentation);
    emit signalInfoDevice(info, true);
}
