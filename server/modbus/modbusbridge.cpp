#include "server/modbus/modbusbridge.h"

#include "server/modbus/channelpoller.h"
#include "server/serverlog.h"
#include "server/tagruntime.h"

#include "model/cchannelinfo.h"
#include "model/dataginfo.h"
#include "model/deviceinfo.h"
#include "model/groupinfo.h"
#include "model/portio_cominfo.h"
#include "model/portio_tcpinfo.h"
#include "model/transform_factordata.h"
#include "model/transform_linescaledata.h"
#include "model/treeitemroot.h"

#include <cstdlib>
#include <cstring>
#include <functional>
#include <sstream>

namespace {

const char kComPathsVariable[] = "VELMORA_COM_PORTS";
const std::int64_t kUnitMs[] = {1, 1000, 60000, 3600000};

// A device's settings as raw bytes, only ever compared: reconciling runs after
// every added tag, and formatting each scale's numbers as text dominated it.
template <typename... T> void AppendRaw(std::string& out, const T&... values)
{
    char bytes[(sizeof(T) + ...)];
    char* at = bytes;
    ((std::memcpy(at, &values, sizeof values), at += sizeof values), ...);
    out.append(bytes, sizeof bytes);
}

bool Polled(const CDeviceInfo* device)
{
    return device && !device->bEmulation && device->bExchange;
}

void Log(bool warning, const std::string& text)
{
    CServerLog::Write(warning ? CServerLog::Warning : CServerLog::Info, text);
}

} // namespace

struct CModbusBridge::Channel
{
    std::string signature;
    std::shared_ptr<CChannelPoller> poller;
    std::map<std::string, std::string> devices; // key to signature
};

CModbusBridge::CModbusBridge()
{
    // "1=/dev/ttyUSB0,3=/tmp/ttyV1": COM numbers of the configuration to the
    // devices of this machine.
    const char* paths = std::getenv(kComPathsVariable);
    std::istringstream list(paths ? paths : "");
    std::string entry;
    while (std::getline(list, entry, ',')) {
        const auto eq = entry.find('=');
        if (eq != std::string::npos && eq > 0)
            m_comPaths[unsigned(std::strtoul(entry.substr(0, eq).c_str(), nullptr, 10))] =
                entry.substr(eq + 1);
    }
}

// The futures of the retiring pollers wait for their threads here.
CModbusBridge::~CModbusBridge() = default;

void CModbusBridge::Retire(std::unique_ptr<Channel> channel)
{
    if (!channel)
        return;
    for (auto it = m_retiring.begin(); it != m_retiring.end();)
        it = it->wait_for(std::chrono::seconds(0)) == std::future_status::ready ? m_retiring.erase(it)
                                                                                : std::next(it);
    std::shared_ptr<CChannelPoller> poller = std::move(channel->poller);
    m_retiring.push_back(std::async(std::launch::async, [poller]() mutable { poller.reset(); }));
}

std::string CModbusBridge::SerialPath(unsigned comNo) const
{
    const auto it = m_comPaths.find(comNo);
    if (it != m_comPaths.end())
        return it->second;
    return comNo == 0 ? std::string() : "/dev/ttyS" + std::to_string(comNo - 1);
}

std::string CModbusBridge::Refusal(const CChannelInfo* channel) const
{
    if (channel->TypeProtocol == 1)
        return "протокол MODBUS ASCII не поддерживается";
    if (channel->TypeChannel == 0 && channel->TypeProtocol != 0)
        return "на COM-порту поддерживается только MODBUS RTU";
    if (channel->TypeChannel == 1 && channel->TypeProtocol != 2)
        return "по TCP поддерживается только MODBUS TCP";
    if (const auto* com = dynamic_cast<const CPortIO_COMInfo*>(channel->Port)) {
        if (com->Parity > 2)
            return "контроль чётности «Маркер» и «Пробел» не поддерживается";
        if (com->bEcho)
            return "порт с эхом не поддерживается";
        const auto mapped = m_comPaths.find(com->ComNo);
        if (mapped == m_comPaths.end() ? com->ComNo == 0 : mapped->second.empty())
            return "COM-порт 0 не сопоставлен устройству (" + std::string(kComPathsVariable) + ")";
        return std::string();
    }
    return dynamic_cast<const CPortIO_TCPInfo*>(channel->Port) ? std::string() : "нет настроек порта";
}

