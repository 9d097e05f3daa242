#include "dialogs/groupsetupdialog.h"

#include "ui_groupsetupdialog.h"

#include "model/groupinfo.h"

#include <QPushButton>

namespace {
// One day in milliseconds, the widest limit of the rate.
const int kDayMs = 86400000;
} // namespace

GroupSetupDialog::GroupSetupDialog(CGroupInfo* group, QWidget* parent)
    : QDialog(parent), ui(new Ui_GroupSetupDialog), m_group(group)
{
    ui->setupUi(this);
    ui->buttonBox->button(QDialogButtonBox::Cancel)->setText("Отмена");
}

GroupSetupDialog::~GroupSetupDialog()
{
    delete ui;
}

void GroupSetupDialog::Init()
{
    if (!m_group)
        return;
    m_oldName = QString::fromStdString(m_group->GetName());
    ui->nameEdit->setText(m_oldName);
    // The rate is set while the form's own limits still hold, so a stored
    // rate outside them shows clamped; the wide maximum comes only afterwards.
    ui->updateRateBox->setValue(int(qMin<uint64_t>(m_group->UpdateRate, INT_MAX)));
    ui->mu_UpdateRateBox->setCurrentIndex(m_group->MU_UpdateRate);
    if (ui->updateRateBox->value() > kDayMs)
        ui->updateRateBox->setValue(kDayMs);
    ui->updateRateBox->setMaximum(kDayMs);
}

void GroupSetupDialog::on_mu_UpdateRateBox_currentIndexChanged(int index)
{
    // One day in the chosen unit.
    int limit = kDayMs;
    switch (index) {
    case 1:
        limit = 86400;
        break;
    case 2:
        limit = 1440;
        break;
    case 3:
        limit = 24;
        break;
    default:
        break;
    }
    if (limit < ui->updateRateBox->value())
        ui->updateRateBox->setValue(limit);
    ui->updateRateBox->setMaximum(limit);
}

void GroupSetupDialog::on_GroupSetupDialog_accepted()
{
    if (!m_group)
        return;
    QString name = ui->nameEdit->text();
    if (name.isEmpty())
        name = m_oldName;
    m_group->SetName(name.toStdString());
    m_group->UpdateRate = uint64_t(ui->updateRateBox->value());
    m_group->MU_UpdateRate = ui->mu_UpdateRateBox->currentIndex();

    QList<QString> info;
    info << name << QString::number(m_group->UpdateRate) << QString::number(m_group->MU_UpdateRate);
    emit signalInfoGroup(info, true);
}
