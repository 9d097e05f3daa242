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

    // The raw value: states, and registers read as bits, are Boolean; the
    // rest by value type.
    static DataKind KindFor(int regType, int valType);
    // What a tag publishes: its raw kind, or a Double when a transformation
    // gives it an engineering value.
    static DataKind PublishedKind(int regType, int valType, int transformType);
    static const UA_DataType* TypeOf(DataKind kind);

    // Seeds the random emulation so that each tag has its own sequence.
    void SetSeed(const std::string& fullName);
    // The range of the raw value that emulation spans: the line scale's input
    // range when there is one, else what the tag dialog promises: -1 to 1 for
    // the sine, 0 to 1 for the random number.
    void RawRange(double& lo, double& hi) const;
    // The emulated value at `ms` (milliseconds of the Unix epoch), before the
    // transformation and the type conversion.
    double RawAt(std::int64_t ms) const;
    // The engineering value: raw value through the transformation.
    double ValueAt(std::int64_t ms) const;
    DataKind Published() const { return transform == NoTransform || kind == Boolean ? kind : Double; }
    // Fills a data value as a read of the tag at `ms` would see it.
    void Fill(std::int64_t ms, bool sourceTimestamp, UA_DataValue* out) const;

    DataKind kind = Float;
    bool emulated = false;
    bool readable = true;
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
