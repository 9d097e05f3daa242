#pragma once

#include "server/modbus/channelpoller.h"
#include "server/modbus/livevalue.h"
#include "server/modbus/requestplanner.h"

#include <future>
#include <map>
#include <memory>
#include <string>
#include <unordered_map>

class CChannelInfo;
class CDATagInfo;
class CTreeItemRoot;

// Puts the pollers behind the tree: one per channel that has devices with
// exchange on and emulation off, each tag's node reading its CLiveValue.
// Everything here runs on the server's thread.
class CModbusBridge
{
public:
    CModbusBridge();
    ~CModbusBridge();
    CModbusBridge(const CModbusBridge&) = delete;
    CModbusBridge& operator=(const CModbusBridge&) = delete;

    // The live value of a polled tag, null for an emulated or idle one. A tag
    // built again under the same name keeps its value.
    std::shared_ptr<CLiveValue> LiveFor(const CDATagInfo* tag, const std::string& fullName);
    // The live value LiveFor gave the tag last, null when none is alive.
    std::shared_ptr<CLiveValue> LiveOf(const CDATagInfo* tag) const;
    // Whether LiveFor gives the tag a live value, and whether that takes writes.
    bool Polls(const CDATagInfo* tag) const;
    static bool Writes(const CDATagInfo* tag);
    // Room for the live values of this many tags, made at once by a whole tree's build.
    void Expect(std::size_t tags);
    // Starts, replans or ends pollers where the tree differs from what they
    // poll; devices that did not change go on undisturbed. Every polled tag
    // gets its live value from LiveFor here, so that at start the tree's
    // nodes and its pollers can be made side by side.
    void Reconcile(CTreeItemRoot* root);
    // stopExchange / startExchange.
    void SetRunning(bool running);

    // What the diagnostics read of a channel's line and of a device (by its
    // full name); null for what no poller polls.
    std::shared_ptr<const CChannelPoller::Line> LineOf(const std::string& channel) const;
    std::shared_ptr<const CChannelPoller::Health> HealthOf(const std::string& channel,
                                                           const std::string& device) const;
    // Why a channel with devices to poll is not polled; empty otherwise.
    std::string RefusalOf(const std::string& channel) const;

    // What of a tag's table is read together (the value, or its whole
    // segment) and where the value starts in it.
    static CPlanItem SpanOf(const CDATagInfo* tag, int& offset);
    // Why the tag's registers or bits cannot be read, empty when they can:
    // past the end of the table, or more than one request of the protocol.
    static std::string OutOfBounds(const CDATagInfo* tag);

private:
    struct Channel;
    // Why the channel cannot be polled, empty when it can.
    std::string Refusal(const CChannelInfo* channel) const;
    std::string SerialPath(unsigned comNo) const;
    void ReconcileChannel(CChannelInfo* channel);
    // LiveFor for a tag that is polled.
    std::shared_ptr<CLiveValue> Live(const CDATagInfo* tag, const std::string& fullName);
    // Ends a poller on a thread of its own: a serial read under way may take
    // its whole timeout, which the server's loop must not wait for.
    void Retire(std::unique_ptr<Channel> channel);

    std::map<unsigned, std::string> m_comPaths;
    std::map<std::string, std::unique_ptr<Channel>> m_channels;
    std::map<std::string, std::string> m_refused;
    struct Slot
    {
        std::weak_ptr<CLiveValue> live;
        // The name it was made for: an item that comes back under another
        // name, or a new one in a gone one's memory, gets a value of its own.
        std::size_t nameHash = 0;
    };
    // By the tree's item, which the reconciling walks; full names are made
    // only for the poller's log.
    std::unordered_map<const CDATagInfo*, Slot> m_live;
    bool m_running = true;
    std::vector<std::future<void>> m_retiring;
};
