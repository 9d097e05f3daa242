#pragma once

#include <atomic>
#include <cstdint>
#include <string>
#include <vector>

typedef struct _modbus modbus_t;

// Where and how a channel talks: Modbus TCP to a host, or Modbus RTU on a
// serial device.
struct CLinkSettings
{
    bool tcp = true;
    std::string host = "127.0.0.1";
    int port = 502;
    int connectTimeoutMs = 5000;
    std::string device;
    int baud = 9600;
    char parity = 'N';
    int dataBits = 8;
    int stopBits = 1;
    int rts = 0; // 0 off, 1 on, 2 handshake, 3 toggled around each request
    int dtr = 0; // 0 off, 1 on, 2 handshake
    int timeoutMs = 500;

    bool operator==(const CLinkSettings& o) const;
    std::string Describe() const;
};

// One Modbus connection through libmodbus. Used by one thread at a time,
// except Interrupt, which any thread may call.
class CModbusLink
{
public:
    enum Result
    {
        Ok,
        Timeout,   // no answer in time
        Exception, // the device refused the request
        Garbage,   // an answer that is no valid answer
        Lost       // no connection, or it broke
    };

    explicit CModbusLink(const CLinkSettings& settings) : m_settings(settings) {}
    ~CModbusLink();
    CModbusLink(const CModbusLink&) = delete;
    CModbusLink& operator=(const CModbusLink&) = delete;

    // Connects (TCP) or opens and sets up the port (RTU). `notes` gets what
    // the port could not do, such as modem lines a pty does not have.
    bool Open(std::string& why, std::string& notes);
    void Close();
    bool IsOpen() const { return m_ctx != nullptr; }
    // After a timeout or garbage: drop what the line still holds; a TCP
    // stream out of step is reconnected.
    void Recover(Result failure);

    // Functions 1 to 4 by table; bits come back as one word each.
    Result Read(int slave, int table, int start, int count, std::uint16_t* words, std::string& why);
    // Functions 6 / 16 for registers, 5 / 15 for coils.
    Result Write(int slave, int table, int start, const std::vector<std::uint16_t>& words, bool multiple,
                 std::string& why);

    // Ends a wait on a TCP socket at once, so that shutdown never waits for a
    // response timeout.
    void Interrupt();

private:
    Result Failed(std::string& why);
    void SetModemLines(std::string& notes);

    CLinkSettings m_settings;
    modbus_t* m_ctx = nullptr;
    std::atomic<int> m_fd{-1};
};
