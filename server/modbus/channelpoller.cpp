#include "server/modbus/channelpoller.h"

#include <algorithm>

namespace {

const int kFirstBackoffMs = 250;
const int kLastBackoffMs = 5000;

} // namespace

CChannelPoller::CChannelPoller(const std::string& name, const CLinkSettings& link, const Timing& timing,
                               Log log)
    : m_name(name), m_settings(link), m_timing(timing), m_log(std::move(log)), m_link(link)
{
    m_thread = std::thread([this] { Run(); });
}

CChannelPoller::~CChannelPoller()
{
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_stop = true;
    }
    m_wake.notify_all();
    m_link.Interrupt();
    m_thread.join();
    for (auto& job : m_jobs)
        job->result.set_value(UA_STATUSCODE_BADSHUTDOWN);
}

std::int64_t CChannelPoller::NowMs()
{
    return std::chrono::duration_cast<std::chrono::milliseconds>(
               std::chrono::system_clock::now().time_since_epoch())
        .count();
}

std::int64_t CChannelPoller::SteadyMs(Clock::time_point t)
{
    return std::chrono::duration_cast<std::chrono::milliseconds>(t.time_since_epoch()).count();
}

std::size_t CChannelPoller::SetDevice(const std::string& key, CPollDevice device)
{
    auto state = std::make_shared<DeviceState>();
    state->config = std::move(device);
    {
        // A re-planned device keeps what is known of its answers.
        std::lock_guard<std::mutex> lock(m_mutex);
        const auto old = m_devices.find(key);
        if (old != m_devices.end() && old->second->config.slave == state->config.slave)
            state->health = old->second->health;
    }
    if (!state->health)
        state->health = std::make_shared<Health>();
    const Clock::time_point now = Clock::now();
    std::size_t requests = 0;
    for (const CPollGroup& group : state->config.groups) {
        std::vector<CPlanItem> items;
        std::vector<int> pointOf;
        for (std::size_t i = 0; i < group.points.size(); ++i) {
            if (group.points[i].read) {
                items.push_back(group.points[i].span);
                pointOf.push_back(int(i));
            }
        }
        GroupState g;
        g.plan = CRequestPlanner::Plan(items, state->config.limits);
        g.piecesOf.assign(group.points.size(), 0);
        for (CPlannedRequest& request : g.plan) {
            for (int& item : request.items) {
                item = pointOf[item];
                ++g.piecesOf[item];
            }
        }
        g.due = now;
        requests += g.plan.size();
        state->groups.push_back(std::move(g));
    }
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_devices[key] = std::move(state);
    }
    m_wake.notify_all();
    return requests;
}

void CChannelPoller::RemoveDevice(const std::string& key)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    m_devices.erase(key);
}

void CChannelPoller::SetRunning(bool running)
{
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_running = running;
        if (!running)
            HoldAll();
    }
    m_wake.notify_all();
}

void CChannelPoller::HoldAll()
{
    for (const auto& device : m_devices)
        for (const CPollGroup& group : device.second->config.groups)
            for (const CPollPoint& point : group.points)
                point.live->Hold();
}

std::shared_ptr<const CChannelPoller::Health> CChannelPoller::HealthOf(const std::string& key) const
{
    std::lock_guard<std::mutex> lock(m_mutex);
    const auto it = m_devices.find(key);
    return it == m_devices.end() ? nullptr : it->second->health;
}

CChannelPoller::Mode CChannelPoller::ModeOf(const Health& health)
{
    if (health.silence == UA_STATUSCODE_BADNOCOMMUNICATION)
        return Mode::NoLink;
    return health.demotionMs > 0 ? Mode::Demoted : Mode::Polled;
}

std::string CChannelPoller::Where(const CPollDevice& device, const CPollPoint* point) const
{
    return "Канал " + m_name + ", устройство " + device.name + (point ? ", тег " + point->name : "");
}