bool CModbusBridge::Polls(const CDATagInfo* tag) const
{
    const CItem* group = tag->GetParent();
    const auto* device = group ? dynamic_cast<const CDeviceInfo*>(group->GetParent()) : nullptr;
    const auto* channel = device ? dynamic_cast<const CChannelInfo*>(device->GetParent()) : nullptr;
    return Polled(device) && channel && Refusal(channel).empty();
}

bool CModbusBridge::Writes(const CDATagInfo* tag)
{
    return (tag->RegType == MRT_Coil || tag->RegType == MRT_HoldingRegister) && tag->bWrite;
}

std::shared_ptr<CLiveValue> CModbusBridge::LiveOf(const CDATagInfo* tag) const
{
    const auto found = m_live.find(tag);
    return found == m_live.end() ? nullptr : found->second.live.lock();
}

std::shared_ptr<CLiveValue> CModbusBridge::LiveFor(const CDATagInfo* tag, const std::string& fullName)
{
    return Polls(tag) ? Live(tag, fullName) : nullptr;
}

std::shared_ptr<CLiveValue> CModbusBridge::Live(const CDATagInfo* tag, const std::string& fullName)
{
    const UA_DataType* type =
        CTagRuntime::TypeOf(CTagRuntime::PublishedKind(tag->RegType, tag->ValType, tag->TransformType));
    const bool writable = Writes(tag);
    const std::size_t nameHash = std::hash<std::string>()(fullName);
    Slot& slot = m_live[tag];
    std::shared_ptr<CLiveValue> live = slot.nameHash == nameHash ? slot.live.lock() : nullptr;
    if (!live || live->Type() != type || live->Writable() != writable) {
        live = std::make_shared<CLiveValue>(type, writable);
        slot.live = live;
        slot.nameHash = nameHash;
    }
    return live;
}

void CModbusBridge::Expect(std::size_t tags)
{
    m_live.reserve(tags);
}

void CModbusBridge::Reconcile(CTreeItemRoot* root)
{
    std::map<std::string, std::unique_ptr<Channel>> kept;
    for (auto& child : *root) {
        auto* channel = static_cast<CChannelInfo*>(child.second);
        const std::string& name = channel->GetName();
        const std::string why = Refusal(channel);
        bool polled = false;
        for (auto& device : *channel)
            polled = polled || Polled(static_cast<CDeviceInfo*>(device.second));
        if (!why.empty() && polled && m_refused[name] != why)
            Log(true, "Канал " + name + " не опрашивается: " + why);
        m_refused[name] = polled ? why : std::string();
        if (!why.empty() || !polled)
            continue;
        ReconcileChannel(channel);
        kept[name] = std::move(m_channels[name]);
    }
    for (auto& gone : m_channels)
        Retire(std::move(gone.second));
    m_channels = std::move(kept);
    for (auto it = m_live.begin(); it != m_live.end();)
        it = it->second.live.expired() ? m_live.erase(it) : std::next(it);
}

