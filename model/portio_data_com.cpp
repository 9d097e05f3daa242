#include "model/portio_data_com.h"

#include "model/dataconversion.h"
#include "model/rangevalidate.h"

using RangeValidate::ReadByteValue;
using RangeValidate::ReadValue;
using RangeValidate::Validate_Range_t;

const WStrTable CPortIO_Data_COM::m_wszBaudRate = {L"300",   L"600",    L"1200",   L"2400",  L"4800",
                                                   L"9600",  L"14400",  L"19200",  L"38400", L"56000",
                                                   L"57600", L"115200", L"128000", L"256000"};
const WStrTable CPortIO_Data_COM::m_wszDataBits = {L"7", L"8"};
const WStrTable CPortIO_Data_COM::m_wszStopBits = {L"1", L"2"};
const WStrTable CPortIO_Data_COM::m_wszParity = {L"Нет", L"Нечет", L"Чет", L"Маркер", L"Пробел"};
const WStrTable CPortIO_Data_COM::m_wszRtsControl = {L"Нет", L"Включено", L"Handshake", L"Togge"};
const WStrTable CPortIO_Data_COM::m_wszDtrControl = {L"Нет", L"Включено", L"Handshake"};

CPortIO_Data_COM::CPortIO_Data_COM(uint32_t comNo, uint64_t baudRate, uint8_t dataBits, uint8_t stopBits,
                                   uint8_t parity, bool echo, uint8_t rtsControl, uint8_t dtrControl)
    : ComNo(comNo), BaudRate(baudRate), DataBits(dataBits), StopBits(stopBits), Parity(parity), bEcho(echo),
      RtsControl(rtsControl), DtrControl(dtrControl)
{
}

CPortIO_Data_COM::~CPortIO_Data_COM() = default;

bool CPortIO_Data_COM::Validate_ComNo(const std::wstring& value) const
{
    return Validate_Range_t<int>(value, 0, 1000);
}

bool CPortIO_Data_COM::Set_ComNo(const std::wstring& value)
{
    if (!Validate_ComNo(value))
        return false;
    ReadValue(value, ComNo);
    return true;
}

bool CPortIO_Data_COM::Validate_BaudRate(const std::wstring& value) const
{
    return FindTableText(m_wszBaudRate, value) >= 0;
}

bool CPortIO_Data_COM::Set_BaudRate(const std::wstring& value)
{
    if (!Validate_BaudRate(value))
        return false;
    ReadValue(value, BaudRate);
    return true;
}

bool CPortIO_Data_COM::Validate_DataBits(const std::wstring& value) const
{
    return FindTableText(m_wszDataBits, value) >= 0;
}

bool CPortIO_Data_COM::Set_DataBits(const std::wstring& value)
{
    if (!Validate_DataBits(value))
        return false;
    ReadByteValue(value, DataBits);
    return true;
}

bool CPortIO_Data_COM::Validate_StopBits(const std::wstring& value) const
{
    return FindTableText(m_wszStopBits, value) >= 0;
}

bool CPortIO_Data_COM::Set_StopBits(const std::wstring& value)
{
    if (!Validate_StopBits(value))
        return false;
    ReadByteValue(value, StopBits);
    return true;
}

bool CPortIO_Data_COM::Validate_Parity(const std::wstring& value) const
{
    return FindTableText(m_wszParity, value) >= 0;
}

bool CPortIO_Data_COM::Set_Parity(const std::wstring& value)
{
    const int pos = FindTableText(m_wszParity, value);
    if (pos < 0)
        return false;
    Parity = static_cast<uint8_t>(pos);
    return true;
}

bool CPortIO_Data_COM::Validate_bEcho(const std::wstring& value) const
{
    return FindTableText(g_wszYesNo, value) >= 0;
}

bool CPortIO_Data_COM::Set_bEcho(const std::wstring& value)
{
    if (!Validate_bEcho(value))
        return false;
    // The text is read as a number, so both "Да" and "Нет" give false here;
    // echo is switched on only by the channel dialog.
    int32_t v = 0;
    ReadValue(value, v);
    bEcho = v != 0;
    return true;
}

bool CPortIO_Data_COM::Validate_RtsControl(const std::wstring& value) const
{
    return FindTableText(m_wszRtsControl, value) >= 0;
}

bool CPortIO_Data_COM::Set_RtsControl(const std::wstring& value)
{
    const int pos = FindTableText(m_wszRtsControl, value);
    if (pos < 0)
        return false;
    RtsControl = static_cast<uint8_t>(pos);
    return true;
}

bool CPortIO_Data_COM::Validate_DtrControl(const std::wstring& value) const
{
    return FindTableText(m_wszDtrControl, value) >= 0;
}

bool CPortIO_Data_COM::Set_DtrControl(const std::wstring& value)
{
    const int pos = FindTableText(m_wszDtrControl, value);
    if (pos < 0)
        return false;
    DtrControl = static_cast<uint8_t>(pos);
    return true;
}

StrProps CPortIO_Data_COM::GetStrProps() const
{
    return {
        {"COM-порт", std::to_string(ComNo)},
        {"Скорость обмена", std::to_string(BaudRate)},
        {"Количество бит данных", std::to_string(DataBits)},
        {"Количество стоп-бит данных", std::to_string(StopBits)},
        {"Контроль чётности", TableTextUTF8(m_wszParity, Parity)},
        {"Наличие эха", TableTextUTF8(g_wszYesNo, bEcho ? 1 : 0)},
        {"Управление RTS", TableTextUTF8(m_wszRtsControl, RtsControl)},
        {"Управление DTR", TableTextUTF8(m_wszDtrControl, DtrControl)},
    };
}
