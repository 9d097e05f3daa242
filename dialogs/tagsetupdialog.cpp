#include "dialogs/tagsetupdialog.h"

#include "ui_tagsetupdialog.h"

#include "model/dataginfo.h"
#include "model/emuldata_const.h"
#include "model/emuldata_sin.h"
#include "model/modbus_types.h"
#include "model/transform_factordata.h"
#include "model/transform_linescaledata.h"

#include <QPushButton>

namespace {

QString real(double value)
{
    return QString::number(value, 'g', 6);
}

bool isOutput(int regType)
{
    return regType == MRT_Coil || regType == MRT_HoldingRegister;
}

} // namespace

TagSetupDialog::TagSetupDialog(CDATagInfo*& tag, bool edit, QWidget* parent)
    : QDialog(parent), ui(new Ui_TagSetupDialog), m_tag(tag)
{
    ui->setupUi(this);
    setWindowIcon(QIcon(":/res/images/res/tag.png"));
    if (edit) {
        ui->label_23->hide();
        ui->spinBox_5->hide();
    }
    ui->buttonBox->button(QDialogButtonBox::Cancel)->setText("Отмена");
}

TagSetupDialog::~TagSetupDialog()
{
    delete ui;
}

void TagSetupDialog::Init()
{
    if (!m_tag)
        return;
    m_oldName = QString::fromStdString(m_tag->GetName());
    ui->nameEdit->setText(m_oldName);

    ui->regTypeBox->setCurrentIndex(m_tag->RegType);
    ui->addrBox->setValue(m_tag->Addr);
    ui->valTypeBox->setCurrentIndex(m_tag->ValType);
    ui->byteOrderBox->setCurrentIndex(m_tag->ByteOrder);
    on_valTypeBox_currentIndexChanged(m_tag->ValType);
    on_regTypeBox_currentIndexChanged(m_tag->RegType);

    ui->readBox->setCurrentIndex(m_tag->bRead ? 1 : 0);
    ui->writeBox->setCurrentIndex(m_tag->bWrite ? 1 : 0);
    ui->writeGroupBox->setCurrentIndex(m_tag->bWriteGroup ? 1 : 0);

    // The maximum is the segment size itself until the size is touched.
    ui->regsInSegmentBox->setValue(m_tag->RegsInSegment);
    ui->segmentPosBox->setValue(m_tag->SegmentPos);
    ui->segmentPosBox->setMaximum(m_tag->RegsInSegment);

    ui->transformTypeBox->setCurrentIndex(m_tag->TransformType);
    if (m_tag->TransformType == TT_LineScale) {
        if (auto* scale = dynamic_cast<CTransform_LineScaleData*>(m_tag->Transform)) {
            ui->srcMinEdit->setText(real(scale->SrcMin));
            ui->srcMaxEdit->setText(real(scale->SrcMax));
            ui->dstMinEdit->setText(real(scale->DstMin));
            ui->dstMaxEdit->setText(real(scale->DstMax));
        }
    } else if (m_tag->TransformType == TT_Factor) {
        if (auto* factor = dynamic_cast<CTransform_FactorData*>(m_tag->Transform))
            ui->factorEdit->setText(real(factor->Factor));
    } else if (m_tag->TransformType == TT_None) {
        ui->transformWidget->setCurrentIndex(0);
    }

    ui->emulTypeBox->setCurrentIndex(m_tag->EmulType);
    if (m_tag->EmulType == ET_Const) {
        if (auto* constant = dynamic_cast<CEmulData_Const*>(m_tag->Emul))
            ui->constEdit->setText(real(constant->Const.dblVal));
    } else if (m_tag->EmulType == ET_Sin) {
        if (auto* sine = dynamic_cast<CEmulData_Sin*>(m_tag->Emul))
            ui->periodBox->setValue(sine->Period);
    }
}

void TagSetupDialog::on_regTypeBox_currentIndexChanged(int index)
{
    static const char* const readCaptions[] = {"Чтение (функция 2)", "Чтение (функция 1)",
                                               "Чтение (функция 4)", "Чтение (функция 3)"};
    if (index < MRT_DiscreteInput || index > MRT_HoldingRegister)
        return;
    const bool registers = index == MRT_InputRegister || index == MRT_HoldingRegister;
    ui->valTypeBox->setEnabled(registers);
    ui->byteOrderBox->setEnabled(registers);
    ui->readBox->setEnabled(true);
    ui->readlabel->setText(readCaptions[index]);
    ui->writeBox->setEnabled(isOutput(index));
    ui->segmentPosBox->setEnabled(false);

    on_writeGroupBox_currentIndexChanged(ui->writeGroupBox->currentIndex());
    on_writeBox_currentIndexChanged(ui->writeBox->currentIndex());
}

void TagSetupDialog::on_valTypeBox_currentIndexChanged(int index)
{
    const int regs = ModbusTypes::GetRegsCount(static_cast<en_ModbusValType>(index));
    ui->byteOrderBox->clear();
    ui->byteOrderBox->setEnabled(regs != 0);
    if (regs <= 0 || regs >= int(g_wszByteOrder.size()))
        return;
    for (const std::wstring& text : g_wszByteOrder[regs])
        ui->byteOrderBox->addItem(QString::fromStdWString(text));

    // A stored order that the new list lacks falls on the swapped bytes.
    int order = m_tag ? m_tag->ByteOrder : 0;
    if (order >= ui->byteOrderBox->count())
        order = regs == 1 ? 1 : 2;
    ui->byteOrderBox->setCurrentIndex(order);
}

