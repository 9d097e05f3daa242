#include "server/modbus/valuecodec.h"

#include <cmath>
#include <cstring>
#include <iomanip>
#include <locale>
#include <sstream>

namespace {

// Each text lists, for the bytes on the wire (first register's high byte
// first), which byte of the value stands there, A being the most significant.
const char* const kOrders1[] = {"AB", "BA"};
const char* const kOrders2[] = {"ABCD", "CDAB", "BADC", "DCBA"};
const char* const kOrders4[] = {"ABCDEFGH", "GHEFCDAB", "BADCFEHG", "HGFEDCBA"};

enum
{
    Real32 = 0,
    Real64,
    UInt16,
    UInt32,
    Int16,
    Int32,
    LowByte,
    HighByte,
    Bit0
};

} // namespace

CValueCodec::CValueCodec(int table, int valType, int byteOrder, const Scale& scale)
    : m_table(table), m_valType(valType), m_byteOrder(byteOrder), m_scale(scale)
{
    // The file keeps no transformation for bits and their value types.
    if (table < 2 || valType > HighByte)
        m_scale = Scale();
}

bool CValueCodec::operator==(const CValueCodec& o) const
{
    return m_table == o.m_table && m_valType == o.m_valType && m_byteOrder == o.m_byteOrder &&
           m_scale.kind == o.m_scale.kind && m_scale.srcMin == o.m_scale.srcMin &&
           m_scale.srcMax == o.m_scale.srcMax && m_scale.dstMin == o.m_scale.dstMin &&
           m_scale.dstMax == o.m_scale.dstMax && m_scale.factor == o.m_scale.factor;
}

int CValueCodec::Registers() const
{
    if (IsBit())
        return 1;
    switch (m_valType) {
    case Real64:
        return 4;
    case Real32:
    case UInt32:
    case Int32:
        return 2;
    default:
        return 1;
    }
}

const char* CValueCodec::Order() const
{
    // An order the list does not hold (none stored) reads as the first.
    const auto pick = [this](const char* const* list, int size) {
        return list[m_byteOrder >= 0 && m_byteOrder < size ? m_byteOrder : 0];
    };
    switch (Registers()) {
    case 4:
        return pick(kOrders4, 4);
    case 2:
        return pick(kOrders2, 4);
    default:
        return pick(kOrders1, m_valType <= Int16 ? 2 : 1);
    }
}

double CValueCodec::Raw(const std::uint16_t* words) const
{
    if (IsBit())
        return words[0] ? 1 : 0;
    if (m_valType >= Bit0)
        return (words[0] >> (m_valType - Bit0)) & 1;
    if (m_valType == LowByte)
        return words[0] & 0xFF;
    if (m_valType == HighByte)
        return words[0] >> 8;

    const int n = Registers() * 2;
    const char* order = Order();
    unsigned char value[8] = {};
    for (int k = 0; k < n; ++k) {
        const unsigned char wire = (k % 2 == 0) ? words[k / 2] >> 8 : words[k / 2] & 0xFF;
        value[order[k] - 'A'] = wire;
    }
    std::uint64_t bits = 0;
    for (int k = 0; k < n; ++k)
        bits = (bits << 8) | value[k];
    switch (m_valType) {
    case Real32: {
        const std::uint32_t b32 = std::uint32_t(bits);
        float f;
        std::memcpy(&f, &b32, sizeof f);
        return f;
    }
    case Real64: {
        double d;
        std::memcpy(&d, &bits, sizeof d);
        return d;
    }
    case Int16:
        return std::int16_t(bits);
    case Int32:
        return std::int32_t(bits);
    default:
        return double(bits);
    }
}

double CValueCodec::Decode(const std::uint16_t* words) const
{
    const double raw = Raw(words);
    switch (m_scale.kind) {
    case 1:
        if (m_scale.srcMax == m_scale.srcMin)
            return m_scale.dstMin;
        return m_scale.dstMin +
               (raw - m_scale.srcMin) * (m_scale.dstMax - m_scale.dstMin) / (m_scale.srcMax - m_scale.srcMin);
    case 2:
        return raw * m_scale.factor;
    default:
        return raw;
    }
}