void CModbusBridge::ReconcileChannel(CChannelInfo* channel)
{
    CLinkSettings link;
    if (const auto* tcp = dynamic_cast<const CPortIO_TCPInfo*>(channel->Port)) {
        link.tcp = true;
        link.host = tcp->GetIpString();
        link.port = tcp->IP_Port;
        link.connectTimeoutMs = int(tcp->TimeoutConnect);
    } else if (const auto* com = dynamic_cast<const CPortIO_COMInfo*>(channel->Port)) {
        link.tcp = false;
        link.device = SerialPath(com->ComNo);
        link.baud = int(com->BaudRate);
        link.parity = "NOE"[com->Parity];
        link.dataBits = com->DataBits;
        link.stopBits = com->StopBits;
        link.rts = com->RtsControl;
        link.dtr = com->DtrControl;
    }
    link.timeoutMs = int(channel->Timeout);
    CChannelPoller::Timing timing;
    timing.attempts = channel->QuanRetry;
    timing.busyMs = int(channel->TimeBusy);
    const std::string signature = link.Describe() + "|" + std::to_string(link.connectTimeoutMs) + "|" +
                                  std::to_string(link.baud) + link.parity + std::to_string(link.dataBits) +
                                  std::to_string(link.stopBits) + std::to_string(link.rts) +
                                  std::to_string(link.dtr) + "|" + std::to_string(link.timeoutMs) + "|" +
                                  std::to_string(timing.attempts) + "|" + std::to_string(timing.busyMs);

    std::unique_ptr<Channel>& entry = m_channels[channel->GetName()];
    if (!entry || entry->signature != signature) {
        // A new line or new line settings: the channel's poller starts afresh.
        Retire(std::move(entry));
        entry = std::make_unique<Channel>();
        entry->signature = signature;
        entry->poller = std::make_shared<CChannelPoller>(channel->GetName(), link, timing, Log);
        entry->poller->SetRunning(m_running);
    }

    std::map<std::string, std::string> seen;
    for (auto& child : *channel) {
        auto* device = static_cast<CDeviceInfo*>(child.second);
        if (!Polled(device))
            continue;
        std::string key;
        device->GetFullName(key);
        CPollDevice config;
        config.name = device->GetName();
        config.slave = device->Addr;
        config.limits.maxRegisters = device->MaxRegsInReqv;
        config.limits.maxBits = device->MaxDiscretsInReqv;
        config.limits.maxGap = device->MaxFragmentation;
        std::string sig;
        // Some hundred bytes a tag.
        sig.reserve(128 * device->GetItemsCount(itTag));
        AppendRaw(sig, config.slave, config.limits.maxRegisters, config.limits.maxBits, config.limits.maxGap);
        std::vector<std::pair<std::shared_ptr<CLiveValue>, std::pair<int, int>>> writers;
        for (auto& g : *device) {
            auto* group = static_cast<CGroupInfo*>(g.second);
            CPollGroup pollGroup;
            const int unit = group->MU_UpdateRate >= 0 && group->MU_UpdateRate < 4 ? group->MU_UpdateRate : 0;
            pollGroup.periodMs = std::int64_t(group->UpdateRate) * kUnitMs[unit];
            AppendRaw(sig, 'G', pollGroup.periodMs, group->GetName().size());
            sig += group->GetName();
            const std::string groupName = key + "." + group->GetName() + ".";
            pollGroup.points.reserve(group->size());
            for (auto& t : *group) {
                auto* tag = static_cast<CDATagInfo*>(t.second);
                std::string name = groupName + tag->GetName();
                const std::shared_ptr<CLiveValue> live = Live(tag, name);
                CValueCodec::Scale scale;
                if (const auto* l = dynamic_cast<const CTransform_LineScaleData*>(tag->Transform)) {
                    scale = {1, l->SrcMin, l->SrcMax, l->DstMin, l->DstMax, 1};
                } else if (const auto* f = dynamic_cast<const CTransform_FactorData*>(tag->Transform)) {
                    scale.kind = 2;
                    scale.factor = f->Factor;
                }
                CPollPoint point;
                point.live = live;
                point.name = std::move(name);
                point.codec = CValueCodec(tag->RegType, tag->ValType, tag->ByteOrder, scale);
                point.span = SpanOf(tag, point.offset);
                point.read = tag->bRead;
                point.writeMultiple = tag->bWriteGroup;
                AppendRaw(sig, 'T', tag->GetName().size());
                sig.append(tag->GetName());
                AppendRaw(sig, live.get(), tag->RegType, tag->Addr, tag->RegsInSegment, tag->SegmentPos,
                          tag->ValType, tag->ByteOrder, tag->bRead, tag->bWriteGroup, scale.kind,
                          scale.srcMin, scale.srcMax, scale.dstMin, scale.dstMax, scale.factor);
                if (live->Writable())
                    writers.push_back({live, {int(config.groups.size()), int(pollGroup.points.size())}});
                pollGroup.points.push_back(std::move(point));
            }
            config.groups.push_back(std::move(pollGroup));
        }
        const bool unchanged = entry->devices[key] == sig;
        seen[key] = std::move(sig);
        if (unchanged)
            continue;
        const std::size_t requests = entry->poller->SetDevice(key, std::move(config));
        Log(false, "Канал " + channel->GetName() + ", устройство " + device->GetName() +
                       ": запросов за цикл " + std::to_string(requests));
        std::weak_ptr<CChannelPoller> poller = entry->poller;
        for (auto& w : writers) {
            const auto where = w.second;
            w.first->SetWriter([poller, key, where](double value) {
                const auto p = poller.lock();
                return p ? p->Write(key, where.first, where.second, value) : UA_STATUSCODE_BADNOCOMMUNICATION;
            });
        }
    }
    for (const auto& device : entry->devices)
        if (!seen.count(device.first))
            entry->poller->RemoveDevice(device.first);
    entry->devices = std::move(seen);
}

