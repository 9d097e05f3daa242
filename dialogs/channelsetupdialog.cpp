#include "dialogs/channelsetupdialog.h"

#include "ui_channelsetupdialog.h"

#include "model/cchannelinfo.h"
#include "model/portio_cominfo.h"
#include "model/portio_tcpinfo.h"

#include <QPushButton>

namespace {
const int kSerial = 0;
const int kTcp = 1;
} // namespace

ChannelSetupDialog::ChannelSetupDialog(CChannelInfo* channel, QWidget* parent)
    : QDialog(parent), ui(new Ui_ChannelSetupDialog), m_channel(channel)
{
    ui->setupUi(this);
    ui->buttonBox->button(QDialogButtonBox::Cancel)->setText("Отмена");
}

ChannelSetupDialog::~ChannelSetupDialog()
{
    delete ui;
}

void ChannelSetupDialog::Init()
{
    if (!m_channel)
        return;
    m_oldName = QString::fromStdString(m_channel->GetName());
    ui->nameEdit->setText(m_oldName);
    {
        const QSignalBlocker block(ui->typeBox);
        ui->typeBox->setCurrentIndex(m_channel->TypeChannel);
    }
    ui->timeOutBox->setValue(int(qMin<uint64_t>(m_channel->Timeout, INT_MAX)));
    ui->quanRetryBox->setValue(m_channel->QuanRetry);
    ui->timeBusyBox->setValue(int(qMin<uint64_t>(m_channel->TimeBusy, INT_MAX)));

    // The protocol list depends on the port, so the stored protocol is not
    // looked at: every opening starts from the port's usual protocol.
    if (m_channel->TypeChannel == kTcp) {
        ui->protocolBox->clear();
        ui->protocolBox->addItems({"MODBUS ASCII", "MODBUS TCP"});
        ui->protocolBox->setCurrentIndex(1);
        if (auto* port = dynamic_cast<CPortIO_TCPInfo*>(m_channel->Port)) {
            ui->ipEdit->setText(QString::fromStdString(port->GetIpString()));
            ui->tcpPortBox->setValue(port->IP_Port);
            ui->timeoutConnectBox->setValue(int(qMin<uint64_t>(port->TimeoutConnect, INT_MAX)));
        }
    } else if (m_channel->TypeChannel == kSerial) {
        ui->protocolBox->clear();
        ui->protocolBox->addItems({"MODBUS RTU", "MODBUS ASCII"});
        ui->protocolBox->setCurrentIndex(0);
        if (auto* port = dynamic_cast<CPortIO_COMInfo*>(m_channel->Port)) {
            ui->comNoBox->setValue(int(qMin<uint32_t>(port->ComNo, INT_MAX)));
            ui->baudRateBox->clear();
            ui->baudRateBox->addItems({"300", "600", "1200", "2400", "4800", "9600", "14400", "19200",
                                       "38400", "56000", "57600", "115200", "128000", "256000"});
            ui->baudRateBox->setCurrentText(QString::number(port->BaudRate));
            ui->dataBitsBox->setCurrentIndex(port->DataBits == 7 ? 0 : 1);
            ui->stopBitsBox->setCurrentIndex(port->StopBits == 1 ? 0 : 1);
            ui->parityBox->setCurrentIndex(port->Parity);
            ui->echoBox->setCurrentIndex(port->bEcho ? 1 : 0);
            ui->rtsControlBox->setCurrentIndex(port->RtsControl);
            ui->dtrControlBox->setCurrentIndex(port->DtrControl);
        }
    }
    ui->stackedWidget->setCurrentIndex(m_channel->TypeChannel);
}

void ChannelSetupDialog::on_typeBox_currentIndexChanged(int index)
{
    ui->stackedWidget->setCurrentIndex(index);
    if (!m_channel)
        return;
    // The node changes here, not on OK: a new port of the chosen kind with its defaults.
    m_channel->TypeChannel = index;
    m_channel->Init();
    Init();
}

void ChannelSetupDialog::on_ChannelSetupDialog_accepted()
{
    if (!m_channel)
        return;
    QString name = ui->nameEdit->text();
    if (name.isEmpty())
        name = m_oldName;
    m_channel->SetName(name.toStdString());
    m_channel->TypeChannel = ui->typeBox->currentIndex();
    m_channel->Timeout = uint64_t(ui->timeOutBox->value());
    m_channel->QuanRetry = uint8_t(ui->quanRetryBox->value());
    m_channel->TimeBusy = uint64_t(ui->timeBusyBox->value());

    QList<QString> info;
    info << name << QString::number(m_channel->TypeChannel) << QString::number(m_channel->Timeout)
         << QString::number(m_channel->QuanRetry) << QString::number(m_channel->TimeBusy);

    if (m_channel->TypeChannel == kTcp) {
        m_channel->TypeProtocol = ui->protocolBox->currentIndex() + 1;
        info << QString::number(m_channel->TypeProtocol);
        if (auto* port = dynamic_cast<CPortIO_TCPInfo*>(m_channel->Port)) {
            // A text that doesn't parse keeps the old address, silently.
            GetIPfromString_t<wchar_t>(ui->ipEdit->text().toStdWString(), port->IP);
            port->IP_Port = uint16_t(ui->tcpPortBox->value());
            port->TimeoutConnect = uint64_t(ui->timeoutConnectBox->value());
            info << QString::number(port->IP) << QString::number(port->IP_Port)
                 << QString::number(port->TimeoutConnect);
        }
        emit signalIpAddr(ui->ipEdit->text());
    } else if (m_channel->TypeChannel == kSerial) {
        m_channel->TypeProtocol = ui->protocolBox->currentIndex();
        info << QString::number(m_channel->TypeProtocol);
        if (auto* port = dynamic_cast<CPortIO_COMInfo*>(m_channel->Port)) {
            bool ok = false;
            const int baud = ui->baudRateBox->currentText().toInt(&ok);
            port->ComNo = uint32_t(ui->comNoBox->value());
            port->BaudRate = ok ? uint64_t(baud) : 0;
            port->DataBits = ui->dataBitsBox->currentIndex() != 0 ? 8 : 7;
            port->StopBits = ui->stopBitsBox->currentIndex() != 0 ? 2 : 1;
            port->Parity = uint8_t(ui->parityBox->currentIndex());
            port->bEcho = ui->echoBox->currentIndex() != 0;
            port->RtsControl = uint8_t(ui->rtsControlBox->currentIndex());
            port->DtrControl = uint8_t(ui->dtrControlBox->currentIndex());
            info << QString::number(port->ComNo) << QString::number(port->BaudRate)
                 << QString::number(port->DataBits) << QString::number(port->StopBits)
                 << QString::number(port->Parity) << QString::number(port->bEcho ? 1 : 0)
                 << QString::number(port->RtsControl) << QString::number(port->DtrControl);
        }
    }
    emit signalInfoChannel(info, true);
}
