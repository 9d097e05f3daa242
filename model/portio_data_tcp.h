#pragma once

#include "model/itemdata.h"

#include <cstdint>
#include <sstream>
#include <string>
#include <vector>

// Parses a dotted IPv4 text into ip, first number in the lowest byte. Fewer than four
// pieces or a piece above 255 answer false and leave ip as it was; further pieces are ignored.
template <typename T> bool GetIPfromString_t(const std::basic_string<T>& text, uint32_t& ip)
{
    std::basic_istringstream<T> stream(text);
    std::vector<std::basic_string<T>> pieces;
    std::basic_string<T> piece;
    while (std::getline(stream, piece, static_cast<T>('.')))
        pieces.push_back(piece);
    if (pieces.size() < 4)
        return false;
    uint32_t result = 0;
    for (size_t i = 0; i < 4; ++i) {
        uint32_t octet = 0;
        std::basic_istringstream<T> number(pieces[i]);
        number >> octet;
        if (octet > 255)
            return false;
        result |= octet << (8 * i);
    }
    ip = result;
    return true;
}

// Settings of a TCP connection, with their own validators and setters.
class CPortIO_Data_TCP
{
public:
    explicit CPortIO_Data_TCP(uint32_t ip = 0, uint16_t ipPort = 502, uint64_t timeoutConnect = 5000);
    virtual ~CPortIO_Data_TCP();

    bool Validate_IP_Port(const std::wstring& value) const;
    bool Set_IP_Port(const std::wstring& value);
    bool Validate_TimeoutConnect(const std::wstring& value) const;
    bool Set_TimeoutConnect(const std::wstring& value);
    bool Set_IP(const std::wstring& value);
    std::string GetIpString() const;

    StrProps GetStrProps() const;

    uint32_t IP;
    uint16_t IP_Port;
    uint64_t TimeoutConnect;
};