UA_StatusCode CChannelPoller::Write(const std::string& key, int group, int point, double value)
{
    auto job = std::make_unique<WriteJob>();
    std::future<UA_StatusCode> result = job->result.get_future();
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        const auto it = m_devices.find(key);
        if (!m_running || it == m_devices.end())
            return UA_STATUSCODE_BADNOCOMMUNICATION;
        const CPollDevice& device = it->second->config;
        if (group < 0 || group >= int(device.groups.size()) || point < 0 ||
            point >= int(device.groups[group].points.size()))
            return UA_STATUSCODE_BADNODEIDUNKNOWN;
        // A value the register cannot take is refused before the device is asked.
        const CPollPoint& target = device.groups[group].points[point];
        double raw = 0;
        std::string why;
        if (!target.codec.ToRaw(value, raw, why)) {
            m_log(true, Where(device, &target) + ": запись отклонена: " + why);
            return UA_STATUSCODE_BADOUTOFRANGE;
        }
        // The server's loop waits for the answer: a device known to be silent
        // is not waited for again.
        if (it->second->health->silence != UA_STATUSCODE_GOOD)
            return it->second->health->silence;
        job->device = it->second;
        job->group = group;
        job->point = point;
        job->value = value;
        m_jobs.push_back(std::move(job));
    }
    m_wake.notify_all();
    // A read-modify-write of a bit takes two exchanges, each with its attempts,
    // and a request of a poll may be under way.
    const int exchangeMs = m_timing.busyMs + m_settings.timeoutMs * std::max(1, m_timing.attempts);
    const auto bound = std::chrono::milliseconds(3 * exchangeMs + 1000);
    return result.wait_for(bound) == std::future_status::ready ? result.get() : UA_STATUSCODE_BADTIMEOUT;
}

bool CChannelPoller::Pause(int ms)
{
    std::unique_lock<std::mutex> lock(m_mutex);
    return !m_wake.wait_for(lock, std::chrono::milliseconds(ms), [this] { return m_stop; });
}

void CChannelPoller::RunWrites()
{
    std::unique_lock<std::mutex> lock(m_mutex);
    while (!m_jobs.empty() && !m_stop) {
        std::unique_ptr<WriteJob> job = std::move(m_jobs.front());
        m_jobs.pop_front();
        lock.unlock();
        job->result.set_value(DoWrite(*job));
        lock.lock();
    }
}

CChannelPoller::Clock::time_point CChannelPoller::DueOf(const DeviceState& device, int group) const
{
    const Clock::time_point due = device.groups[group].due;
    if (device.health->demotionMs == 0)
        return due;
    return std::max(due, Clock::time_point(std::chrono::milliseconds(device.health->probeAtMs.load())));
}

void CChannelPoller::Run()
{
    std::unique_lock<std::mutex> lock(m_mutex);
    bool held = false;
    while (!m_stop) {
        if (!m_jobs.empty()) {
            lock.unlock();
            RunWrites();
            lock.lock();
            continue;
        }
        if (!m_running) {
            // Once more here: a poll that was under way at the stop has published since.
            if (!held)
                HoldAll();
            held = true;
            m_wake.wait(lock);
            continue;
        }
        held = false;
        std::shared_ptr<DeviceState> next;
        int nextGroup = -1;
        Clock::time_point due;
        for (const auto& device : m_devices) {
            for (std::size_t g = 0; g < device.second->groups.size(); ++g) {
                const Clock::time_point at = DueOf(*device.second, int(g));
                if (!next || at < due) {
                    next = device.second;
                    nextGroup = int(g);
                    due = at;
                }
            }
        }
        if (!next) {
            m_wake.wait(lock);
            continue;
        }
        if (due > Clock::now()) {
            m_wake.wait_until(lock, due);
            continue;
        }
        lock.unlock();
        Poll(*next, nextGroup);
        lock.lock();
        // Late cycles are dropped rather than caught up on.
        const auto period =
            std::chrono::milliseconds(std::max<std::int64_t>(next->config.groups[nextGroup].periodMs, 10));
        GroupState& state = next->groups[nextGroup];
        state.due += period;
        if (state.due < Clock::now())
            state.due = Clock::now() + period;
    }
}

bool CChannelPoller::Connected()
{
    if (m_link.IsOpen())
        return true;
    if (m_line->link == Link::Connected)
        m_line->link = Link::Connecting; // it broke; tried again at once
    if (Clock::now() < m_reconnectAt)
        return false;
    std::string why;
    std::string notes;
    if (m_link.Open(why, notes)) {
        m_line->link = Link::Connected;
        m_linkWhy.clear();
        m_log(false, "Канал " + m_name + ": соединение с " + m_settings.Describe() + " установлено");
        if (!notes.empty())
            m_log(true,
                  "Канал " + m_name + ": порт " + m_settings.Describe() + " не всё позволяет: " + notes);
        m_backoffMs = 0;
        m_reportedDown = false;
        return true;
    }
    m_backoffMs = std::clamp(m_backoffMs * 2, kFirstBackoffMs, kLastBackoffMs);
    m_reconnectAt = Clock::now() + std::chrono::milliseconds(m_backoffMs);
    m_linkWhy = "нет связи с " + m_settings.Describe() + ": " + why;
    m_line->link = Link::PortError;
    m_line->statistics.Fail(m_linkWhy, NowMs());
    if (!m_reportedDown)
        m_log(true, "Канал " + m_name + ": " + m_linkWhy);
    m_reportedDown = true;
    return false;
}

