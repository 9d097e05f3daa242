#include "server/modbus/requestplanner.h"

#include <algorithm>
#include <numeric>

std::vector<CPlannedRequest> CRequestPlanner::Plan(const std::vector<CPlanItem>& items,
                                                   const CPlanLimits& limits)
{
    std::vector<int> order(items.size());
    std::iota(order.begin(), order.end(), 0);
    std::stable_sort(order.begin(), order.end(), [&](int a, int b) {
        return items[a].table != items[b].table ? items[a].table < items[b].table
                                                : items[a].start < items[b].start;
    });

    std::vector<CPlannedRequest> out;
    long end = 0; // one past the last address of the open request
    for (int index : order) {
        const CPlanItem& item = items[index];
        const long limit =
            std::clamp(item.table < 2 ? limits.maxBits : limits.maxRegisters, 1, ProtocolLimit(item.table));
        const long gap = std::max(0, limits.maxGap);
        // Addresses past the end of the table are not asked for.
        const long itemEnd = std::min<long>(long(item.start) + std::max<int>(item.count, 1), 65536);
        CPlannedRequest* open = out.empty() || out.back().table != item.table ? nullptr : &out.back();
        if (open && item.start - end <= gap && std::max(end, itemEnd) - open->start <= limit) {
            end = std::max(end, itemEnd);
            open->count = std::uint16_t(end - open->start);
            open->items.push_back(index);
            continue;
        }
        // An item inside the open request but too long to finish in it still
        // starts a new one: a value is read in one piece where it can be.
        for (long from = item.start; from < itemEnd; from += limit) {
            CPlannedRequest request;
            request.table = item.table;
            request.start = std::uint16_t(from);
            request.count = std::uint16_t(std::min(limit, itemEnd - from));
            request.items.push_back(index);
            out.push_back(request);
        }
        end = out.back().start + out.back().count;
    }
    return out;
}
