#pragma once

#include "server/modbus/livevalue.h"
#include "server/modbus/modbuslink.h"
#include "server/modbus/pollstatistics.h"
#include "server/modbus/requestplanner.h"
#include "server/modbus/valuecodec.h"

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <deque>
#include <functional>
#include <future>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

// One tag on the wire.
struct CPollPoint
{
    std::shared_ptr<CLiveValue> live;
    std::string name; // the tag's full name, for the log
    CPlanItem span;   // what is read together: the value or its whole segment
    int offset = 0;   // where the value starts inside the span
    CValueCodec codec;
    bool read = true;
    bool writeMultiple = false; // functions 15 / 16 rather than 5 / 6
};

struct CPollGroup
{
    std::int64_t periodMs = 50;
    std::vector<CPollPoint> points;
};

struct CPollDevice
{
    std::string name;
    int slave = 1;
    CPlanLimits limits;
    std::vector<CPollGroup> groups;
};

// Polls the devices of one channel on a thread of its own: each group at its
// period, packed into the planner's requests, with the channel's pause,
// attempts and reconnection. Writes go ahead of polling. A device that lets
// every attempt of a request go unanswered is demoted: it is asked once per
// demotion period, so that it does not hold up the others on the line.
class CChannelPoller
{
public:
    using Log = std::function<void(bool warning, const std::string& text)>;
    struct Timing
    {
        int attempts = 3;
        int busyMs = 0;
    };
    // How a device is being polled while the exchange runs.
    enum class Mode
    {
        Polled,  // at its groups' rates
        Demoted, // silent: asked once per demotion period
        NoLink   // the line to it is down
    };
    // What is known of a device's answers. Written on the channel thread,
    // read anywhere; it outlives a re-plan of the device.
    struct Health
    {
        // Good while the device answers, else why it doesn't: writes to a
        // silent device fail at once instead of holding the server's loop.
        std::atomic<UA_StatusCode> silence{UA_STATUSCODE_GOOD};
        std::atomic<int> demotionMs{0}; // 0 while the device answers
        std::atomic<std::int64_t> probeAtMs{0};
        CPollStatistics statistics;
    };
    enum class Link
    {
        Connecting, // not tried yet, or trying again after the connection broke
        Connected,
        PortError // the last try to connect or open the port failed
    };
    // What is known of the line, with the statistics of all its devices.
    struct Line
    {
        std::atomic<Link> link{Link::Connecting};
        CPollStatistics statistics;
    };
    static constexpr int kFirstDemotionMs = 1000;
    static constexpr int kLastDemotionMs = 30000;

    CChannelPoller(const std::string& name, const CLinkSettings& link, const Timing& timing, Log log);
    ~CChannelPoller();
    CChannelPoller(const CChannelPoller&) = delete;
    CChannelPoller& operator=(const CChannelPoller&) = delete;

    // Adds or replaces one device, planned anew; the other devices go on.
    // Returns the read requests of one cycle of all its groups.
    std::size_t SetDevice(const std::string& key, CPollDevice device);
    void RemoveDevice(const std::string& key);
    // stopExchange / startExchange.
    void SetRunning(bool running);
    // Writes one tag of a device and waits for the device's answer.
    UA_StatusCode Write(const std::string& key, int group, int point, double value);
    // Null when the channel polls no device of that key.
    std::shared_ptr<const Health> HealthOf(const std::string& key) const;
    std::shared_ptr<const Line> LineHealth() const { return m_line; }
    static Mode ModeOf(const Health& health);

    // Read requests sent so far, attempts included; for measurements.
    std::uint64_t Requests() const { return m_requests; }

private:
    using Clock = std::chrono::steady_clock;
    struct GroupState
    {
        std::vector<CPlannedRequest> plan;
        std::vector<int> piecesOf; // requests each point is spread over
        Clock::time_point due;
    };
    struct DeviceState
    {
        CPollDevice config;
        std::vector<GroupState> groups;
        std::shared_ptr<Health> health;
    };
    struct WriteJob
    {
        std::shared_ptr<const DeviceState> device;
        int group = 0;
        int point = 0;
        double value = 0;
        std::promise<UA_StatusCode> result;
    };

    void Run();
    // Carries out the queued writes; between polls and between the requests of one.
    void RunWrites();
    bool Connected();
    void Poll(const DeviceState& device, int group);
    void FailGroup(const DeviceState& device, int group, UA_StatusCode status);
    // The device let a whole request go unanswered, or answered again.
    void Demote(const DeviceState& device);
    void Promote(const DeviceState& device);
    // When a group of the device is due: a demoted device waits for its probe.
    Clock::time_point DueOf(const DeviceState& device, int group) const;
    void HoldAll();
    UA_StatusCode DoWrite(WriteJob& job);
    // Tries a request up to `attempts` times; each one goes into the device's
    // and the line's statistics.
    CModbusLink::Result Attempt(const std::function<CModbusLink::Result(std::string&)>& call, int attempts,
                                const DeviceState& device, std::string& why);
    void Count(const DeviceState& device, CModbusLink::Result result, Clock::duration took,
               const std::string& why);
    // "Канал …, устройство …" and, for one value, ", тег …".
    std::string Where(const CPollDevice& device, const CPollPoint* point = nullptr) const;
    bool Pause(int ms);
    void Report(const std::string& what, CModbusLink::Result result, const std::string& why);
    static UA_StatusCode StatusOf(CModbusLink::Result result);
    static std::int64_t NowMs();
    static std::int64_t SteadyMs(Clock::time_point t);

    const std::string m_name;
    const CLinkSettings m_settings;
    const Timing m_timing;
    const Log m_log;
    CModbusLink m_link;

    mutable std::mutex m_mutex;
    std::condition_variable m_wake;
    std::map<std::string, std::shared_ptr<DeviceState>> m_devices;
    std::deque<std::unique_ptr<WriteJob>> m_jobs;
    bool m_running = true;
    bool m_stop = false;

    // Channel thread only.
    Clock::time_point m_reconnectAt;
    int m_backoffMs = 0;
    bool m_reportedDown = false;
    // Why the line is down, for the devices that could not be asked.
    std::string m_linkWhy;
    std::map<std::string, std::string> m_lastErrors;

    std::atomic<std::uint64_t> m_requests{0};
    const std::shared_ptr<Line> m_line = std::make_shared<Line>();
    std::thread m_thread;
};
