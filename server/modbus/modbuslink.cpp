#include "server/modbus/modbuslink.h"

#include <modbus/modbus.h>

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <termios.h>

namespace {

void SetTimeout(modbus_t* ctx, int ms)
{
    modbus_set_response_timeout(ctx, std::uint32_t(ms / 1000), std::uint32_t(ms % 1000) * 1000);
}

// The reasons an operator meets, in the gateway's language; the rarer ones as
// the system words them.
std::string Reason(int e)
{
    switch (e) {
    case ETIMEDOUT:
        return "нет ответа";
    case EMBXILFUN:
        return "устройство не знает функцию (исключение 1)";
    case EMBXILADD:
        return "недопустимый адрес данных (исключение 2)";
    case EMBXILVAL:
        return "недопустимое значение (исключение 3)";
    case EMBXSFAIL:
        return "отказ устройства (исключение 4)";
    case EMBXACK:
        return "запрос принят, ответ будет позже (исключение 5)";
    case EMBXSBUSY:
        return "устройство занято (исключение 6)";
    case EMBXNACK:
        return "запрос не выполнен (исключение 7)";
    case EMBXMEMPAR:
        return "ошибка чётности памяти (исключение 8)";
    case EMBXGPATH:
        return "шлюзу некуда передать запрос (исключение 10)";
    case EMBXGTAR:
        return "устройство за шлюзом не ответило (исключение 11)";
    case EMBBADCRC:
        return "неверная контрольная сумма ответа";
    case EMBBADDATA:
        return "неверные данные в ответе";
    case EMBBADEXC:
        return "неверный код исключения в ответе";
    case EMBMDATA:
        return "слишком много данных";
    case EMBBADSLAVE:
        return "ответ от другого устройства";
    case ECONNREFUSED:
        return "в соединении отказано";
    case ECONNRESET:
        return "соединение сброшено";
    case EPIPE:
        return "соединение разорвано";
    case EHOSTUNREACH:
        return "узел недоступен";
    case ENETUNREACH:
        return "сеть недоступна";
    case ENOENT:
        return "нет такого устройства";
    case EACCES:
        return "нет прав доступа";
    case EBUSY:
        return "порт занят";
    case ENOTTY:
        return "порт этого не умеет";
    default:
        return std::strerror(e);
    }
}

} // namespace

bool CLinkSettings::operator==(const CLinkSettings& o) const
{
    return tcp == o.tcp && host == o.host && port == o.port && connectTimeoutMs == o.connectTimeoutMs &&
           device == o.device && baud == o.baud && parity == o.parity && dataBits == o.dataBits &&
           stopBits == o.stopBits && rts == o.rts && dtr == o.dtr && timeoutMs == o.timeoutMs;
}

std::string CLinkSettings::Describe() const
{
    return tcp ? host + ":" + std::to_string(port) : device;
}

CModbusLink::~CModbusLink()
{
    Close();
}

bool CModbusLink::Open(std::string& why, std::string& notes)
{
    Close();
    const CLinkSettings& s = m_settings;
    modbus_t* ctx = s.tcp ? modbus_new_tcp(s.host.c_str(), s.port)
                          : modbus_new_rtu(s.device.c_str(), s.baud, s.parity, s.dataBits, s.stopBits);
    if (!ctx) {
        why = Reason(errno);
        return false;
    }
    // libmodbus waits for a TCP connection as long as for an answer.
    SetTimeout(ctx, s.tcp ? s.connectTimeoutMs : s.timeoutMs);
    if (modbus_connect(ctx) != 0) {
        why = Reason(errno);
        modbus_free(ctx);
        return false;
    }
    SetTimeout(ctx, s.timeoutMs);
    m_ctx = ctx;
    m_fd = modbus_get_socket(ctx);
    if (!s.tcp) {
        // Speeds of the other system's serial driver that termios lacks; the
        // library opens the port at 9600 for them.
        if (s.baud == 14400 || s.baud == 56000 || s.baud == 128000 || s.baud == 256000)
            notes = "скорость " + std::to_string(s.baud) + " недоступна, порт работает на 9600";
        SetModemLines(notes);
    }
    return true;
}

