#pragma once

#include <cstdint>
#include <vector>

// One tag as the planner sees it: the registers (or bits) it needs read
// together, in one of the four Modbus tables (0 discrete inputs, 1 coils,
// 2 input registers, 3 holding registers).
struct CPlanItem
{
    int table = 2;
    std::uint16_t start = 0; // protocol address
    std::uint16_t count = 1;
};

// The device's packing limits: most registers and bits in one request and the
// largest run of unneeded addresses a request may read across.
struct CPlanLimits
{
    int maxRegisters = 125;
    int maxBits = 2000;
    int maxGap = 0;
};

struct CPlannedRequest
{
    int table = 2;
    std::uint16_t start = 0;
    std::uint16_t count = 0;
    std::vector<int> items; // indexes into the planned items
};

// Packs the items of one device into the fewest read requests: items are
// never split unless one alone is larger than a request may be.
class CRequestPlanner
{
public:
    static std::vector<CPlannedRequest> Plan(const std::vector<CPlanItem>& items, const CPlanLimits& limits);
    // The protocol's own limits of one read request for a table.
    static int ProtocolLimit(int table) { return table < 2 ? 2000 : 125; }
};
