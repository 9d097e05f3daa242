#pragma once

#include "model/itemdata.h"
#include "model/modbus_types.h"

#include <cstdint>
#include <string>

// Settings of a serial port, with their own validators and setters.
class CPortIO_Data_COM
{
public:
    static const WStrTable m_wszBaudRate;
    static const WStrTable m_wszDataBits;
    static const WStrTable m_wszStopBits;
    static const WStrTable m_wszParity;
    static const WStrTable m_wszRtsControl;
    static const WStrTable m_wszDtrControl;

    explicit CPortIO_Data_COM(uint32_t comNo = 1, uint64_t baudRate = 9600, uint8_t dataBits = 8,
                              uint8_t stopBits = 1, uint8_t parity = 0, bool echo = false,
                              uint8_t rtsControl = 0, uint8_t dtrControl = 0);
    virtual ~CPortIO_Data_COM();

    bool Validate_ComNo(const std::wstring& value) const;
    bool Set_ComNo(const std::wstring& value);
    bool Validate_BaudRate(const std::wstring& value) const;
    bool Set_BaudRate(const std::wstring& value);
    bool Validate_DataBits(const std::wstring& value) const;
    bool Set_DataBits(const std::wstring& value);
    bool Validate_StopBits(const std::wstring& value) const;
    bool Set_StopBits(const std::wstring& value);
    bool Validate_Parity(const std::wstring& value) const;
    bool Set_Parity(const std::wstring& value);
    bool Validate_bEcho(const std::wstring& value) const;
    bool Set_bEcho(const std::wstring& value);
    bool Validate_RtsControl(const std::wstring& value) const;
    bool Set_RtsControl(const std::wstring& value);
    bool Validate_DtrControl(const std::wstring& value) const;
    bool Set_DtrControl(const std::wstring& value);

    StrProps GetStrProps() const;

    uint32_t ComNo;
    uint64_t BaudRate;
    uint8_t DataBits;
    uint8_t StopBits;
    uint8_t Parity;
    bool bEcho;
    uint8_t RtsControl;
    uint8_t DtrControl;
};
