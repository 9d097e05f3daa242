#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

// The single string argument of the node management methods, split into its
// fields and checked. Parsing changes nothing anywhere: it only says whether
// the text is acceptable and what it holds, so a bad argument is refused before
// the tree or the address space are touched.
class CMethodArgument
{
public:
    enum class Method
    {
        Add,
        Edit,
        Delete
    };

    // Item kind codes as they travel.
    enum Kind
    {
        KindNone = 0,
        KindChannel = 1,
        KindDevice = 2,
        KindGroup = 3,
        KindTag = 4
    };

    // Field numbers of the numeric values, by kind. Channel fields 8 to 10
    // mean different things by channel type, so both sets are named.
    enum ChannelField
    {
        ChType = 3,
        ChTimeout = 4,
        ChRetries = 5,
        ChBusy = 6,
        ChProtocol = 7,
        ChComNo = 8,
        ChBaudRate = 9,
        ChDataBits = 10,
        ChStopBits = 11,
        ChParity = 12,
        ChEcho = 13,
        ChRts = 14,
        ChDtr = 15,
        ChIp = 8,
        ChIpPort = 9,
        ChTimeoutConnect = 10
    };
    enum DeviceField
    {
        DevAddr = 3,
        DevExchange = 4,
        DevEmulation = 5,
        DevMaxRegs = 6,
        DevMaxDiscrets = 7,
        DevMaxFragmentation = 8
    };
    enum GroupField
    {
        GrRate = 3,
        GrUnit = 4
    };
    enum TagField
    {
        TagRegType = 3,
        TagAddr = 4,
        TagValType = 5,
        TagByteOrder = 6,
        TagRead = 7,
        TagWrite = 8,
        TagWriteGroup = 9,
        TagRegsInSegment = 10,
        TagSegmentPos = 11,
        TagTransform = 12,
        TagTransformAgain = 13,
        TagEmul = 14,
        TagEmulAgain = 15
    };

    // Parses the argument of one method. On failure returns false, fills
    // `error` with a short reason and leaves `out` unspecified.
    static bool Parse(Method method, const std::string& text, CMethodArgument& out, std::string& error);

    // Splits at ";" keeping empty fields, a trailing one included; the text
    // ends at its first NUL.
    static std::vector<std::string> SplitFields(const std::string& text);

    // Field 0: parent path for add, item path for edit and delete.
    std::string path;
    int kind = KindNone;
    // Field 2; empty when absent or sent empty.
    std::string name;
    // Numeric values by field number; absent fields stay empty.
    std::vector<std::optional<std::int64_t>> values;

    bool Has(int field) const { return field < int(values.size()) && values[field].has_value(); }
    std::int64_t Value(int field) const { return *values[field]; }
    // The value when present, else `fallback`.
    std::int64_t ValueOr(int field, std::int64_t fallback) const
    {
        return Has(field) ? Value(field) : fallback;
    }

private:
    // How many fields a full list of the item starting at `start` has.
    static std::size_t FullSize(const std::vector<std::string>& fields, std::size_t start);
    // The fields of an add or an edit, path and kind first.
    static bool ParseItem(const std::vector<std::string>& fields, CMethodArgument& out, std::string& error);
};