void TagSetupDialog::on_writeBox_currentIndexChanged(int index)
{
    ui->writeGroupBox->setEnabled(isOutput(ui->regTypeBox->currentIndex()) && index != 0);
}

void TagSetupDialog::on_writeGroupBox_currentIndexChanged(int index)
{
    QString caption = "Запись (-)";
    switch (ui->regTypeBox->currentIndex()) {
    case MRT_Coil:
        caption = index == 1 ? "Запись (функция 15)" : "Запись (функция 5)";
        break;
    case MRT_HoldingRegister:
        caption = index == 1 ? "Запись (функция 16)" : "Запись (функция 6)";
        break;
    default:
        break;
    }
    ui->writelabel->setText(caption);
}

void TagSetupDialog::on_regsInSegmentBox_valueChanged(int value)
{
    // A position needs a segment of 3 and stops 2 short of its size.
    ui->segmentPosBox->setValue(0);
    if (value < 3) {
        ui->segmentPosBox->setEnabled(false);
        return;
    }
    ui->segmentPosBox->setMaximum(value - 2);
    ui->segmentPosBox->setEnabled(true);
}

void TagSetupDialog::on_regsInSegmentBox_textChanged(const QString& text)
{
    on_regsInSegmentBox_valueChanged(text.toInt());
}

void TagSetupDialog::on_transformTypeBox_currentIndexChanged(int index)
{
    ui->transformWidget->setCurrentIndex(index);
}

void TagSetupDialog::on_emulTypeBox_currentIndexChanged(int index)
{
    ui->emulWidget->setCurrentIndex(index);
}

void TagSetupDialog::on_TagSetupDialog_accepted()
{
    if (!m_tag)
        return;
    QString name = ui->nameEdit->text();
    if (name.isEmpty())
        name = m_oldName;
    bool ok = false;
    int count = ui->spinBox_5->text().toInt(&ok);
    if (!ok)
        count = 0;
    m_tag->SetName(name.toStdString());

    // Disabled widgets count as they stand.
    QList<QString> info;
    info << name;
    m_tag->RegType = static_cast<en_ModbusRegType>(ui->regTypeBox->currentIndex());
    info << QString::number(m_tag->RegType);
    m_tag->Addr = static_cast<uint16_t>(ui->addrBox->value());
    info << QString::number(m_tag->Addr);
    m_tag->ValType = static_cast<en_ModbusValType>(ui->valTypeBox->currentIndex());
    info << QString::number(m_tag->ValType);
    // An empty list gives index -1, stored as 0xFF. The list carries the
    // index as a character, not as digits.
    m_tag->ByteOrder = static_cast<uint8_t>(ui->byteOrderBox->currentIndex());
    info << QString(QChar(char16_t(m_tag->ByteOrder)));
    m_tag->bRead = ui->readBox->currentIndex() != 0;
    info << QString::number(m_tag->bRead ? 1 : 0);
    m_tag->bWrite = ui->writeBox->currentIndex() != 0;
    info << QString::number(m_tag->bWrite ? 1 : 0);
    m_tag->bWriteGroup = ui->writeGroupBox->currentIndex() != 0;
    info << QString::number(m_tag->bWriteGroup ? 1 : 0);
    m_tag->RegsInSegment = static_cast<uint16_t>(ui->regsInSegmentBox->value());
    info << QString::number(m_tag->RegsInSegment);
    m_tag->SegmentPos = static_cast<uint16_t>(ui->segmentPosBox->value());
    info << QString::number(m_tag->SegmentPos);

    const auto transform = static_cast<en_TransformType>(ui->transformTypeBox->currentIndex());
    info << QString::number(transform);
    if (transform != m_tag->TransformType) {
        delete m_tag->Transform;
        m_tag->TransformType = transform;
        m_tag->Transform = CDATagInfo::New_Transform(transform, nullptr);
    }
    info << QString::number(m_tag->TransformType);
    if (auto* scale = dynamic_cast<CTransform_LineScaleData*>(m_tag->Transform);
        scale && transform == TT_LineScale) {
        scale->SrcMin = ui->srcMinEdit->text().toFloat();
        scale->SrcMax = ui->srcMaxEdit->text().toFloat();
        scale->DstMin = ui->dstMinEdit->text().toFloat();
        scale->DstMax = ui->dstMaxEdit->text().toFloat();
    } else if (auto* factor = dynamic_cast<CTransform_FactorData*>(m_tag->Transform);
               factor && transform == TT_Factor) {
        factor->Factor = ui->factorEdit->text().toFloat();
    }

    const auto emul = static_cast<en_EmulType>(ui->emulTypeBox->currentIndex());
    info << QString::number(emul);
    if (emul != m_tag->EmulType) {
        delete m_tag->Emul;
        m_tag->EmulType = emul;
        m_tag->Emul = CDATagInfo::New_Emul(emul, nullptr);
    }
    info << QString::number(m_tag->EmulType);
    if (auto* constant = dynamic_cast<CEmulData_Const*>(m_tag->Emul); constant && emul == ET_Const) {
        constant->Const.dblVal = ui->constEdit->text().toDouble();
    } else if (auto* sine = dynamic_cast<CEmulData_Sin*>(m_tag->Emul); sine && emul == ET_Sin) {
        sine->Period = static_cast<uint32_t>(static_cast<int>(ui->periodBox->value()));
    }

    emit signalInfoCountTag(count);
    emit signalInfoTag(info, true);
}
