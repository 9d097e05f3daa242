#pragma once

#include <cstdint>
#include <string>
#include <vector>

// Turns a tag's registers into its engineering value and back: the value
// type with its byte order, then the line scale or the factor.
class CValueCodec
{
public:
    struct Scale
    {
        int kind = 0; // 0 none, 1 line scale, 2 factor
        double srcMin = 0, srcMax = 1000, dstMin = 0, dstMax = 1000;
        double factor = 1;
    };

    CValueCodec() = default;
    // `table` below 2 is a bit table; then the value type does not count.
    CValueCodec(int table, int valType, int byteOrder, const Scale& scale);

    // Registers the value occupies: 4, 2 or 1 (bits and bytes share one).
    int Registers() const;
    bool IsBit() const { return m_table < 2; }
    // A bit or a byte of a register: writing it keeps the rest of the register.
    bool PartOfRegister() const { return !IsBit() && m_valType >= 6; }

    // Registers (or, for a bit table, one 0/1 word) to the engineering value.
    double Decode(const std::uint16_t* words) const;
    // The engineering value back through the scale, rounded to the value
    // type. False with a reason when the result does not fit the type.
    bool ToRaw(double value, double& raw, std::string& why) const;
    // The engineering value to the words to write. Bits and bytes of a
    // register change only their part of `current`. False with a reason when
    // the value does not fit the type.
    bool Encode(double value, std::uint16_t current, std::vector<std::uint16_t>& words,
                std::string& why) const;

    bool operator==(const CValueCodec& o) const;

private:
    double Raw(const std::uint16_t* words) const;
    // Position in the register's wire bytes of each byte of the value, most
    // significant first.
    const char* Order() const;

    int m_table = 2;
    int m_valType = 2;
    int m_byteOrder = 0;
    Scale m_scale;
};