bool CValueCodec::ToRaw(double value, double& raw, std::string& why) const
{
    raw = value;
    if (m_scale.kind == 1) {
        if (m_scale.dstMax == m_scale.dstMin) {
            why = "у линейной шкалы пустой диапазон";
            return false;
        }
        raw = m_scale.srcMin + (value - m_scale.dstMin) * (m_scale.srcMax - m_scale.srcMin) /
                                   (m_scale.dstMax - m_scale.dstMin);
    } else if (m_scale.kind == 2) {
        raw = value / m_scale.factor;
    }
    if (!std::isfinite(raw)) {
        why = "значение не число";
        return false;
    }
    if (IsBit() || m_valType >= Bit0) {
        raw = raw >= 0.5 ? 1 : 0;
        return true;
    }
    // The raw range of each type; floats only refuse what they cannot hold.
    static const struct
    {
        const char* name;
        double lo, hi;
    } kRanges[] = {{"Вещ32", -3.4028234663852886e38, 3.4028234663852886e38},
                   {"Вещ64", -1.7976931348623157e308, 1.7976931348623157e308},
                   {"Цел16", 0, 65535},
                   {"Цел32", 0, 4294967295.0},
                   {"Цел16(знак)", -32768, 32767},
                   {"Цел32(знак)", -2147483648.0, 2147483647.0},
                   {"Младший байт", 0, 255},
                   {"Старший байт", 0, 255}};
    if (m_valType < 0 || m_valType > HighByte) {
        why = "неизвестный тип значения";
        return false;
    }
    if (m_valType > Real64)
        raw = std::round(raw);
    const auto& range = kRanges[m_valType];
    if (raw < range.lo || raw > range.hi) {
        std::ostringstream text;
        text.imbue(std::locale::classic());
        text << std::setprecision(10) << raw << " вне диапазона типа «" << range.name << "»";
        if (m_valType > Real64)
            text << " (" << std::setprecision(12) << range.lo << "…" << range.hi << ")";
        why = text.str();
        return false;
    }
    return true;
}

bool CValueCodec::Encode(double value, std::uint16_t current, std::vector<std::uint16_t>& words,
                         std::string& why) const
{
    double raw = 0;
    if (!ToRaw(value, raw, why))
        return false;
    words.clear();
    if (IsBit() || m_valType >= Bit0) {
        const bool on = raw != 0;
        if (IsBit()) {
            words.push_back(on);
        } else {
            const std::uint16_t mask = std::uint16_t(1u << (m_valType - Bit0));
            words.push_back(on ? (current | mask) : (current & ~mask));
        }
        return true;
    }

    std::uint64_t bits = 0;
    switch (m_valType) {
    case Real32: {
        const float f = float(raw);
        std::uint32_t b32;
        std::memcpy(&b32, &f, sizeof b32);
        bits = b32;
        break;
    }
    case Real64:
        std::memcpy(&bits, &raw, sizeof bits);
        break;
    case Int16:
        bits = std::uint16_t(std::int16_t(raw));
        break;
    case Int32:
        bits = std::uint32_t(std::int32_t(raw));
        break;
    case LowByte:
        words.push_back(std::uint16_t((current & 0xFF00) | std::uint16_t(raw)));
        return true;
    case HighByte:
        words.push_back(std::uint16_t((current & 0x00FF) | (std::uint16_t(raw) << 8)));
        return true;
    default: // the unsigned ones
        bits = std::uint64_t(raw);
        break;
    }

    const int n = Registers() * 2;
    const char* order = Order();
    unsigned char value8[8] = {};
    for (int k = n - 1; k >= 0; --k, bits >>= 8)
        value8[k] = bits & 0xFF;
    words.assign(n / 2, 0);
    for (int k = 0; k < n; ++k)
        words[k / 2] |= std::uint16_t(value8[order[k] - 'A']) << ((k % 2 == 0) ? 8 : 0);
    return true;
}
