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

    // Greedy from the left: a request starts at the first register still
    // wanted and takes in all that its limit and the gaps allow. A value that
    // fits one request is never cut; a larger one fills requests to the brim,
    // sharing its first and last piece with its neighbours. No plan that keeps
    // those rules has fewer requests.
    std::vector<CPlannedRequest> out;
    long end = 0; // one past the last register the open request reads
    const long gap = std::max(0, limits.maxGap);
    const auto add = [&out](int table, long start, long count, int index) {
        CPlannedRequest request;
        request.table = table;
        request.start = std::uint16_t(start);
        request.count = std::uint16_t(count);
        request.items.push_back(index);
        out.push_back(std::move(request));
    };
    for (int index : order) {
        const CPlanItem& item = items[index];
        const long limit =
            std::clamp(item.table < 2 ? limits.maxBits : limits.maxRegisters, 1, ProtocolLimit(item.table));
        // Addresses past the end of the table are not asked for.
        const long itemEnd = std::min<long>(long(item.start) + std::max<int>(item.count, 1), 65536);
        CPlannedRequest* last = !out.empty() && out.back().table == item.table ? &out.back() : nullptr;
        if (last && item.start < last->start) {
            // Inside the pieces of a larger value: read with the piece that holds it whole.
            const auto holder = std::find_if(out.rbegin(), out.rend(), [&](const CPlannedRequest& r) {
                return r.table == item.table && r.start <= item.start && itemEnd <= r.start + r.count;
            });
            if (holder != out.rend())
                holder->items.push_back(index);
            else
                out.insert(
                    out.end() - 1,
                    CPlannedRequest{item.table, item.start, std::uint16_t(itemEnd - item.start), {index}});
            continue;
        }
        const long brim = last ? std::min<long>(last->start + limit, 65536) : 0;
        if (last && item.start - end <= gap && itemEnd <= brim) {
            end = std::max(end, itemEnd);
            last->count = std::uint16_t(end - last->start);
            last->items.push_back(index);
            continue;
        }
        long from = item.start;
        if (last && item.start - end <= gap && item.start < brim && itemEnd - item.start > limit) {
            // Larger than a request: its first piece fills this one.
            last->count = std::uint16_t(brim - last->start);
            last->items.push_back(index);
            from = brim;
        }
        for (; itemEnd - from > limit; from += limit)
            add(item.table, from, limit, index);
        // The last piece, or the whole value, stays open for what follows.
        add(item.table, from, itemEnd - from, index);
        end = itemEnd;
    }
    return out;
}