CPlanItem CModbusBridge::SpanOf(const CDATagInfo* tag, int& offset)
{
    const int registers = tag->RegType < 2 ? 1 : std::max(1, CDATagInfo::GetRegsCount(tag->ValType));
    offset = tag->RegsInSegment > 0 ? tag->SegmentPos : 0;
    CPlanItem span;
    span.table = tag->RegType;
    // Addresses count from 1; the protocol counts from 0.
    span.start = std::uint16_t(tag->Addr == 0 ? 0 : tag->Addr - 1);
    span.count = std::uint16_t(std::max<int>(tag->RegsInSegment, offset + registers));
    return span;
}

std::string CModbusBridge::OutOfBounds(const CDATagInfo* tag)
{
    const bool bits = tag->RegType < 2;
    if (tag->Addr == 0)
        return "адрес 0: адреса считаются с 1";
    int offset = 0;
    const CPlanItem span = SpanOf(tag, offset);
    const long last = long(tag->Addr) + span.count - 1;
    const char* const what = bits ? "состояния " : "регистры ";
    if (last > 65535)
        return what + std::to_string(tag->Addr) + "–" + std::to_string(last) + " выходят за адрес 65535";
    const int limit = CRequestPlanner::ProtocolLimit(span.table);
    if (span.count > limit)
        return what + std::to_string(tag->Addr) + "–" + std::to_string(last) + " (" +
               std::to_string(span.count) + ") не читаются одним запросом: протокол позволяет " +
               std::to_string(limit);
    return std::string();
}

std::shared_ptr<const CChannelPoller::Line> CModbusBridge::LineOf(const std::string& channel) const
{
    const auto it = m_channels.find(channel);
    return it == m_channels.end() ? nullptr : it->second->poller->LineHealth();
}

std::shared_ptr<const CChannelPoller::Health> CModbusBridge::HealthOf(const std::string& channel,
                                                                      const std::string& device) const
{
    const auto it = m_channels.find(channel);
    return it == m_channels.end() ? nullptr : it->second->poller->HealthOf(device);
}

std::string CModbusBridge::RefusalOf(const std::string& channel) const
{
    const auto it = m_refused.find(channel);
    return it == m_refused.end() ? std::string() : it->second;
}

void CModbusBridge::SetRunning(bool running)
{
    m_running = running;
    for (auto& channel : m_channels)
        channel.second->poller->SetRunning(running);
}
