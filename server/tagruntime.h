#pragma once

#include <open62541/types.h>

#include <cstdint>
#include <string>

// Everything the gateway needs at run time to produce one tag's value, taken
// from the tree when the node is built. Values are computed on demand from the
// exchange clock, so a tag nobody reads costs nothing.
class CTagRuntime
{
public:
    enum DataKind
    {
        Boolean,
        Float,
        Double,
        UInt16,
        UInt32,
        Int16,
        Int32,
        Byte
    };
    enum Emulation
    {
        Constant = 0,
        Random = 1,
        Sine = 2
    };
    enum Transform
    {
        NoTransform = 0,
        LineScale = 1,
        Factor = 2
    };

    // States, and registers read as bits, are Boolean; the rest by value type.
    static DataKind KindFor(int regType, int valType);
    static const UA_DataType* TypeOf(DataKind kind);

    // Seeds the random emulation so that each tag has its own sequence.
    void SetSeed(const std::string& fullName);
    // The values a tag of `kind` can hold.
    static void RangeOf(DataKind kind, double& lo, double& hi);
    // The range of the raw value that emulation spans: the line scale's input
    // range when there is one, else the range of the tag's type.
    void RawRange(double& lo, double& hi) const;
    // The emulated value at `ms` (milliseconds of the Unix epoch), before the
    // transformation and the type conversion.
    double RawAt(std::int64_t ms) const;
    // The engineering value: raw value through the transformation.
    double ValueAt(std::int64_t ms) const;
    // Fills a data value as a read of the tag at `ms` would see it.
    void Fill(std::int64_t ms, bool sourceTimestamp, UA_DataValue* out) const;

    DataKind kind = Float;
    bool emulated = false;
    int emulation = Constant;
    double constant = 0.0;
    std::uint32_t period = 1; // seconds
    int transform = NoTransform;
    double srcMin = 0, srcMax = 1000, dstMin = 0, dstMax = 1000;
    double factor = 1.0;
    std::uint64_t updateMs = 50;

private:
    std::int64_t Sampled(std::int64_t ms) const;
    std::uint64_t m_seed = 0;
};