UA_StatusCode CChannelPoller::StatusOf(CModbusLink::Result result)
{
    switch (result) {
    case CModbusLink::Ok:
        return UA_STATUSCODE_GOOD;
    case CModbusLink::Timeout:
        return UA_STATUSCODE_BADTIMEOUT;
    case CModbusLink::Lost:
        return UA_STATUSCODE_BADNOCOMMUNICATION;
    default:
        return UA_STATUSCODE_BADCOMMUNICATIONERROR;
    }
}

void CChannelPoller::Report(const std::string& what, CModbusLink::Result result, const std::string& why)
{
    // One line when a request starts failing, one when it recovers.
    const std::string text = result == CModbusLink::Ok ? std::string() : why;
    std::string& last = m_lastErrors[what];
    if (last == text) {
        if (text.empty())
            m_lastErrors.erase(what);
        return;
    }
    if (result == CModbusLink::Ok) {
        m_log(false, what + ": снова в порядке");
        m_lastErrors.erase(what);
    } else {
        m_log(true, what + ": " + why);
        last = text;
    }
}

void CChannelPoller::Count(const DeviceState& device, CModbusLink::Result result, Clock::duration took,
                           const std::string& why)
{
    const auto outcome = result == CModbusLink::Ok          ? CPollStatistics::Answer
                         : result == CModbusLink::Exception ? CPollStatistics::Exception
                         : result == CModbusLink::Timeout   ? CPollStatistics::Timeout
                                                            : CPollStatistics::Failure;
    const std::int64_t us = std::chrono::duration_cast<std::chrono::microseconds>(took).count();
    device.health->statistics.Count(outcome, us);
    m_line->statistics.Count(outcome, us);
    if (result == CModbusLink::Ok)
        return;
    const std::int64_t now = NowMs();
    device.health->statistics.Fail(why, now);
    m_line->statistics.Fail("устройство " + device.config.name + ": " + why, now);
}

CModbusLink::Result CChannelPoller::Attempt(const std::function<CModbusLink::Result(std::string&)>& call,
                                            int attempts, const DeviceState& device, std::string& why)
{
    CModbusLink::Result result = CModbusLink::Lost;
    for (int attempt = 0; attempt < std::max(1, attempts); ++attempt) {
        if (m_timing.busyMs > 0 && !Pause(m_timing.busyMs))
            return CModbusLink::Lost;
        if (!Connected()) {
            why = "нет соединения";
            device.health->statistics.Fail(m_linkWhy, NowMs());
            return CModbusLink::Lost;
        }
        const Clock::time_point sent = Clock::now();
        result = call(why);
        Count(device, result, Clock::now() - sent, why);
        if (result == CModbusLink::Ok || result == CModbusLink::Exception || result == CModbusLink::Lost)
            return result;
        m_link.Recover(result);
    }
    return result;
}

void CChannelPoller::FailGroup(const DeviceState& device, int group, UA_StatusCode status)
{
    const std::int64_t now = NowMs();
    for (const CPollPoint& point : device.config.groups[group].points)
        if (point.read)
            point.live->Fail(status, now);
}

void CChannelPoller::Demote(const DeviceState& device)
{
    Health& health = *device.health;
    const int was = health.demotionMs;
    const int period = was == 0 ? kFirstDemotionMs : std::min(2 * was, kLastDemotionMs);
    health.demotionMs = period;
    health.probeAtMs = SteadyMs(Clock::now()) + period;
    if (was == 0)
        m_log(true, Where(device.config) + " (адрес " + std::to_string(device.config.slave) +
                        ") не отвечает: спрашивается раз в " + std::to_string(period / 1000) +
                        " с, затем всё реже, до раза в " + std::to_string(kLastDemotionMs / 1000) + " с");
}

void CChannelPoller::Promote(const DeviceState& device)
{
    if (device.health->demotionMs.exchange(0) != 0)
        m_log(false, Where(device.config) + " снова отвечает: опрос с частотой групп");
}