void CModbusLink::SetModemLines(std::string& notes)
{
    const int fd = m_fd;
    const auto line = [&](int bit, bool on, const char* name) {
        if (ioctl(fd, on ? TIOCMBIS : TIOCMBIC, &bit) != 0)
            notes += std::string(notes.empty() ? "" : "; ") + name + ": " + Reason(errno);
    };
    if (m_settings.rts == 3) {
        // Half-duplex adapters: the driver raises RTS while sending.
        if (modbus_rtu_set_serial_mode(m_ctx, MODBUS_RTU_RS485) != 0 ||
            modbus_rtu_set_rts(m_ctx, MODBUS_RTU_RTS_UP) != 0)
            notes += std::string(notes.empty() ? "" : "; ") + "RTS «Togge»: " + Reason(errno);
    } else if (m_settings.rts == 2) {
        termios tio{};
        if (tcgetattr(fd, &tio) == 0) {
            tio.c_cflag |= CRTSCTS;
            tcsetattr(fd, TCSANOW, &tio);
        }
    } else {
        line(TIOCM_RTS, m_settings.rts == 1, "RTS");
    }
    if (m_settings.dtr == 2)
        notes += std::string(notes.empty() ? "" : "; ") + "DTR «Handshake»: в этой системе недоступен";
    else
        line(TIOCM_DTR, m_settings.dtr == 1, "DTR");
}

void CModbusLink::Close()
{
    if (!m_ctx)
        return;
    m_fd = -1;
    modbus_close(m_ctx);
    modbus_free(m_ctx);
    m_ctx = nullptr;
}

void CModbusLink::Interrupt()
{
    const int fd = m_fd;
    if (m_settings.tcp && fd >= 0)
        ::shutdown(fd, SHUT_RDWR);
}

void CModbusLink::Recover(Result failure)
{
    if (!m_ctx)
        return;
    if (m_settings.tcp && failure == Garbage)
        Close();
    else
        modbus_flush(m_ctx);
}

CModbusLink::Result CModbusLink::Failed(std::string& why)
{
    const int e = errno;
    why = Reason(e);
    if (e == ETIMEDOUT)
        return Timeout;
    if (e > MODBUS_ENOBASE && e <= EMBXGTAR)
        return Exception;
    if (e >= EMBBADCRC && e <= EMBBADSLAVE)
        return Garbage;
    Close();
    return Lost;
}

CModbusLink::Result CModbusLink::Read(int slave, int table, int start, int count, std::uint16_t* words,
                                      std::string& why)
{
    if (!m_ctx) {
        why = "нет соединения";
        return Lost;
    }
    modbus_set_slave(m_ctx, slave);
    int rc;
    if (table < 2) {
        std::uint8_t bits[MODBUS_MAX_READ_BITS];
        rc = table == 0 ? modbus_read_input_bits(m_ctx, start, count, bits)
                        : modbus_read_bits(m_ctx, start, count, bits);
        for (int i = 0; rc > 0 && i < count; ++i)
            words[i] = bits[i];
    } else {
        rc = table == 2 ? modbus_read_input_registers(m_ctx, start, count, words)
                        : modbus_read_registers(m_ctx, start, count, words);
    }
    return rc == count ? Ok : Failed(why);
}

CModbusLink::Result CModbusLink::Write(int slave, int table, int start,
                                       const std::vector<std::uint16_t>& words, bool multiple,
                                       std::string& why)
{
    if (!m_ctx) {
        why = "нет соединения";
        return Lost;
    }
    modbus_set_slave(m_ctx, slave);
    const int n = int(words.size());
    if (table == 1) {
        std::vector<std::uint8_t> bits(words.begin(), words.end());
        const int rc = multiple ? modbus_write_bits(m_ctx, start, n, bits.data())
                                : modbus_write_bit(m_ctx, start, bits.empty() ? 0 : bits[0]);
        return rc == (multiple ? n : 1) ? Ok : Failed(why);
    }
    if (multiple)
        return modbus_write_registers(m_ctx, start, n, words.data()) == n ? Ok : Failed(why);
    for (int i = 0; i < n; ++i) {
        if (modbus_write_register(m_ctx, start + i, words[i]) != 1)
            return Failed(why);
    }
    return Ok;
}