void CChannelPoller::Poll(const DeviceState& device, int group)
{
    const GroupState& state = device.groups[group];
    const std::vector<CPollPoint>& points = device.config.groups[group].points;
    if (!Connected()) {
        device.health->silence = UA_STATUSCODE_BADNOCOMMUNICATION;
        device.health->statistics.Fail(m_linkWhy, NowMs());
        FailGroup(device, group, UA_STATUSCODE_BADNOCOMMUNICATION);
        return;
    }
    // A demoted device is asked once, without the channel's further attempts.
    const int attempts = device.health->demotionMs > 0 ? 1 : m_timing.attempts;
    std::vector<std::uint16_t> words(2000);
    // Points spread over several requests are put together here.
    std::map<std::pair<int, int>, std::uint16_t> pieces;
    std::vector<int> missing = state.piecesOf;
    std::vector<char> failed(points.size(), 0);
    for (std::size_t r = 0; r < state.plan.size(); ++r) {
        const CPlannedRequest& request = state.plan[r];
        RunWrites();
        std::string why;
        const CModbusLink::Result result = Attempt(
            [&](std::string& w) {
                ++m_requests;
                return m_link.Read(device.config.slave, request.table, request.start, request.count,
                                   words.data(), w);
            },
            attempts, device, why);
        const std::int64_t now = NowMs();
        // The common case, all well and nothing to recover from, costs no text.
        if (result != CModbusLink::Ok || !m_lastErrors.empty()) {
            static const char* const kTables[] = {"входы", "катушки", "входные регистры",
                                                  "регистры хранения"};
            const CPollPoint& first = points[request.items.front()];
            const std::size_t others = request.items.size() - 1;
            Report(Where(device.config) + ", " + kTables[request.table] + " " +
                       std::to_string(request.start + 1) + "–" +
                       std::to_string(request.start + request.count) + " (тег " + first.name +
                       (others ? " и ещё " + std::to_string(others) : "") + ")",
                   result, why);
        }
        for (int index : request.items) {
            const CPollPoint& point = points[index];
            if (result != CModbusLink::Ok) {
                failed[index] = 1;
                point.live->Fail(StatusOf(result), now);
                continue;
            }
            if (state.piecesOf[index] > 1) {
                for (int a = request.start; a < request.start + request.count; ++a)
                    pieces[{index, a}] = words[a - request.start];
                if (--missing[index] > 0 || failed[index])
                    continue;
                std::uint16_t value[4] = {};
                const int first = point.span.start + point.offset;
                for (int r = 0; r < point.codec.Registers(); ++r)
                    value[r] = pieces[{index, first + r}];
                point.live->Publish(point.codec.Decode(value), now);
                continue;
            }
            const int at = point.span.start + point.offset - request.start;
            if (at < 0 || at + point.codec.Registers() > request.count) {
                point.live->Fail(UA_STATUSCODE_BADOUTOFRANGE, now);
                continue;
            }
            point.live->Publish(point.codec.Decode(&words[at]), now);
        }
        device.health->silence = result == CModbusLink::Timeout || result == CModbusLink::Lost
                                     ? StatusOf(result)
                                     : UA_STATUSCODE_GOOD;
        // A device that does not answer one request won't answer the next:
        // the line is not held up for the rest of its cycle.
        if (result == CModbusLink::Lost || result == CModbusLink::Timeout) {
            if (result == CModbusLink::Timeout)
                Demote(device);
            for (std::size_t rest = r + 1; rest < state.plan.size(); ++rest)
                for (int index : state.plan[rest].items)
                    points[index].live->Fail(StatusOf(result), now);
            return;
        }
        Promote(device);
    }
}

UA_StatusCode CChannelPoller::DoWrite(WriteJob& job)
{
    const CPollDevice& device = job.device->config;
    const CPollPoint& point = device.groups[job.group].points[job.point];
    const int table = point.span.table;
    const int address = point.span.start + point.offset;
    std::string why;
    std::uint16_t current = 0;
    CModbusLink::Result result = CModbusLink::Ok;
    // Bits and bytes of a register keep the rest of it as the device has it.
    if (table == 3 && point.codec.PartOfRegister())
        result =
            Attempt([&](std::string& w) { return m_link.Read(device.slave, 3, address, 1, &current, w); },
                    m_timing.attempts, *job.device, why);
    std::vector<std::uint16_t> words;
    if (result == CModbusLink::Ok && !point.codec.Encode(job.value, current, words, why)) {
        m_log(true, Where(device, &point) + ": запись отклонена: " + why);
        return UA_STATUSCODE_BADOUTOFRANGE;
    }
    if (result == CModbusLink::Ok)
        result = Attempt(
            [&](std::string& w) {
                return m_link.Write(device.slave, table, address, words, point.writeMultiple, w);
            },
            m_timing.attempts, *job.device, why);
    if (result == CModbusLink::Timeout || result == CModbusLink::Lost)
        job.device->health->silence = StatusOf(result);
    if (result != CModbusLink::Ok) {
        m_log(true,
              Where(device, &point) + ": запись в " + std::to_string(address + 1) + " не удалась: " + why);
        return StatusOf(result);
    }
    // What the register now holds, as the value type and the scale read it.
    point.live->Publish(point.codec.Decode(words.data()), NowMs());
    return UA_STATUSCODE_GOOD;
}
